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

// What a request may ask for besides, by a member of this name.
constexpr const char* kToken = "token";  ///< the number of the request, for the journal; the answer carries it, too
constexpr const char* kFlood = "flood";  ///< so many documents at once
constexpr const char* kQuiet = "quiet";  ///< no document from here on

/// A daemon process: carries out each request, which is to enter its token in the journal, and answers with the token
/// and with the document that was asked for. Publishes a document after each request and every 5 ms.
/// Prints "ready" when it listens. Never returns but for an error.
int runFaultyDaemon(int journalDescriptor, const DaemonManners& manners);

}  // namespace zel::test
