#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/daemon.h"
#include "cli/output.h"
#include "cli/words.h"

namespace zel::ctl {

class Call;

/// The words to offer in place of a word.
/// @param before  the words in front of it
/// @param begin   what is there of it
using Offering = Offers (*)(const Words& before, const std::string& begin);

/// A word that a command takes, or several of them.
struct Argument {
  static constexpr std::size_t kAny = 1000000;

  const char* key;    ///< by which the command asks for it
  const char* shown;  ///< in the help: "NAME"
  const char* help;
  std::size_t least = 0;      ///< words that have to be there
  std::size_t most = 1;       ///< words that may be there
  Offering values = nullptr;  ///< what to offer in its place
};

/// An option, which may stand anywhere on the command line. Options of one name have a value in all commands or in
/// none.
struct Option {
  std::string name;   ///< "--count"; the command asks for it by this
  const char* value;  ///< the name of its value in the help: "N"; null: it takes no value
  const char* help;
  Offering values = nullptr;
  char letter = '\0';  ///< of the short form
};

/// One thing that sysmgrctl does. The parser, the help and the completions are made from the table of these.
struct Command {
  std::string name;         ///< the words that choose it: "whitelist add"
  const char* summary;      ///< one line
  void (*run)(Call& call);  ///< null: a group, whose commands follow
  std::vector<Argument> arguments = {};
  std::vector<Option> options = {};
  std::string notes = {};  ///< what else its help says
  double seconds = 5;      ///< how long it waits without --wait
};
const std::vector<Command>& commands();

const Command* commandOf(const std::string& name);
/// The commands of a group, or for the empty name the first words of all.
Words commandsIn(const std::string& group);
/// The options of every command.
const std::vector<Option>& commonOptions();

/// What was typed: by the key of an argument its words, by the name of an option its values; an option without a value
/// has an empty one for each time that it was given.
using Values = std::map<std::string, Words>;

/// One run of a command: what was typed and what the command works with.
class Call {
 public:
  /// @throws Failure when the value of --wait is not a time
  Call(const Command& command, Values values);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool has(const std::string& key) const { return !words(key).empty(); }
  const Words& words(const std::string& key) const;
  /// The last of them; empty when nothing was typed.
  std::string word(const std::string& key) const { return has(key) ? words(key).back() : std::string(); }

  /// The daemon. The first call connects to it, so commands about this host work without a daemon.
  Daemon& daemon();
  /// The deadline where --wait gives it. Null: the default, which bounds the daemon's answers only.
  const Deadline* end() const { return has("--wait") ? &deadline : nullptr; }
  /// Lets the default time begin now, behind the wait for a person. The time of --wait goes on.
  void beginTime();

  Deadline deadline;
  Output output;

 private:
  double seconds_;
  Values values_;
  std::unique_ptr<Daemon> daemon_;
};

/// What `watch` can follow.
Words watchableDocuments();

// status.cpp
void runStatus(Call& call);
// metrics.cpp
void runMetrics(Call& call);
// get.cpp
void runGet(Call& call);
void runDelta(Call& call);
void runDump(Call& call);
// set.cpp
void runSet(Call& call);
// import.cpp
void runExport(Call& call);
void runImport(Call& call);
void runDiff(Call& call);
// confirm.cpp
void runConfirm(Call& call);
// eth.cpp
void runEthList(Call& call);
void runEthAdd(Call& call);
void runEthRemove(Call& call);
void runEthDefaults(Call& call);
void runEthValidate(Call& call);
// whitelist.cpp
void runWhitelistList(Call& call);
void runWhitelistAdd(Call& call);
void runWhitelistRemove(Call& call);
void runWhitelistEnable(Call& call);
void runWhitelistDisable(Call& call);
// device.cpp
void runModule(Call& call);
void runIdentify(Call& call);
void runGpioGet(Call& call);
void runGpioSet(Call& call);
void runReboot(Call& call);
void runFactoryReset(Call& call);
// watch.cpp
void runWatch(Call& call);
// record.cpp
void runRecord(Call& call);
// host.cpp
void runHost(Call& call);
// doctor.cpp
void runDoctor(Call& call);
// wait_ready.cpp
void runWaitReady(Call& call);

}  // namespace zel::ctl
