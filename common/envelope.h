#pragma once

/// @file
/// The members that the daemon adds to every answer, beside the payload of the command.

namespace zel::envelope {

/// An integer, 0 when absent. Negative: the request failed. Positive: it succeeded, with a remark.
inline constexpr char kStatus[] = "status";
/// The text of the failure or of the remark.
inline constexpr char kError[] = "error";
/// An array of texts: the messages of the checks that failed.
inline constexpr char kAuxErrors[] = "aux-errors";

}  // namespace zel::envelope
