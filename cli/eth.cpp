#include "cli/advice.h"
#include "cli/command.h"
#include "cli/notices.h"
#include "cli/suggest.h"
#include "cli/values.h"
#include "common/error_aux_msg.h"
#include "types/settings.h"
#include "types/sysmgr_types.h"

namespace zel::ctl {

namespace {

const std::vector<Column> kColumns = {
    {"name", "INTERFACE"}, {"mode", "MODE"}, {"address", "ADDRESS"}, {"mask", "MASK"}, {"gateway", "GATEWAY"}};

Json::Value rowOf(const EthIpV4Cfg& config) {
  Json::Value row;
  row["name"] = config.eth;
  row["mode"] = EthMode::toText(config.mode.mode);
  if (config.mode.mode != EthMode::ETH_MODE_STATIC) return row;
  row["address"] = IpAddress(config.ip).toString();
  row["mask"] = IpAddress(config.mask).toString();
  if (config.gw != 0) row["gateway"] = IpAddress(config.gw).toString();
  return row;
}

Json::Value documentOfList(const std::list<EthIpV4Cfg>& configs) {
  Json::Value document;
  document["interfaces"] = Json::Value(Json::arrayValue);
  for (const EthIpV4Cfg& config : configs) document["interfaces"].append(rowOf(config));
  return document;
}

/// The configuration that the options of `eth add` describe.
EthIpV4Cfg describedConfig(const Call& call) {
  EthIpV4Cfg config;
  config.eth = call.word("name");
  if (call.has("--dhcp")) {
    if (call.has("--address") || call.has("--mask") || call.has("--gateway")) {
      throw usage("--dhcp goes without --address, --mask and --gateway");
    }
    config.mode.mode = EthMode::ETH_MODE_DHCP;
    return config;
  }
  if (!call.has("--address")) throw usage("either --dhcp or --address is needed", "sysmgrctl eth add --help");
  const Network network = parseNetwork(call.word("--address"), call.word("--mask"));
  config.mode.mode = EthMode::ETH_MODE_STATIC;
  config.ip = network.address.getAddress();
  config.mask = network.mask.getAddress();
  if (call.has("--gateway")) config.gw = parseAddress(call.word("--gateway")).getAddress();
  return config;
}

void change(Call& call, const std::string& what, const SettingRow& row, const Json::Value& value) {
  Json::Value request;
  request[row.key] = value;
  call.daemon().send(what, &SysMgrJsonClient::setSysMgrParameter, request);
}

}  // namespace

void runEthList(Call& call) {
  const auto stored = call.daemon().record<SysParameters>("stored");
  call.output.list(documentOfList(stored.ethIPv4Cfg), "interfaces", kColumns);
}

void runEthAdd(Call& call) {
  const EthIpV4Cfg config = describedConfig(call);
  change(call, "configure " + config.eth, settings::kAddInterface, settings::kAddInterface.toJson(config));
  call.output.list(documentOfList({config}), "interfaces", kColumns);
  for (const std::string& odd : adviceOn(config)) note(odd);
}

void runEthRemove(Call& call) {
  const std::string name = call.word("name");
  change(call, "remove the configuration of " + name, settings::kRemoveInterface, name);
  Json::Value document;
  document["removed"] = name;
  call.output.document(document);
}

void runEthDefaults(Call& call) {
  BoardModel model;
  const bool given = call.has("--model");
  if (given) {
    const auto known = BoardModelType::fromText(call.word("--model"));
    if (!known) {
      const Option& option = commandOf("eth defaults")->options.front();
      throw Failure(Exit::kNotFound, "there is no board model '" + call.word("--model") + "'",
                    didYouMean(call.word("--model"), wordsOf(option.values({}, ""))));
    }
    model.setModel(*known);
  } else {
    model = call.daemon().record<BoardModel>("model");
  }
  std::list<EthIpV4Cfg> defaults;
  {
    const NoticesOnStandardError notices;  // one model's defaults are read from this host
    SysParameters().fillEthIPv4DefaultCfg(defaults, model);
  }
  Json::Value document = documentOfList(defaults);
  document["model"] = BoardModelType::toText(model.model);
  if (!given) document["in-force"] = call.daemon().record<SysParameters>("stored").isEthIPv4ConfigDefault(model);
  call.output.page(document, [&] {
    call.output.table(document["interfaces"], kColumns);
    const std::string name = BoardModelType::displayName(model.model);
    if (!given) {
      call.output.line("");
      call.output.line("The stored configurations are " + std::string(document["in-force"].asBool() ? "" : "not ") +
                       "the factory's of the " + name + ".");
    }
  });
}

void runEthValidate(Call& call) {
  const auto stored = call.daemon().record<SysParameters>("stored");
  const std::string only = call.word("name");
  Json::Value document;
  Json::Value& list = document["interfaces"] = Json::Value(Json::arrayValue);
  Words names;
  bool allValid = true;
  for (const EthIpV4Cfg& config : stored.ethIPv4Cfg) {
    names.push_back(config.eth);
    if (!only.empty() && config.eth != only) continue;
    ErrorAuxMsg::getInstance()->clear();
    Json::Value row;
    row["name"] = config.eth;
    row["valid"] = config.validate() == 0;
    for (const std::string& message : ErrorAuxMsg::getInstance()->getMessages()) row["why"] = message;
    allValid = allValid && row["valid"].asBool();
    list.append(row);
  }
  if (!only.empty() && list.empty()) {
    throw Failure(Exit::kNotFound, "no configuration is stored for '" + only + "'", didYouMean(only, names));
  }
  call.output.list(document, "interfaces", {{"name", "INTERFACE"}, {"valid", "VALID"}, {"why", "WHY"}});
  if (!allValid) {
    throw Failure(Exit::kOther, "not every configuration can be applied", "'sysmgrctl eth add' replaces one");
  }
}

}  // namespace zel::ctl
