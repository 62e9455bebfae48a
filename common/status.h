#pragma once

/// The status codes of the API, in one place.
///
/// Every operation that returns an `int` status returns 0 on success and a negative code on failure. A negative value
/// that is not listed here is the daemon's own, passed through unchanged.
namespace zel::status {

constexpr int kOk = 0;

/// A subscriber was used before its `init`.
constexpr int kSubscriberNotInitialized = -1;
/// An output pointer was null.
constexpr int kNullParameter = -4;
/// A notification's topic is none of the known ones.
constexpr int kUnknownTopic = -11;
/// No interface of that name, or no traffic interface at all.
constexpr int kInterfaceNotFound = -16;
/// An address text or an interface configuration is not valid.
constexpr int kInvalidAddress = -27;

/// `ClientJsonApi::init` has not succeeded, or the process is at its end.
constexpr int kNotInitialized = -100;
/// The socket cannot be opened or connected.
constexpr int kCannotConnect = -101;
/// No daemon took the request within the time-out: it was not sent and never will be. Safe to repeat.
constexpr int kNotSent = -102;
/// The request was sent and no answer came within the time-out: the daemon may have acted on it.
constexpr int kNoAnswer = -103;
/// The answer is not one JSON object in one frame.
constexpr int kBadAnswer = -104;
/// The request cannot be written as JSON text within the limits: nothing was sent.
constexpr int kBadRequest = -105;
/// The request of an asynchronous client was cancelled before it was sent: it was not sent and never will be.
constexpr int kCancelled = -106;

/// A notification has not exactly two frames.
constexpr int kBadNotificationFrames = -110;
/// A notification's payload is not JSON within the limits.
constexpr int kBadNotificationJson = -111;

}  // namespace zel::status
