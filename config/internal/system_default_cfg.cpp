#include "config/system_default_cfg.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

#include "client/zmq_utils.h"
#include "common/shared/failed_check.h"
#include "common/shared/process_mutex.h"
#include "common/shared/singleton.h"
#include "common/status.h"
#include "types/shared/board_models.h"

using zel::checked;
using zel::models::Redundancy;
using zel::models::Row;
using zel::models::Traffic;
using zel::status::kInterfaceNotFound;
using zel::status::kNullParameter;
using zel::status::kOk;

namespace {

/// The process that has initialised the subscribers, and the one that has called `init`.
pid_t subscriber = 0;
pid_t initializer = 0;

bool hasRedundancy(const BoardModel& board, Redundancy redundancy) {
  const Row* const row = zel::models::find(board.model);
  return row != nullptr && row->streams.redundancy == redundancy;
}

std::vector<std::string> trafficInterfaces(const BoardModel& board, bool redundancyEnable) {
  const Row* const row = zel::models::find(board.model);
  if (row == nullptr) return {};
  const Traffic& traffic = redundancyEnable ? row->streams.withRedundancy : row->streams.withoutRedundancy;
  const bool named = row->runsOnAnyHost && !board.modelLabel.empty();
  std::vector<std::string> names{named ? board.modelLabel : traffic.primary};
  if (traffic.secondary != nullptr) names.emplace_back(traffic.secondary);
  return names;
}

/// Hands a value to the caller of the operation.
template <class Out, class Value>
int give(const char* operation, Out* out, Value&& value) {
  if (out == nullptr) {
    Logger::log(Logger::LEVEL_ERROR, "%s:: Parameter is null.", operation);
    return kNullParameter;
  }
  *out = std::forward<Value>(value);
  return kOk;
}

/// Puts a new state in the place of an old one, whole or, when there is no memory for it, not at all. No thread forks
/// meanwhile, so a child has one of them whole, too.
template <class State>
void replace(State& state, std::remove_cv_t<State>&& next) {
  static_assert(std::is_nothrow_swappable_v<State>);
  const zel::ProcessLock lock(zel::processMutex());
  std::swap(state, next);
}

/// Reads the daemon's answer into a cached record. Members that the answer does not have keep their values.
template <class Record>
int fetch(SysMgrClient& client, int (SysMgrClient::*query)(Record&), Record& cached) {
  Record next = cached;
  const int result = (client.*query)(next);
  if (result >= 0) replace(cached, std::move(next));
  return result;
}

void logReceived(const char* notification) {
  Logger::log(Logger::LEVEL_PROGRESS, "%s - received notification", notification);
}

/// Checks a step of the start-up, and logs its success.
int step(const zel::CodeLocation& here, int result, const char* done) {
  if (const int failure = checked(here, result)) return failure;
  Logger::log(Logger::LEVEL_PROGRESS, "SystemDefaultCfg %s", done);
  return kOk;
}

}  // namespace

SystemDefaultCfg& SystemDefaultCfg::getInstance() {
  static zel::Singleton<SystemDefaultCfg> singleton;
  return singleton.get(make);
}

SystemDefaultCfg* SystemDefaultCfg::make() {
  std::unique_ptr<SystemDefaultCfg> made(new SystemDefaultCfg);
  // Not destroyed, since another thread may be using it: its sockets are closed by the handler of their context.
  zel::atExit([](void*) noexcept { Logger::log(Logger::LEVEL_LIFECYCLE, "SystemDefaultCfg singleton destroyed"); });
  return made.release();
}

SystemDefaultCfg::SystemDefaultCfg() {
  Logger::log(Logger::LEVEL_LIFECYCLE, "SystemDefaultCfg singleton being created ...");
  init();
  constructed_ = true;
  Logger::log(Logger::LEVEL_LIFECYCLE, "SystemDefaultCfg singleton created");
}

SystemDefaultCfg::~SystemDefaultCfg() = default;

int SystemDefaultCfg::init() {
  initializer = getpid();
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  if (const int failure = step(ZEL_HERE, client_.init(context), "zmq context initialized")) return failure;
  const int waited = takeOffWaiting();
  if (waited > 0) {
    if (const int failure = checked(ZEL_HERE, renewConnection())) return failure;
  }
  if (const int failure = fetchAll(ZEL_HERE.signature)) return failure;
  // A notification that has come since then may be older than what was fetched, and may be the first of many.
  if (waited > 0 || !isFollowing() || !takeOne()) return kOk;
  if (const int failure = checked(ZEL_HERE, renewConnection())) return failure;
  return fetchAll(ZEL_HERE.signature);
}

/// @param init  the signature that the log lines show
int SystemDefaultCfg::fetchAll(const char* init) {
  const int stored = converted([this] { return fetch(client_, &SysMgrClient::getStoredParameters, stored_); });
  if (const int failure = step({init, __LINE__}, stored, "stored parameters retrieved")) return failure;
  const int dynamic = converted([this] { return fetch(client_, &SysMgrClient::getDynamicParameters, dynamic_); });
  if (const int failure = step({init, __LINE__}, dynamic, "dynamic parameters retrieved")) return failure;
  const int model = converted([this] { return fetch(client_, &SysMgrClient::getBoardModel, boardModel_); });
  if (const int failure = step({init, __LINE__}, model, "board model retrieved")) return failure;

  Logger::log(Logger::LEVEL_LIFECYCLE, "SystemDefaultCfg INITIALIZATION SUCCESS");
  initialized_ = true;

  std::list<WhiteListEntry> fetched;  // the client appends
  const int whitelist = converted([&] { return client_.getMcastWhitelist(fetched); });
  if (const int failure = step({init, __LINE__}, whitelist, "whitelist entry retrieved")) return failure;
  replace(whitelist_, std::move(fetched));
  return kOk;
}

/// Handles the notifications that have arrived: they are older than the documents that are fetched next. If there were
/// any, the publisher's queue and the connection may hold more, and a full queue has lost the newest: the caller then
/// makes a new connection, which holds none.
/// @return how many had arrived
int SystemDefaultCfg::takeOffWaiting() {
  if (!isFollowing()) return 0;
  constexpr int kQueue = 1000;  // what waits here at most
  int taken = 0;
  while (taken < kQueue && takeOne()) ++taken;
  // Where the whole process was stopped, libzmq's thread was, too: it gets a moment to hand over what has come
  // meanwhile.
  for (int moment = 0; taken == 0 && moment < 10; ++moment) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    taken += takeOne();
  }
  return taken;
}

/// @return whether a notification waited
bool SystemDefaultCfg::takeOne() {
  try {
    return processEvent({}) != 0;
  } catch (const Json::Exception& wrongType) {
    Logger::log(Logger::LEVEL_PROGRESS, "SystemDefaultCfg dropped a notification: %s", wrongType.what());
    return true;
  }
}

/// Fetches. While the cache is constructed, an answer with a value that does not convert is a failed fetch, since the
/// construction has to succeed.
template <class Fetch>
int SystemDefaultCfg::converted(Fetch fetch) {
  if (constructed_) return fetch();
  try {
    return fetch();
  } catch (const Json::Exception&) {
    return zel::status::kBadAnswer;
  }
}

bool SystemDefaultCfg::isInitialized() const { return initialized_; }

/// A forked child does not follow before it calls `initSubscribers` itself: the subscriptions are its parent's.
bool SystemDefaultCfg::isFollowing() const { return subscribersInitialized_ && subscriber == getpid(); }

int SystemDefaultCfg::initSubscribers(PollFds& pollFds) {
  if (!isFollowing()) {
    if (const int failure = SysmgrSubscriber::init(ZmqUtils::getInstance().getContext())) return failure;
    if (const int failure = subscribeAll()) return failure;
    subscribersInitialized_ = true;
    subscriber = getpid();
  }
  return getPollItems(pollFds);
}

int SystemDefaultCfg::processEvent(const zmq_pollitem_t& item) { return SysmgrSubscriber::processEvent(item); }

SysMgrClient& SystemDefaultCfg::getClientReference() { return client_; }

// NOLINTNEXTLINE(performance-unnecessary-value-param): part of the binary interface
int SystemDefaultCfg::setModuleState(std::string name, unsigned char error, unsigned char warn) {
  return client_.setModuleState(name, error != 0, warn != 0);
}

// Stored parameters

int SystemDefaultCfg::getRtspTcpPort(unsigned int* port) const { return give(__func__, port, stored_.rtspTcpPort); }

int SystemDefaultCfg::getAdvertisementTcpPort(unsigned int* port) const {
  return give(__func__, port, stored_.advertTcpPort);
}

int SystemDefaultCfg::getAdvertisementBoardName(std::string* name) const {
  const std::string mac = dynamic_.ethBasics.empty() ? "" : dynamic_.ethBasics.front().mac;
  return give(__func__, name, stored_.advertBoardNamePrefix + mac);
}

int SystemDefaultCfg::getAdvertisementIfaceIndex(unsigned int* index) const {
  const EthBasicInfo* const interface = findInterface(stored_.advertBoardNamePrefix);
  return give(__func__, index, interface == nullptr ? static_cast<unsigned int>(-1) : interface->index);
}

int SystemDefaultCfg::getCfgFilePath(std::string* path) const { return give(__func__, path, stored_.cfgFilePath); }

int SystemDefaultCfg::getClockOffsetFromMasterThreshold(float& threshold) const {
  threshold = static_cast<float>(stored_.offsetFromMasterThreshold);
  return kOk;
}

bool SystemDefaultCfg::isRedundancyEnable() const { return stored_.redundancyEnable; }

bool SystemDefaultCfg::isRedundancyDualLinkEnable() const {
  return stored_.redundancyEnable && hasRedundancy(boardModel_, Redundancy::kDualLink);
}

bool SystemDefaultCfg::isRedundancySinglePortEnable() const {
  return stored_.redundancyEnable && hasRedundancy(boardModel_, Redundancy::kSinglePort);
}

bool SystemDefaultCfg::isWalkaboutEnable() const { return stored_.walkaboutEnable; }
bool SystemDefaultCfg::isSapEnable() const { return stored_.sapEnable; }
bool SystemDefaultCfg::isSlpEnable() const { return stored_.slpEnable; }
bool SystemDefaultCfg::isAutosaveEnabled() const { return stored_.cfgAutosaveEnable; }
bool SystemDefaultCfg::pauseStreamsIfPtpIsInFailure() const { return stored_.pauseStreamsPtpFail; }
unsigned short SystemDefaultCfg::getPrimaryVlanTag() const { return stored_.primaryVlanId; }
unsigned short SystemDefaultCfg::getSecondaryVlanTag() const { return stored_.secondaryVlanId; }

int SystemDefaultCfg::getVideoTimingParameters(VideoTimingParameters& out) const {
  out = stored_.videoTiming;
  return kOk;
}

unsigned int SystemDefaultCfg::getTdmChannelsPerLine() const { return stored_.tdmChannelsPerLine; }
NmosParameters SystemDefaultCfg::getNmosParameters() const { return stored_.nmos; }

std::list<WhiteListEntry>& SystemDefaultCfg::getMulticastWhiteList() { return whitelist_; }
BoardModel SystemDefaultCfg::getBoardModel() const { return boardModel_; }

// Interfaces

const EthBasicInfo* SystemDefaultCfg::findInterface(const std::string& name) const {
  const auto found = std::find_if(dynamic_.ethBasics.begin(), dynamic_.ethBasics.end(),
                                  [&name](const EthBasicInfo& interface) { return interface.name == name; });
  return found == dynamic_.ethBasics.end() ? nullptr : &*found;
}

int SystemDefaultCfg::refreshUnlessFollowing(const zel::CodeLocation& here) {
  // A child that has not called `init` cannot use its parent's client: it has what the parent held at the fork.
  const bool isInherited = subscribersInitialized_ && initializer != getpid();
  if (isFollowing() || isInherited) return kOk;
  return checked(here, fetch(client_, &SysMgrClient::getDynamicParameters, dynamic_));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): part of the binary interface
int SystemDefaultCfg::getEthDynamicBasicInfo(std::string name, EthBasicInfo& info) {
  if (const int failure = refreshUnlessFollowing(ZEL_HERE)) return failure;
  const EthBasicInfo* const interface = findInterface(name);
  if (interface == nullptr) {
    Logger::log(Logger::LEVEL_ERROR, "%s - interface %s not found", __func__, name.c_str());
    return kInterfaceNotFound;
  }
  info = *interface;
  return kOk;
}

int SystemDefaultCfg::getEthDynamicBasicInfo(std::list<EthBasicInfo>& list) {
  if (const int failure = refreshUnlessFollowing(ZEL_HERE)) return failure;
  list = dynamic_.ethBasics;
  return kOk;
}

bool SystemDefaultCfg::isLocalBoardIpAddr(IpAddress address) const {
  return std::any_of(dynamic_.ethBasics.begin(), dynamic_.ethBasics.end(),
                     [&address](const EthBasicInfo& interface) { return interface.ip == address.getAddress(); });
}

int SystemDefaultCfg::getRtspIPv4Address(IpAddress& address) const {
  const EthBasicInfo* const interface = findInterface(stored_.rtspEthPort);
  address.setAddress(interface == nullptr ? 0 : interface->ip);
  return kOk;
}

int SystemDefaultCfg::getTrafficInterfacesIPv4Address(std::vector<IpAddress>& addresses) const {
  addresses.clear();
  for (const std::string& name : trafficInterfaces(boardModel_, stored_.redundancyEnable)) {
    if (const EthBasicInfo* const interface = findInterface(name)) addresses.emplace_back(interface->ip);
  }
  if (!addresses.empty()) return kOk;
  Logger::log(Logger::LEVEL_ERROR, "%s:: Interface not found", __func__);
  return kInterfaceNotFound;
}

// Notifications

int SystemDefaultCfg::notifyStoredParametersUpdate(SysParameters& parameters) {
  logReceived(__func__);
  SysParameters next = parameters;
  next.boardModel = stored_.boardModel;
  next.boardModel.setModel(parameters.boardModel.model);
  replace(stored_, std::move(next));
  return kOk;
}

int SystemDefaultCfg::notifyDynamicInfoUpdate(SysParametersDynamic& parameters) {
  logReceived(__func__);
  replace(dynamic_, SysParametersDynamic(parameters));
  return kOk;
}

int SystemDefaultCfg::notifyRebootRequest() {
  Logger::log(Logger::LEVEL_PROGRESS, "%s - received notification - ignoring it", __func__);
  return kOk;
}

int SystemDefaultCfg::notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) {
  logReceived(__func__);
  replace(whitelist_, std::list<WhiteListEntry>(entries));
  return kOk;
}
