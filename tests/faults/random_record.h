#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace zel::test {

using Clock = std::chrono::steady_clock;

/// What the processes of a random application, its board and its judge share: memory that outlives each of them.
struct Record {
  // The requests, by the token that each carries

  struct Request {
    std::atomic<int> status;                ///< of the last end
    std::atomic<std::uint32_t> ends;        ///< how often it has ended for the application
    std::atomic<std::uint32_t> carriedOut;  ///< how often the board has done it
    std::atomic<std::uint32_t> place;       ///< when the board did it last, in its order
    std::atomic<std::uint32_t> client;      ///< the client that keeps the order of its requests; 0: none does
  };
  static constexpr std::uint32_t kRequests = 1U << 16;
  std::array<Request, kRequests> requests;
  std::atomic<std::uint32_t> lastToken;
  std::atomic<std::uint32_t> lastClient;
  Request& request(std::uint32_t token) { return requests[token % kRequests]; }

  // The board. Its values only count up.

  std::atomic<std::uint32_t> lastPlace;
  std::atomic<std::uint32_t> version;  ///< "rtsp/tcp-port" of its stored parameters: one more with each change
  std::atomic<std::uint32_t> written;  ///< "ember/tcp-port": the newest token that was set there

  std::atomic<int> delayMs;       ///< before each answer
  std::atomic<unsigned> manners;  ///< bits of `Manner`
  std::atomic<unsigned> orders;   ///< bits of `Order`, each carried out once
  std::atomic<bool> wanted;       ///< the board is to run
  std::atomic<pid_t> board;       ///< its process; 0 while it does not listen
  std::atomic<std::uint32_t> idleRounds;
  std::atomic<int> checkers;  ///< checks that need a healthy board are under way
  std::atomic<int> breakers;  ///< somebody is just changing its manners

  // The processes of the application

  static constexpr unsigned kThreads = 4;
  struct Process {
    std::atomic<pid_t> pid;
    std::atomic<Clock::rep> endBegan;  ///< 0: not yet
    std::atomic<int> expected;         ///< its status at the end; minus the number of a signal
    std::atomic<int> allowanceMs;      ///< what its end may take longer: requests of static objects
    struct Thread {
      std::atomic<int> step;  ///< the one that is under way; -1: none
      std::atomic<Clock::rep> since;
    };
    std::array<Thread, kThreads> threads;
  };
  static constexpr unsigned kProcesses = 12;
  std::array<Process, kProcesses> processes;
  std::atomic<unsigned> processCount;

  /// What the application itself found wrong first.
  std::array<char, 400> failure;
  std::atomic<bool> hasFailed;

  /// The descriptors and threads that the context of `ZmqUtils` keeps; -1: not measured.
  std::atomic<int> contextDescriptors;
  std::atomic<int> contextThreads;
};

/// How the board answers.
enum Manner : unsigned {
  kSilent = 1,      ///< not at all
  kDoubled = 2,     ///< each answer twice
  kRefusing = 4,    ///< refuses to change anything
  kGarbled = 8,     ///< with texts that are not JSON
  kWrongType = 16,  ///< with values that do not convert
  kChatty = 32,     ///< publishes all the time
  kBelated = 64,    ///< each answer once more, just before the next one
};

/// What the board does once.
enum Order : unsigned {
  kBurst = 1,        ///< publishes more than a queue holds
  kMalformed = 2,    ///< publishes a text that is not JSON
  kOverSize = 4,     ///< publishes a message over the limit
  kMistyped = 8,     ///< publishes a value that does not convert
  kFewChanges = 16,  ///< publishes some changes
};

inline Clock::rep now() { return Clock::now().time_since_epoch().count(); }

}  // namespace zel::test
