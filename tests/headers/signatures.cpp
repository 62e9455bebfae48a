// The parameter types of the public operations. A program may hold a pointer to an operation, so how a parameter is
// passed is part of the interface. An operation may be const in addition. Compiling this file is the test.

#include "client/sysmgr_client.h"
#include "config/system_default_cfg.h"
#include "net/eth_ip_utils.h"
#include "subscriber/sysmgr_subscriber.h"
#include "types/sysmgr_types.h"

namespace {

/// True; does not compile unless `operation` has an overload of exactly this type.
template <class Type, Type operation>
constexpr bool has = true;

using Entry = WhiteListEntry;
static_assert(has<int (Entry::*)(std::string), &Entry::setIp>);
static_assert(has<int (Entry::*)(std::string), &Entry::setMask>);
static_assert(has<int (Entry::*)(unsigned int), &Entry::setIp>);
static_assert(has<int (Entry::*)(unsigned int), &Entry::setMask>);
static_assert(has<int (Entry::*)(IpAddress&) const, &Entry::getIp>);
static_assert(has<int (Entry::*)(IpAddress&) const, &Entry::getMask>);
static_assert(has<int (Entry::*)(bool), &Entry::enable>);
using Db = WhiteListDb;
static_assert(has<bool (Db::*)(Entry::whitelist_entry_t) const, &Db::isEntryFixed>);
static_assert(has<void (Db::*)(Json::Value&) const, &Db::SerializeVariable>);

using Stored = SysParameters;
static_assert(has<void (Stored::*)(Json::Value&), &Stored::SerializeDelta>);
static_assert(has<void (Stored::*)(const BoardModel&) const, &Stored::dumpParameter>);
static_assert(has<int (Stored::*)(std::list<EthIpV4Cfg>&, const BoardModel&) const, &Stored::fillEthIPv4DefaultCfg>);
static_assert(has<int (Stored::*)(const BoardModel&), &Stored::setEthIpv4DefaultConfig>);
static_assert(has<bool (Stored::*)(const BoardModel&) const, &Stored::isEthIPv4ConfigDefault>);
static_assert(has<void (BoardModel::*)(BoardModelType::board_models_t), &BoardModel::setModel>);

using Client = SysMgrClient;
static_assert(has<int (Client::*)(zmq::context_t&), &Client::init>);
static_assert(has<int (Client::*)(std::string), &Client::setRtspEthPort>);
static_assert(has<int (Client::*)(unsigned int), &Client::setRtspTcpPort>);
static_assert(has<int (Client::*)(unsigned int), &Client::setEmberTcpPort>);
static_assert(has<int (Client::*)(std::string), &Client::setAdvertEthPort>);
static_assert(has<int (Client::*)(unsigned int), &Client::setAdvertTcpPort>);
static_assert(has<int (Client::*)(std::string), &Client::setAdvertBoardPrefixName>);
static_assert(has<int (Client::*)(std::string), &Client::setCfgStoragePath>);
static_assert(has<int (Client::*)(bool), &Client::setAutosaveSupport>);
static_assert(has<int (Client::*)(unsigned int), &Client::setCfgOfsetFromMasterThreashold>);
static_assert(has<int (Client::*)(bool), &Client::setRedundancySupport>);
static_assert(has<int (Client::*)(bool), &Client::setSapSupport>);
static_assert(has<int (Client::*)(unsigned int), &Client::setTdmChannelsPerLine>);
static_assert(has<int (Client::*)(unsigned short), &Client::setVlanPrimaryID>);
static_assert(has<int (Client::*)(unsigned short), &Client::setVlanSecondaryID>);
static_assert(has<int (Client::*)(const std::string&), &Client::setVtcImagePath>);
static_assert(has<int (Client::*)(bool), &Client::enableWalkabout>);
static_assert(has<int (Client::*)(bool), &Client::enableSlp>);
static_assert(has<int (Client::*)(bool), &Client::setPauseStreamsPtpFail>);
static_assert(has<int (Client::*)(bool), &Client::setIdentifyLeds>);
static_assert(has<int (Client::*)(EthIpV4Cfg&), &Client::addEthIPv4Cfg>);
static_assert(has<int (Client::*)(const std::string&), &Client::remEthIPv4Cfg>);
static_assert(has<int (Client::*)(const NmosParameters&), &Client::setNmosParameters>);
static_assert(has<int (Client::*)(VideoTimingParameters&), &Client::setVideoTiming>);
static_assert(has<int (Client::*)(const BitstreamType&), &Client::setBitstream>);
static_assert(has<int (Client::*)(const std::string&, bool, bool), &Client::setModuleState>);
static_assert(has<int (Client::*)(std::list<Entry>&), &Client::getMcastWhitelist>);
static_assert(has<int (Client::*)(std::string, std::string, bool), &Client::addMcastWhitelist>);
static_assert(has<int (Client::*)(std::string, std::string), &Client::removeMcastWhitelist>);
static_assert(has<int (Client::*)(std::string, std::string, bool), &Client::enableMcastWhitelist>);

using JsonClient = SysMgrJsonClient;
static_assert(has<int (JsonClient::*)(unsigned int, std::string&), &JsonClient::getCommandDescription>);
static_assert(has<int (JsonClient::*)(Json::Value&, Json::Value&), &JsonClient::setSysMgrParameter>);
static_assert(has<int (JsonClient::*)(Json::Value&), &JsonClient::setModuleState>);

using Subscriber = SysmgrSubscriber;
static_assert(has<int (Subscriber::*)(std::string&, Json::Value&), &Subscriber::processNotification>);
static_assert(has<int (Subscriber::*)(std::list<Entry>&), &Subscriber::notifyMcastWhitelistUpdate>);

using Cache = SystemDefaultCfg;
static_assert(has<int (Cache::*)(std::string, unsigned char, unsigned char), &Cache::setModuleState>);
static_assert(has<int (Cache::*)(unsigned int*) const, &Cache::getRtspTcpPort>);
static_assert(has<int (Cache::*)(std::string*) const, &Cache::getCfgFilePath>);
static_assert(has<int (Cache::*)(float&) const, &Cache::getClockOffsetFromMasterThreshold>);
static_assert(has<std::list<Entry>& (Cache::*)(), &Cache::getMulticastWhiteList>);
static_assert(has<int (Cache::*)(std::string, EthBasicInfo&), &Cache::getEthDynamicBasicInfo>);
static_assert(has<int (Cache::*)(std::list<EthBasicInfo>&), &Cache::getEthDynamicBasicInfo>);
static_assert(has<bool (Cache::*)(IpAddress) const, &Cache::isLocalBoardIpAddr>);
static_assert(has<int (Cache::*)(std::vector<IpAddress>&) const, &Cache::getTrafficInterfacesIPv4Address>);

using Host = EthIpUtils;
static_assert(has<int (Host::*)(std::list<EthBasicInfo>&, bool), &Host::get_eth_info>);
static_assert(has<bool (Host::*)(EthBasicInfo&, std::string), &Host::get_eth_info>);
static_assert(has<bool (Host::*)(EthBasicInfo&), &Host::get_ip_address>);
static_assert(has<int (Host::*)(std::vector<std::string>&, const std::string&), &Host::getDhcpLeaseFilenames>);
static_assert(has<bool (Host::*)(EthBasicInfo&), &Host::set_ip_mode>);

}  // namespace
