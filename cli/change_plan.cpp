#include "cli/change_plan.h"

#include <algorithm>

#include "cli/keys.h"
#include "cli/values.h"
#include "common/shared/format_text.h"
#include "types/whitelist.h"

namespace zel::ctl {

std::string elementOf(const std::string& list, const std::string& key) {
  const std::string prefix = list + "/";
  return key.compare(0, prefix.size(), prefix) == 0 ? key.substr(prefix.size()) : "";
}

WhiteListEntry entryOf(const std::string& address, const std::string& text) {
  const std::size_t blank = text.find(' ');
  const Network network = parseNetwork(address + text.substr(0, blank));
  WhiteListEntry entry;
  entry.ip = network.address.getAddress();
  entry.mask = network.mask.getAddress();
  entry.enabled = parseSwitch(text.substr(blank + 1));
  return entry;
}

namespace {

constexpr const char* kStored = "the stored parameters";
constexpr const char* kWhitelist = "the whitelist";

/// Collects the requests.
class Planner {
 public:
  void add(const Difference& difference) {
    const std::string interface = elementOf("ethipv4", difference.key);
    if (!interface.empty()) return addInterface(interface, difference);
    const std::string address = elementOf(kWhitelistMember, difference.key);
    if (!address.empty()) return addRange(address, difference);
    if (*difference.to != kUnset) addSetting(*settings::findPath(difference.key), *difference.to);
  }

  std::vector<Step> take() {
    std::vector<Step> steps;
    for (std::size_t i = 0; i < stored_.size(); ++i) steps.push_back(storedStep(stored_[i]));
    if (!identify_.isNull()) {
      steps.push_back({"the identification LEDs", &SysMgrJsonClient::setIdentifyLeds, identify_});
    }
    addListStep(steps, removed_, &SysMgrJsonClient::removeMcastWhitelist);
    addListStep(steps, added_, &SysMgrJsonClient::addMcastWhitelist);
    addListStep(steps, switched_, &SysMgrJsonClient::enableMcastWhitelist);
    return steps;
  }

 private:
  static Step storedStep(const Json::Value& request) {
    return {kStored, &SysMgrJsonClient::setSysMgrParameter, request};
  }

  static void addListStep(std::vector<Step>& steps, const Json::Value& entries, const Operation& operation) {
    if (entries.empty()) return;
    Json::Value request;
    request[kWhitelistMember] = entries;
    steps.push_back({kWhitelist, operation, request});
  }

  void addSetting(const SettingRow& row, const std::string& text) {
    const Assignment assignment = {&row, parseSetting(row, text)};
    if (row.route == SettingRow::Route::kIdentify) {
      addTo(identify_, assignment);
    } else {
      addTo(storedRequest(0), assignment);
    }
  }

  /// A request changes at most one interface in each way.
  void addInterface(const std::string& name, const Difference& difference) {
    const bool isAdded = difference.to.has_value();
    const SettingRow& row = isAdded ? static_cast<const SettingRow&>(settings::kAddInterface)
                                    : static_cast<const SettingRow&>(settings::kRemoveInterface);
    storedRequest(isAdded ? addedInterfaces_++ : removedInterfaces_++)[row.key] =
        isAdded ? settings::kAddInterface.toJson(parseInterface(name, *difference.to)) : Json::Value(name);
  }

  void addRange(const std::string& address, const Difference& difference) {
    const auto document = [&address](const std::string& text) {
      Json::Value entry;
      entryOf(address, text).Serialize(entry);
      return entry;
    };
    const auto maskOf = [](const std::string& text) { return text.substr(0, text.find(' ')); };
    const bool stays = difference.from && difference.to && maskOf(*difference.from) == maskOf(*difference.to);
    if (stays) switched_.append(document(*difference.to));
    if (!stays && difference.from) removed_.append(document(*difference.from));
    if (!stays && difference.to) added_.append(document(*difference.to));
  }

  Json::Value& storedRequest(std::size_t number) {
    if (stored_.size() <= number) stored_.resize(number + 1, Json::Value(Json::objectValue));
    return stored_[number];
  }

  std::vector<Json::Value> stored_;
  std::size_t addedInterfaces_ = 0;
  std::size_t removedInterfaces_ = 0;
  Json::Value identify_;
  Json::Value removed_;
  Json::Value added_;
  Json::Value switched_;
};

}  // namespace

std::vector<Step> stepsOf(const Differences& differences) {
  Planner planner;
  for (const Difference& difference : differences) planner.add(difference);
  return planner.take();
}

Words unsettable(const Differences& differences) {
  Words keys;
  for (const Difference& difference : differences) {
    const bool isSetting = settings::findPath(difference.key) != nullptr;
    if (isSetting && difference.to && *difference.to == kUnset) keys.push_back(difference.key);
  }
  return keys;
}

namespace {

using Place = std::vector<Step>::const_iterator;

/// What the steps change, each once, with the number of its requests where there are several.
std::string documentsOf(Place begin, Place end) {
  Words texts;
  for (Place step = begin; step != end;) {
    const Place next = std::find_if(step, end, [&step](const Step& each) { return each.what != step->what; });
    const auto count = next - step;
    texts.push_back(step->what + (count > 1 ? " (" + std::to_string(count) + " requests)" : ""));
    step = next;
  }
  return texts.empty() ? "nothing" : listed(texts);
}

}  // namespace

void carryOut(Daemon& daemon, const std::vector<Step>& steps) {
  for (Place step = steps.begin(); step != steps.end(); ++step) {
    try {
      // Not as a change: its advice would be about this request alone.
      daemon.send("change " + step->what, step->operation, step->request, Purpose::kToRead);
    } catch (const Failure& failure) {
      const bool mayBeDone = failure.status() == Exit::kTimeOut || failure.status() == Exit::kBadAnswer;
      const Place undone = mayBeDone ? step + 1 : step;
      const std::string advice = "done: " + documentsOf(steps.begin(), step) +
                                 (mayBeDone ? "; perhaps done: " + documentsOf(step, step + 1) : "") +
                                 "; not done: " + documentsOf(undone, steps.end()) + "; " + failure.advice();
      throw Failure(failure.status(), failure.what(), advice).about(failure.key()).withCode(failure.code());
    }
  }
}

}  // namespace zel::ctl
