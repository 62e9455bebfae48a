#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/board.h"
#include "cli/output.h"
#include "cli/suggest.h"

namespace zel::ctl {

class Call;

/// What a command takes: a word ("NAME"), a flag ("--yes") or an option with a value ("--count N").
struct Argument {
  static constexpr int kAny = 1000000;

  std::string name;
  const char* help;
  int least = 0;                                         ///< words that have to be there
  int most = 1;                                          ///< words that may be there
  Offers (*values)(const Words& typedBefore) = nullptr;  ///< what to offer in its place, given the words before it

  bool isOption() const { return name.rfind("--", 0) == 0; }
  bool isFlag() const { return isOption() && name.find(' ') == std::string::npos; }
  /// The name without that of the option's value: "--count".
  std::string key() const { return name.substr(0, name.find(' ')); }
};

/// One thing that sysmgrctl does. What the program knows of its commands, its help and its completions included, stands
/// in the table of these.
struct Command {
  std::string name;         ///< the words that choose it: "whitelist add"
  const char* summary;      ///< one line
  void (*run)(Call& call);  ///< null: a group, whose commands follow
  std::vector<Argument> arguments = {};
  std::string notes = {};  ///< what else its help says
  double seconds = 5;      ///< how long it waits without --wait
};
const std::vector<Command>& commands();

const Command* commandOf(const std::string& name);
/// The commands of a group, or for the empty name the first words of all.
Words commandsIn(const std::string& group);

/// What the options before or behind any command say.
struct Common {
  bool json = false;
  int verbosity = 0;
  std::optional<double> wait;
};

/// One run of a command: what was typed and what the command works with.
class Call {
 public:
  using Values = std::map<std::string, Words>;
  Call(const Command& command, const Common& options, Values values)
      : common(options),
        deadline(common.wait.value_or(command.seconds)),
        output(common.json),
        values_(std::move(values)) {
    if (common.wait) output.endBy(deadline);
  }

  bool has(const std::string& name) const { return !words(name).empty(); }
  /// The words of an argument, by its key.
  const Words& words(const std::string& name) const;
  /// The last one; empty when there is none.
  std::string word(const std::string& name) const { return has(name) ? words(name).back() : std::string(); }

  /// The daemon; connected on first use, so that commands about this host need none.
  Board& board();

  const Common common;
  const Deadline deadline;
  Output output;

 private:
  Values values_;
  std::unique_ptr<Board> board_;
};

/// What `watch` can follow.
Words watchableDocuments();

/// Asks on the terminal before something that cannot be taken back, unless --yes was given.
/// @throws Failure when the answer is no, or when there is nobody to ask
void confirm(const Call& call, const std::string& question);

// The commands, in the files that bear their names.
void runStatus(Call& call);
void runGet(Call& call);
void runSet(Call& call);
void runEthList(Call& call);
void runEthAdd(Call& call);
void runEthRemove(Call& call);
void runEthDefaults(Call& call);
void runEthValidate(Call& call);
void runWhitelistList(Call& call);
void runWhitelistAdd(Call& call);
void runWhitelistRemove(Call& call);
void runWhitelistEnable(Call& call);
void runWhitelistDisable(Call& call);
void runModule(Call& call);
void runIdentify(Call& call);
void runGpioGet(Call& call);
void runGpioSet(Call& call);
void runReboot(Call& call);
void runFactoryReset(Call& call);
void runWatch(Call& call);
void runDelta(Call& call);
void runDump(Call& call);
void runHost(Call& call);
void runDoctor(Call& call);
void runWaitReady(Call& call);

}  // namespace zel::ctl
