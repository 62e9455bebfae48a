#pragma once

#include <list>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "../client/sysmgr_client.h"
#include "../common/eth_basic_info.h"
#include "../common/export.h"
#include "../common/ip_address.h"
#include "../common/poll_fds.h"
#include "../subscriber/sysmgr_subscriber.h"
#include "../types/sysmgr_types.h"
#include "../types/whitelist.h"

namespace zel {
struct CodeLocation;
}

/// The process's view of the board's configuration: fetched from the daemon once, kept current by its notifications,
/// and read without asking the daemon again.
///
///     SystemDefaultCfg& cfg = SystemDefaultCfg::getInstance();  // fetches
///     PollFds fds;
///     cfg.initSubscribers(fds);                                 // follows from here on
///     cfg.init();                                               // closes the gap between the two
///     while (running) {
///       fds.poll(1000);
///       while (cfg.processEvent(fds[0]) != 0) continue;
///     }
///
/// Until a fetch has succeeded the getters answer with the defaults of the records. `init` may be called again at any
/// time: to try again, after `initSubscribers`, and after a pause of the poll loop or an absence of the daemon in which
/// notifications may have been lost (1000 wait, the ones behind them are dropped). The application is not told of
/// such a loss: one that has to be sure calls `init` now and then.
///
/// Two board models are there: the configured one inside the stored parameters, and the one that the daemon reports.
/// Every operation here means the reported one.
///
/// A null output pointer is logged at level 2, "%s:: Parameter is null." with the operation's name, and yields -4.
///
/// Threads: the first `getInstance` may happen on several threads at once. Everything else, reading included, belongs
/// to the thread that runs the poll loop: a notification changes the records in place, inside `processEvent`.
/// The process may end while another thread uses the cache: the object stays in memory until the process is gone. At
/// exit its sockets are closed; from there on requests fail with -100, `processEvent` returns 0 and the getters answer
/// from what the cache holds.
/// A child made by fork(2) has the records as they were, whole, whatever another thread of its parent did. The child
/// calls `ZmqUtils::resetContext` and `init`, and to follow the daemon `initSubscribers` with a poll set of its own.
class ZEL_EXPORT SystemDefaultCfg : private SysmgrSubscriber {
 public:
  /// The single instance. The first call makes it and runs `init`, which takes up to the time-out of a request when
  /// there is no daemon; it comes out not initialized then. Logs "SystemDefaultCfg singleton being created ..." and
  /// "SystemDefaultCfg singleton created" at level 5.
  ///
  /// An answer of the daemon that holds a value of a type that does not convert counts as a step of `init` that failed
  /// with -104: the cache comes out not initialized, or initialized without its whitelist.
  /// @throws zmq::error_t when no context can be made: the next call tries again.
  static SystemDefaultCfg& getInstance();

  /// Never called: at the end of the process the instance is ended, which logs "SystemDefaultCfg singleton destroyed"
  /// at level 5, and stays in memory.
  ~SystemDefaultCfg() override;
  SystemDefaultCfg(const SystemDefaultCfg&) = delete;
  SystemDefaultCfg& operator=(const SystemDefaultCfg&) = delete;

  /// Connects the client and fetches the stored parameters, the dynamic parameters, the board model and the whitelist,
  /// in this order. The first step that fails ends it and is logged at level 2; what was fetched before is kept.
  ///
  /// Does all of it again each time: the client is connected anew, the records are read over what they hold (keys that
  /// a record keeps when they are missing stay), and the whitelist is replaced when it has come and kept when not.
  ///
  /// After `initSubscribers` the notifications that wait are taken off first, so that none of them replaces what is
  /// fetched: up to 1000 as `processEvent` does. Where some waited, older ones may be on the way and newer ones lost:
  /// then the connection to the publisher is renewed, which takes some 30 ms and drops what is on the way (one line at
  /// level 6). Where the first one comes during the fetch, the connection is renewed behind it and everything is
  /// fetched once more. The subscriptions and the poll item stay. A notification that does not convert is logged at
  /// level 6 and dropped.
  ///
  /// JsonCpp's exceptions (a value that does not convert) leave this call: what was fetched before is kept.
  ///
  /// @return 0, or the negative code of the step that failed. A whitelist that does not come is reported here only: the
  ///         cache counts as initialized without it.
  int init();
  /// Whether everything but the whitelist has been fetched once.
  bool isInitialized() const;

  /// Subscribes to every notification and adds the subscription's poll item to the application's set. The cache follows
  /// the daemon from then on, as long as the application hands the item's events to `processEvent`.
  ///
  /// What changed between the last fetch and the arrival of the subscription is not seen: call `init` after this.
  /// The subscription is made once. Another call only adds its poll item, to the same set or to another one.
  ///
  /// @return 0, or the negative code of the subscriber's operation that failed: the cache does not follow then, and the
  ///         next call tries again.
  int initSubscribers(PollFds& pollFds);
  /// As `SysmgrSubscriber::processEvent`; the callbacks below run inside it.
  int processEvent(const zmq_pollitem_t& item);

  /// The cache's own client, for requests through it.
  SysMgrClient& getClientReference();
  /// As `SysMgrClient::setModuleState`; a flag that is not 0 is true.
  int setModuleState(std::string name, unsigned char error, unsigned char warn);

  /// @name Stored parameters
  /// Those that take a pointer return 0, or -4 when it is null.
  /// @{
  int getRtspTcpPort(unsigned int* port) const;
  int getAdvertisementTcpPort(unsigned int* port) const;
  /// The board-name prefix, followed by the MAC address of the first interface (12 hexadecimal digits) if there is one.
  int getAdvertisementBoardName(std::string* name) const;
  /// The index of the first interface whose name equals the board-name prefix, all ones if there is none. It is the
  /// prefix that is compared, not the advertisement interface: with the usual settings the result is all ones.
  int getAdvertisementIfaceIndex(unsigned int* index) const;
  int getCfgFilePath(std::string* path) const;
  /// @return 0
  int getClockOffsetFromMasterThreshold(float& threshold) const;
  bool isRedundancyEnable() const;
  /// Redundancy is enabled, and the board has two links for it.
  bool isRedundancyDualLinkEnable() const;
  /// Redundancy is enabled, and the board has it over one port (`ORVEN_TESSA`). Some boards have neither kind.
  bool isRedundancySinglePortEnable() const;
  bool isWalkaboutEnable() const;
  bool isSapEnable() const;
  bool isSlpEnable() const;
  bool isAutosaveEnabled() const;
  bool pauseStreamsIfPtpIsInFailure() const;
  unsigned short getPrimaryVlanTag() const;
  unsigned short getSecondaryVlanTag() const;
  /// @return 0
  int getVideoTimingParameters(VideoTimingParameters& out) const;
  unsigned int getTdmChannelsPerLine() const;
  NmosParameters getNmosParameters() const;
  /// @}

  /// The cached list itself: a notification or `init` replaces its content.
  std::list<WhiteListEntry>& getMulticastWhiteList();
  /// The model that the daemon reports.
  BoardModel getBoardModel() const;

  /// @name Interfaces
  /// Addresses in host order, the first octet in the most significant byte.
  /// @{

  /// The state of one interface. Fetches the dynamic parameters first, unless `initSubscribers` has succeeded.
  /// @param info  untouched on failure
  /// @return 0; -16 when there is no interface of that name, logged at level 2 ("%s - interface %s not found"); or the
  ///         negative code of the fetch, logged at level 2: the cache keeps what it had.
  int getEthDynamicBasicInfo(std::string name, EthBasicInfo& info);
  /// The state of all interfaces, in place of what the list held. Fetches as the form above.
  /// @return 0, or the negative code of the fetch.
  int getEthDynamicBasicInfo(std::list<EthBasicInfo>& list);
  /// Whether an interface of the board has exactly this address.
  bool isLocalBoardIpAddr(IpAddress address) const;
  /// The address of the interface on which the RTSP server listens; 0 when the board has no interface of that name, as
  /// with the setting "all".
  /// @return 0
  int getRtspIPv4Address(IpAddress& address) const;
  /// The addresses of the interfaces that carry the media streams, the primary's first, in place of what the vector
  /// held. Which interfaces these are depends on the board model, and on `ORVEN_TESSA` on redundancy; on the other
  /// models the secondary one is reported even with redundancy off.
  /// @return 0, or -16 when the board has none of them: logged at level 2 ("%s:: Interface not found").
  int getTrafficInterfacesIPv4Address(std::vector<IpAddress>& addresses) const;
  /// @}

  /// @name Notifications
  /// Each logs "%s - received notification" with its name at level 6 and returns 0.
  /// @{

  /// Replaces the stored parameters; of the board model inside them only the model is taken over, with `setModel`.
  int notifyStoredParametersUpdate(SysParameters& parameters) override;
  /// Replaces the dynamic parameters.
  int notifyDynamicInfoUpdate(SysParametersDynamic& parameters) override;
  /// Does nothing, and its line says so: "%s - received notification - ignoring it".
  int notifyRebootRequest() override;
  /// Replaces the whitelist.
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override;
  /// @}

 private:
  SystemDefaultCfg();
  static SystemDefaultCfg* make();
  int takeOffWaiting();
  int fetchAll(const char* init);
  bool takeOne();
  template <class Fetch>
  int converted(Fetch fetch);
  int refreshUnlessFollowing(const zel::CodeLocation& here);
  ZEL_HIDDEN bool isFollowing() const;
  const EthBasicInfo* findInterface(const std::string& name) const;

  SysMgrClient client_;
  SysParameters stored_;
  SysParametersDynamic dynamic_;
  BoardModel boardModel_;
  bool constructed_ = false;
  bool subscribersInitialized_ = false;
  bool initialized_ = false;
  std::list<WhiteListEntry> whitelist_;
};
