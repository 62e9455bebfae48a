#pragma once

#include <string>

#include "cli/deadline.h"

namespace zel::ctl {

/// Replaces a file in one step: a reader sees the old text or the new one, and a crash leaves one of the two. The text
/// is written beside the file, synced, and renamed. What is not a regular file (a pipe, a terminal) is written to.
/// @throws Failure
void replaceFile(const std::string& path, const std::string& text);

/// The text of a file, or of standard input for "-".
/// @param end  of the wait for a pipe or a terminal; null: none
/// @throws Failure, also for more than 1 MiB
std::string textOfFile(const std::string& path, const Deadline* end = nullptr);

}  // namespace zel::ctl
