#pragma once

#include <string>

namespace zel::test {

/// How a daemon answers.
struct DaemonManners {
  int delayMs = 0;        ///< before each answer
  bool doubled = false;   ///< each answer is sent twice
  bool shuffled = false;  ///< answers wait for the next request, and go out in the opposite order

  std::string text() const;
  static DaemonManners fromText(const std::string& text);
};

/// A daemon process: carries out each request, which is to enter its token in the journal, and answers with the token.
/// Prints "ready" when it listens. Never returns but for an error.
int runFaultyDaemon(int journalDescriptor, const DaemonManners& manners);

}  // namespace zel::test
