#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/faults/random_record.h"

namespace zel::test {

class App;
struct Frame;

/// What a step does: an operation of `App`, in the thread of the frame.
using Operation = void (App::*)(Frame& frame, unsigned number);

/// One step of a random application.
struct Step {
  unsigned thread;  ///< 0: the main one
  Operation operation;
  unsigned number;  ///< what the operation makes of it: see the words of its row
};
using Program = std::vector<Step>;

// What a thread has, as far as that decides what may follow.
constexpr unsigned kHasClients = 1;
constexpr unsigned kHasReceiver = 2;
constexpr unsigned kHasAsync = 4;
constexpr unsigned kHasView = 8;
constexpr unsigned kHasContext = 16;  ///< of its own
constexpr unsigned kHasCache = 32;
constexpr unsigned kHasEvents = 64;    ///< an event descriptor
constexpr unsigned kHasThreads = 128;  ///< others were started and not joined
constexpr unsigned kIsMain = 256;
constexpr unsigned kMayUseCache = 512;  ///< one thread may
constexpr unsigned kIsLast = 1024;      ///< nothing follows in this thread
constexpr unsigned kHasFarewell = 2048;

constexpr unsigned kHasObjects = kHasClients | kHasReceiver | kHasAsync | kHasView;

/// An operation, and when it may follow.
struct Row {
  const char* name;
  Operation operation;
  unsigned needs;
  unsigned without;
  unsigned gives;
  unsigned takes;
  unsigned weight;                 ///< how often it is drawn, beside the others
  int limitMs;                     ///< what it may take
  std::vector<const char*> words;  ///< what the numbers mean; none: any number
};
const std::vector<Row>& rows();
const Row& rowOf(Operation operation);
/// Whether the operation does not return before the process ends.
bool staysForEver(Operation operation);

/// A program that has found a fault, and the fault.
struct FoundProgram {
  const char* fault;
  Program program;
};
const std::vector<FoundProgram>& foundPrograms();

/// The program of a seed.
Program generate(std::uint32_t seed);
/// The program without the steps that may not follow the ones before.
Program legal(const Program& program);
/// The program as C++.
std::string written(const Program& program);

}  // namespace zel::test
