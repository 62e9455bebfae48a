// sysmgrctl's command lines, a word a line: parsing returns or throws a Failure with a message, for the line, its
// completions and the values of options and keys. No command is run.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "cli/arguments.h"
#include "cli/escape.h"
#include "cli/failure.h"
#include "cli/keys.h"
#include "cli/values.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zel::ctl::Words words = {""};
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line) && words.size() < 20;) words.push_back(line);
  const zel::ctl::Words typed(words.begin() + 1, words.end());
  refusable([&] { zel::ctl::parseArguments(typed); });
  refusable([&] { zel::ctl::completions(typed); });

  const std::string& last = words.back();
  for (const zel::SettingRow* const row : zel::ctl::settableRows()) {
    refusable([&] { zel::ctl::parseSetting(*row, last); });
  }
  refusable([&] { zel::ctl::parseNetwork(last, words.front()); });
  refusable([&] { zel::ctl::parseSeconds(last); });
  const std::string shown = zel::ctl::visible(last);
  if (zel::ctl::visible(shown) != shown) std::abort();  // nothing is left to be escaped
  return 0;
}
