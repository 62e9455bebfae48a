#pragma once

#include <chrono>
#include <string>

namespace zel::ctl {

/// The end of the time that a command, or a part of it, may take.
class Deadline {
 public:
  explicit Deadline(double seconds);
  /// What is left, not below 0.
  std::chrono::milliseconds left() const;
  bool isOver() const { return left().count() == 0; }
  /// The whole time as text: "5 s".
  const std::string& text() const { return text_; }

 private:
  std::chrono::steady_clock::time_point end_;
  std::string text_;
};

}  // namespace zel::ctl
