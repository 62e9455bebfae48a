// sysmgrctl's command lines: what is typed, a word a line, is understood, refused with a message or completed, and
// nothing else. No command is run.

#include <cstdint>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/failure.h"
#include "cli/keys.h"

namespace {

using zel::ctl::Failure;

template <class Action>
void refusable(Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    if (std::string(failure.what()).empty()) std::abort();  // a refusal says why
  }
}

const std::set<const zel::ctl::KeyType*>& keyTypes() {
  static const std::set<const zel::ctl::KeyType*> types = [] {
    std::set<const zel::ctl::KeyType*> found;
    for (const zel::ctl::Key& key : zel::ctl::settableKeys()) found.insert(&key.type);
    return found;
  }();
  return types;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words = {"sysmgrctl"};
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line) && words.size() < 20;) words.push_back(line);

  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  refusable([&] { zel::ctl::parseArguments(static_cast<int>(words.size()), argv.data()); });
  refusable([&] { zel::ctl::completions({words.begin() + 1, words.end()}); });

  const std::string& last = words.back();
  refusable([&] { zel::ctl::parseInterface(last); });
  for (const zel::ctl::KeyType* const type : keyTypes()) {
    refusable([&] { type->parse(last); });
  }
  return 0;
}
