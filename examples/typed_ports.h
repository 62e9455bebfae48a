#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

/// Reads TCP ports from standard input, one on each line.
class TypedPorts {
 public:
  /// Takes what was typed, and calls the action with each port. To be called when standard input is readable.
  /// @return false at the end of the input
  template <class Action>
  bool read(Action action) {
    char typed[256];
    const ssize_t size = ::read(STDIN_FILENO, typed, sizeof typed);
    if (size <= 0) return false;
    text_.append(typed, static_cast<std::size_t>(size));
    for (std::size_t end = 0; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1)) {
      const std::string line = text_.substr(0, end);
      const unsigned long port = std::strtoul(line.c_str(), nullptr, 10);
      if (port > 0 && port <= 65535) {
        action(static_cast<unsigned int>(port));
      } else {
        std::fprintf(stderr, "'%s' is not a TCP port\n", line.c_str());
      }
    }
    return true;
  }

 private:
  std::string text_;  ///< ends with the beginning of a line
};
