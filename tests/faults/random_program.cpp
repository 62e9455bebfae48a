#include "tests/faults/random_program.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>

#include "tests/faults/random_app.h"

namespace zel::test {

namespace {

/// Follows a program step by step.
class Legality {
 public:
  explicit Legality(unsigned cacheThread) : cacheThread_(cacheThread) { start(0); }

  bool mayFollow(const Step& step) const {
    const Row& row = rowOf(step.operation);
    const unsigned has = has_[step.thread];
    if (!runs_[step.thread] || (has & kIsLast) != 0) return false;
    if ((has & row.needs) != row.needs || (has & row.without) != 0) return false;
    if (step.operation == &App::startThread) return !wasStarted_[otherThread(step.number)];
    if (step.operation == &App::joinThread) {
      const unsigned other = otherThread(step.number);
      return runs_[other] && !staysForEver_[other];
    }
    return true;
  }

  void follow(const Step& step) {
    const Row& row = rowOf(step.operation);
    unsigned& has = has_[step.thread];
    has = (has & ~row.takes) | row.gives;
    if (step.operation == &App::startThread) start(otherThread(step.number));
    if (step.operation == &App::joinThread) runs_[otherThread(step.number)] = false;
    if (staysForEver(step.operation)) staysForEver_[step.thread] = true;
    const bool areOthers = std::any_of(runs_.begin() + 1, runs_.end(), [](bool each) { return each; });
    has_[0] = areOthers ? has_[0] | kHasThreads : has_[0] & ~kHasThreads;
  }

  bool runs(unsigned thread) const { return runs_[thread] && (has_[thread] & kIsLast) == 0; }

 private:
  void start(unsigned thread) {
    runs_[thread] = wasStarted_[thread] = true;
    has_[thread] = (thread == 0 ? kIsMain : 0) | (thread == cacheThread_ ? kMayUseCache : 0);
  }

  unsigned cacheThread_;
  std::array<unsigned, Record::kThreads> has_{};
  std::array<bool, Record::kThreads> runs_{};
  std::array<bool, Record::kThreads> wasStarted_{};
  std::array<bool, Record::kThreads> staysForEver_{};
};

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : random_(seed) {}

  Program make() {
    const std::size_t length = 3 + below(below(4) == 0 ? 60 : 25);
    threads_ = below(2) == 0 ? 1 : 1 + below(Record::kThreads);
    Legality legality(below(threads_));
    while (program_.size() < length && legality.runs(0)) {
      const Step step = draw();
      if (!legality.mayFollow(step)) continue;
      legality.follow(step);
      program_.push_back(step);
    }
    return program_;
  }

 private:
  unsigned below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }

  Step draw() {
    static const unsigned total = [] {
      unsigned sum = 0;
      for (const Row& row : rows()) sum += row.weight;
      return sum;
    }();
    unsigned place = below(total);
    auto row = rows().begin();
    for (; place >= row->weight; ++row) place -= row->weight;
    const unsigned number = below(row->words.empty() ? 1000 : row->words.size());
    const unsigned thread = below(threads_);
    if (row->operation == &App::startThread && otherThread(number) >= threads_) return draw();
    return {thread, row->operation, number};
  }

  std::mt19937 random_;
  unsigned threads_ = 1;
  Program program_;
};

}  // namespace

const Row& rowOf(Operation operation) {
  const auto found =
      std::find_if(rows().begin(), rows().end(), [operation](const Row& row) { return row.operation == operation; });
  if (found == rows().end()) std::abort();
  return *found;
}

bool staysForEver(Operation operation) {
  return operation == &App::waitForEver || operation == &App::comeAndGoForEver || operation == &App::useCacheForEver;
}

Program generate(std::uint32_t seed) { return Generator(seed).make(); }

Program legal(const Program& program) {
  const auto usesCache = [](const Step& step) { return (rowOf(step.operation).needs & kMayUseCache) != 0; };
  const auto first = std::find_if(program.begin(), program.end(), usesCache);
  Legality legality(first == program.end() ? 0 : first->thread);
  Program result;
  for (const Step& step : program) {
    if (!legality.mayFollow(step)) continue;
    legality.follow(step);
    result.push_back(step);
  }
  return result;
}

std::string written(const Program& program) {
  std::string text;
  for (const Step& step : program) {
    const Row& row = rowOf(step.operation);
    text += "           {" + std::to_string(step.thread) + ", &App::" + row.name + ", " + std::to_string(step.number) +
            "},";
    if (!row.words.empty()) text += std::string("  // ") + row.words[step.number % row.words.size()];
    text += '\n';
  }
  return text;
}

}  // namespace zel::test
