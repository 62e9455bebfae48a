#pragma once

#include <string>
#include <vector>

#include "common/status.h"

namespace zel::sim {

/// The statuses with which the board refuses a request, in the answer's "status". The API's own codes are used where
/// they fit; none of these is one that the client makes itself.
namespace refusal {
constexpr int kUnknownCommand = -2;
/// The frames, the command id or the JSON text of a request are not what the wire wants, or a body is missing.
constexpr int kMalformedRequest = -3;
constexpr int kUnknownKey = -5;
constexpr int kWrongType = -6;
constexpr int kOutOfRange = -7;
/// No whitelist entry of that address and mask, no GPIO line of that name.
constexpr int kNotFound = -8;
/// The whitelist entry is the system's own.
constexpr int kFixedEntry = -9;
/// The list is full.
constexpr int kTooMany = -10;
/// Too many large requests wait.
constexpr int kBusy = -13;
/// The change cannot be written to the store, so it was not made.
constexpr int kNotStored = -12;
/// The board is a recording, which does not hold the answer and cannot be changed.
constexpr int kRecording = -14;
constexpr int kInterfaceNotFound = status::kInterfaceNotFound;
/// An address is no address, or an interface configuration may not be applied: "aux-errors" has the reason.
constexpr int kInvalidAddress = status::kInvalidAddress;
}  // namespace refusal

/// The "status" of a change that is made and in the store's file, whose folder could not be synced: a power failure may
/// bring the file back as it was. "aux-errors" has the reason.
constexpr int kStoredButNotSynced = 1;

/// Why a request is refused; without a status it is not.
struct Refusal {
  int status = 0;
  std::string text;
  std::vector<std::string> reasons = {};  ///< what the checks reported, for "aux-errors"

  explicit operator bool() const { return status < 0; }
};

}  // namespace zel::sim
