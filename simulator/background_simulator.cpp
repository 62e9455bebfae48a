#include "simulator/background_simulator.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include "common/envelope.h"
#include "common/shared/escape.h"
#include "common/shared/wire_json.h"
#include "simulator/factory.h"
#include "simulator/orders.h"
#include "simulator/simulator.h"

namespace zel::sim {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{2};

/// A duration that a point in time can be counted from: a year at most.
std::chrono::milliseconds countable(std::chrono::milliseconds duration) {
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);
  return std::clamp(duration, std::chrono::milliseconds(0), kLongest);
}

SimulatorOptions simulatorOptions(const BoardOptions& options) {
  const auto model = modelFromText(options.model);
  if (!model) throw std::invalid_argument("there is no board model \"" + escaped(options.model) + "\"");
  SimulatorOptions made;
  made.board = Board(*model);
  if (!options.state.isNull()) {
    if (const Refusal why = made.board.applyState(options.state)) throw std::invalid_argument(why.text);
  }
  made.requests = options.requests;
  made.notifications = options.notifications;
  made.storeFile = options.storeFile;
  made.liveInterval = countable(options.liveInterval);
  made.tell = made.trace = options.trace;
  return made;
}

Json::Value readBody(const std::string& text) {
  Json::Value body;
  return WireJsonReader().read(text, body).empty() ? body : Json::Value();
}

}  // namespace

class BackgroundSimulator::Parts {
 public:
  explicit Parts(const BoardOptions& options) : thread_(watched(simulatorOptions(options))) {
    if (!thread_.failure().empty()) throw std::runtime_error(thread_.failure());
  }

  Simulator& simulator() { return thread_.simulator(); }

  /// Runs an action in the board's thread.
  template <class Action>
  auto in(Action action) {
    auto result = simulator().await(std::move(action));
    if (!result) throw std::logic_error("the board has ended");
    return *std::move(result);
  }
  /// The same for an action without a result.
  template <class Action>
  void have(Action action) {
    in([&action] {
      action();
      return true;
    });
  }

  /// Makes a change. @throws std::invalid_argument when the board refuses it
  void alter(const Simulator::Alteration& make) {
    const Outcome outcome = in([&] { return simulator().alter(make); });
    if (!outcome.accepted()) throw std::invalid_argument(outcome.reply[envelope::kError].asString());
  }

  void leave() {
    simulator().leave();
    const std::lock_guard<std::mutex> lock(mutex_);
    topics_.clear();
  }

  bool waitForSubscription(const std::string& topic, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return subscribed_.wait_for(lock, countable(limit),
                                [&] { return topics_.count(topic) > 0 || topics_.count("") > 0; });
  }

 private:
  SimulatorOptions watched(SimulatorOptions options) {
    options.onSubscription = [this](const std::string& topic) {
      const std::lock_guard<std::mutex> lock(mutex_);
      topics_.insert(topic);
      subscribed_.notify_all();
    };
    return options;
  }

  std::mutex mutex_;
  std::condition_variable subscribed_;
  std::set<std::string> topics_;  ///< to which clients have subscribed
  SimulatorThread thread_;
};

BackgroundSimulator::BackgroundSimulator(const BoardOptions& options) : parts_(std::make_unique<Parts>(options)) {}
BackgroundSimulator::~BackgroundSimulator() = default;

const std::string& BackgroundSimulator::requestEndpoint() const { return parts_->simulator().requestEndpoint(); }
const std::string& BackgroundSimulator::notificationEndpoint() const {
  return parts_->simulator().notificationEndpoint();
}

// --- the state

SysParameters BackgroundSimulator::stored() const {
  SysParameters stored;
  Json::Value now = document("stored");
  stored.Deserialize(now);
  return stored;
}

SysParametersDynamic BackgroundSimulator::dynamic() const {
  SysParametersDynamic dynamic;
  Json::Value now = document("dynamic");
  dynamic.Deserialize(now);
  return dynamic;
}

void BackgroundSimulator::setInterfaceAddress(const std::string& name, const std::string& address) {
  parts_->alter([&](Board& board, const Board::Keep& keep) {
    Json::Value interfaces = (*documentNamed(board, "dynamic"))["eth-basics"];
    for (Json::Value& interface : interfaces) {
      if (interface["name"] != name) continue;
      interface["ip"] = address;
      interface["ip-present"] = address != "0.0.0.0";
      return sim::setValue(board, "dynamic", "eth-basics", interfaces, keep);
    }
    // There is no such place: setting it says so, and which there are.
    return sim::setValue(board, "dynamic", "eth-basics/" + name + "/ip", address, keep);
  });
}

void BackgroundSimulator::setValue(const std::string& document, const std::string& path, const Json::Value& value) {
  parts_->alter(
      [&](Board& board, const Board::Keep& keep) { return sim::setValue(board, document, path, value, keep); });
}

Json::Value BackgroundSimulator::document(const std::string& name) const {
  const auto now = parts_->in([&] { return documentNamed(parts_->simulator().board(), name); });
  if (!now) throw std::invalid_argument("there is no document \"" + name + "\"");
  return *now;
}

void BackgroundSimulator::publish(unsigned int topic, const std::string& payload) {
  parts_->have([&] { parts_->simulator().publishFrames({std::to_string(topic), payload}); });
}

// --- what was requested

std::vector<BackgroundSimulator::Request> BackgroundSimulator::requests() const {
  const auto served = parts_->in([&] { return parts_->simulator().requests(); });
  std::vector<Request> requests;
  requests.reserve(served.size());
  for (const ServedRequest& each : served) {
    requests.push_back({each.id, readBody(each.body), each.status, each.fault == nullptr ? "" : each.fault, each.at});
  }
  return requests;
}

void BackgroundSimulator::forgetRequests() {
  parts_->have([&] { parts_->simulator().forgetRequests(); });
}

bool BackgroundSimulator::waitForRequest(unsigned int command, std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + countable(limit);
  const auto isThere = [&] {
    return parts_->in([&] {
      const auto& served = parts_->simulator().requests();
      return std::any_of(served.begin(), served.end(),
                         [&](const ServedRequest& request) { return request.id == command; });
    });
  };
  while (!isThere()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

bool BackgroundSimulator::waitForSubscription(unsigned int topic, std::chrono::milliseconds limit) const {
  return parts_->waitForSubscription(std::to_string(topic), limit);
}

// --- faults

void BackgroundSimulator::misbehave(const std::string& rule) {
  FaultRule read;
  if (const std::string why = FaultRule::parse(rule, read); !why.empty()) throw std::invalid_argument(why);
  Exchange exchange;
  read.applyTo(exchange);
  if (exchange.crash != Exchange::Crash::kNever) {
    throw std::invalid_argument(escaped(rule) +
                                ": a crash would end the process of the test, too; stopListening() and away() "
                                "end the board alone");
  }
  parts_->simulator().misbehave(read);
}

void BackgroundSimulator::behave() { parts_->simulator().faults().replaceAll({}); }

void BackgroundSimulator::stopAnswering() {
  parts_->have([&] { parts_->simulator().setServing(false); });
}
void BackgroundSimulator::continueAnswering() {
  parts_->have([&] { parts_->simulator().setServing(true); });
}
void BackgroundSimulator::dropConnections() {
  waitForFetchedAnswers(parts_->simulator());
  parts_->have([&] { parts_->simulator().dropConnections(); });
}

void BackgroundSimulator::stopListening() {
  waitForFetchedAnswers(parts_->simulator());
  parts_->have([&] { parts_->leave(); });
}

void BackgroundSimulator::startListening() {
  const std::string why = parts_->in([&] { return parts_->simulator().comeBack(); });
  if (!why.empty()) throw std::runtime_error(why);
}

void BackgroundSimulator::away(std::chrono::milliseconds duration) {
  waitForFetchedAnswers(parts_->simulator());
  parts_->have([&] {
    Simulator& simulator = parts_->simulator();
    parts_->leave();
    simulator.at(Simulator::Clock::now() + countable(duration), [&simulator] {
      if (const std::string why = simulator.comeBack(); !why.empty()) simulator.tell(why);
    });
  });
}

}  // namespace zel::sim
