#include "tests/faults/run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "client/zmq_utils.h"
#include "common/status.h"
#include "tests/support/private_network.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

microseconds since(Clock::time_point begin) { return std::chrono::duration_cast<microseconds>(Clock::now() - begin); }

bool isAnswerTo(std::uint32_t token, const Json::Value& reply) {
  return reply.isObject() && reply[kToken].isUInt() && reply[kToken].asUInt() == token;
}

}  // namespace

// ---- what comes

int Run::Subscriber::notifyStoredParametersUpdate(SysParameters& parameters) {
  return run_.note(Subject::kStored, numberOf(parameters.cfgFilePath));
}
int Run::Subscriber::notifyDynamicInfoUpdate(SysParametersDynamic& parameters) {
  return run_.note(Subject::kDynamic, numberOf(parameters.ethBasics));
}
int Run::Subscriber::notifyRebootRequest() { return run_.note(Subject::kStored, 0); }  // no daemon asks for this
int Run::Subscriber::notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) {
  return run_.note(Subject::kWhitelist, numberOf(entries));
}

int Run::note(Subject subject, std::uint32_t number) {
  history_.add(History::Notification{subject, number, honestSenders_, fault_});
  return 0;
}

std::uint32_t Run::newestInCache() const {
  std::string path;
  cache_->getCfgFilePath(&path);
  std::list<EthBasicInfo> interfaces;
  cache_->getEthDynamicBasicInfo(interfaces);
  const std::uint32_t numbers[] = {numberOf(path), numberOf(interfaces), numberOf(cache_->getMulticastWhiteList())};
  std::uint32_t newest = 0;
  for (const std::uint32_t number : numbers) newest = number == kDamaged ? newest : std::max(newest, number);
  return newest;
}

bool Run::cacheShows(Subject subject) const {
  const std::uint32_t number = journal_.newest(subject);
  switch (subject) {
    case Subject::kStored: {
      std::string path;
      cache_->getCfgFilePath(&path);
      return numberOf(path) == number;
    }
    case Subject::kDynamic: {
      std::list<EthBasicInfo> interfaces;
      cache_->getEthDynamicBasicInfo(interfaces);
      return numberOf(interfaces) == number;
    }
    case Subject::kWhitelist: return numberOf(cache_->getMulticastWhiteList()) == number;
  }
  return false;
}

// ---- the application

Run::Run(std::uint32_t seed, ClientKind kind) : random(seed) {
  startDaemon();
  if (kind == ClientKind::kAsync) {
    async_ = std::make_unique<AsyncDriver>([this](const AsyncDriver::End& end) { noteEnd(end); });
  } else {
    client_.init(ZmqUtils::getInstance().getContext());
  }
  cache_ = &SystemDefaultCfg::getInstance();
  subscriber_.init(ZmqUtils::getInstance().getContext());
  subscriber_.subscribeAll();
  if (subscriber_.getPollItems(fds_) != 0 || cache_->initSubscribers(fds_) != 0) {
    std::fprintf(stderr, "the subscribers do not start\n");
    std::exit(2);
  }
  control_.emplace();  // all threads are there
  expectFollowing();
}

template <class Action>
auto Run::timed(const char* what, milliseconds limit, Action action) {
  control_->begin();
  const Clock::time_point begin = Clock::now();
  const auto result = action();
  const microseconds took = since(begin);
  history_.add(History::Wait{what, took, limit, control_->worst(), fault_});
  return result;
}

int Run::call(milliseconds limit, Json::Value wishes) {
  if (async_) {
    control_->begin();
    submit(limit, std::move(wishes));
    runLoop();
    return lastStatus_;
  }
  wishes[kToken] = ++token_;
  history_.addSubmission();
  IpcMsg request(SysMgrCommands::SYSMGR_SET_PARAMETER, wishes);
  Json::Value reply;
  zel::setTimeout(client_, limit);
  const int status = timed("request", limit, [&] { return client_.sendMessage(request, reply); });
  history_.add(History::Call{token_, status, status >= 0 && isAnswerTo(token_, reply), honestPeer_, fault_});
  return status;
}

void Run::request() {
  if (!async_) {
    call();
    return;
  }
  control_->begin();
  for (unsigned left = 1 + below(6); left > 0; --left) {
    submit(milliseconds(1 + below(static_cast<unsigned>(kFaultyLimit.count()))));
    if (below(6) == 0) cancelAny();
  }
  while (!async_->waiting().empty()) {
    if (below(8) == 0) cancelAny();
    step();
  }
}

void Run::renewClient() {
  if (!async_) return;
  for (unsigned left = 1 + below(5); left > 0; --left) submit(kFaultyLimit);
  for (unsigned left = below(4); left > 0 && !async_->waiting().empty(); --left) step();
  int status = History::kDestroyedFirst;
  for (const std::uint32_t token : async_->renew()) {
    history_.add(History::Call{token, status, false, honestPeer_, fault_});
    status = History::kDestroyedBehind;
  }
}

void Run::submit(milliseconds limit, Json::Value wishes) {
  wishes[kToken] = ++token_;
  history_.addSubmission();
  async_->submit(token_, wishes, limit);
}

void Run::cancelAny() {
  const std::vector<std::uint32_t> tokens = async_->waiting();
  async_->cancel(tokens[below(static_cast<unsigned>(tokens.size()))]);
}

void Run::step() {
  if (!async_->step()) history_.addFailure("a wake-up that did not come", fault_);
}

void Run::runLoop() {
  while (!async_->waiting().empty()) step();
}

void Run::noteEnd(const AsyncDriver::End& end) {
  lastStatus_ = end.status;
  const bool own = end.status >= 0 && isAnswerTo(end.token, end.reply);
  history_.add(History::Call{end.token, end.status, own, honestPeer_, fault_});
  history_.add(History::Wait{"request", end.took, end.limit, control_->worst(), fault_});
}

template <class Receiver>
void Run::drain(Receiver& receiver, const zmq_pollitem_t& item) {
  const auto end = Clock::now() + milliseconds(200);  // a peer may send faster than anybody can take it
  for (bool more = true; more && Clock::now() < end;) {
    more = timed("processEvent", milliseconds(0), [&] {
      try {
        return receiver.processEvent(item) != 0;
      } catch (const std::exception& thrown) {  // JsonCpp's, of a value of a type that does not convert
        if (honestSenders_) history_.addFailure(thrown.what(), fault_);
        return true;
      }
    });
  }
}

void Run::listen(milliseconds limit) {
  timed("poll", limit, [&] { return fds_.poll(limit.count()); });
  if (async_) async_->stepIfReadable();
  drain(subscriber_, fds_[0]);
  drain(*cache_, fds_[1]);
}

bool Run::listenUntil(const std::function<std::uint32_t()>& newest, const std::function<bool(std::uint32_t)>& arrived) {
  // As long as something comes it is not over: a flood takes a while.
  std::uint32_t before = newest();
  auto end = Clock::now() + kHealthyLimit;
  while (!arrived(newest())) {
    if (Clock::now() > end) return false;
    listen(milliseconds(10));
    if (newest() == before) continue;
    before = newest();
    end = Clock::now() + kHealthyLimit;
  }
  return true;
}

void Run::expectFollowing() {
  const std::uint32_t before = journal_.published();
  const Clock::time_point begin = Clock::now();
  // From the first document of this daemon's on, nothing is left of what others have sent.
  const auto newestReceived = [this] { return history_.newest(); };
  const auto newestCached = [this] { return newestInCache(); };
  const auto isOfThisDaemon = [before](std::uint32_t number) { return number > before; };
  if (listenUntil(newestReceived, isOfThisDaemon)) {
    history_.addReturn(since(begin));
  } else {
    history_.addFailure("no notification from a healthy daemon", fault_);
  }
  if (!listenUntil(newestCached, isOfThisDaemon)) {
    history_.addFailure("a cache that does not follow", fault_);
  }
  honestSenders_ = true;

  // As applications are told to: what was published in between is fetched.
  if (cache_->init() != 0) history_.addFailure("a cache that fetches nothing", fault_);
  Json::Value wishes;
  wishes[kQuiet] = true;
  expectAnswer(false, wishes);
  const auto isLast = [this](std::uint32_t number) { return number == journal_.published(); };
  const auto newestOfBoth = [&] { return std::min(newestReceived(), newestCached()); };
  if (!listenUntil(newestOfBoth, isLast)) history_.addFailure("the last notification is missing", fault_);
  for (const Subject subject : {Subject::kStored, Subject::kDynamic, Subject::kWhitelist}) {
    if (!cacheShows(subject)) history_.addFailure("a stale cache", fault_);
  }
}

void Run::expectAnswer(bool mayBeLost, const Json::Value& wishes) {
  const int result = call(kHealthyLimit, wishes);
  if (result == status::kNoAnswer && mayBeLost) {
    history_.addLostRequest();
    expectAnswer(false, wishes);
  } else if (result < 0) {
    history_.addFailure("no answer from a healthy daemon: " + std::to_string(result), fault_);
  }
}

void Run::recover() {
  kill();
  startDaemon();
  // What is written into a connection that is just dying is lost, and nobody can tell. The client is given the time
  // that it takes to see the end of the old one. The application reads meanwhile: a thousand unread notifications that
  // came one by one would take 18 MiB in libzmq, which keeps for each the buffer that it came in.
  waitUntil([this] {
    listen(milliseconds(1));
    return !isDeadConnectionOpen();
  });
  // Behind what a hostile peer has sent unasked the end cannot be seen: then one request may be lost, and only one.
  const bool mayBeLost = !honestSenders_;
  expectAnswer(mayBeLost);
  expectFollowing();
}

// ---- the peer

void Run::startDaemon(const DaemonManners& manners) {
  start({"daemon", std::to_string(journal_.descriptor()), manners.text()});
  honestPeer_ = true;
}

void Run::startHostilePeer(std::uint32_t seed, bool large) {
  start({large ? "peer" : "lean-peer", std::to_string(seed)});
  honestPeer_ = honestSenders_ = false;
}

void Run::start(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/proc/self/exe");
  peer_ = std::make_unique<ChildProcess>(ChildProcess::run(arguments));
  if (peer_->waitForOutput("ready")) return;
  std::fprintf(stderr, "a peer does not start: %s\n", peer_->errors().c_str());
  std::exit(2);
}

}  // namespace zel::test
