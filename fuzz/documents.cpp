// The documents of the wire: the strict reader, then every record behind it. What a record reads, writes and reads
// again is the same both times, and nothing but JsonCpp's own exception leaves a record.

#include <json/value.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "common/error_aux_msg.h"
#include "common/eth_basic_info.h"
#include "common/logger.h"
#include "common/shared/wire_json.h"
#include "common/status.h"
#include "common/video_format.h"
#include "types/sysmgr_types.h"

namespace {

template <class Record>
void readWriteRead(const Json::Value& document) {
  Json::Value given = document;
  Record first;
  try {
    first.Deserialize(given);
  } catch (const Json::Exception&) {
    return;  // a value of a type that does not convert
  }
  Json::Value written;
  first.Serialize(written);

  Json::Value again = written;
  Record second;
  second.Deserialize(again);
  Json::Value rewritten;
  second.Serialize(rewritten);
  if (written != rewritten) std::abort();

  // A document that comes again, and again, changes nothing more.
  Json::Value settled;
  for (Json::Value* const state : {&settled, &rewritten}) {
    given = document;
    first.Deserialize(given);
    *state = Json::Value();
    first.Serialize(*state);
  }
  if (settled != rewritten) std::abort();
}

void readEveryRecord(const Json::Value& document) {
  readWriteRead<Vlan>(document);
  readWriteRead<EthMode>(document);
  readWriteRead<FanSpeed>(document);
  readWriteRead<SystemTemperature>(document);
  readWriteRead<SystemError>(document);
  readWriteRead<BitstreamType>(document);
  readWriteRead<VideoTimingParameters>(document);
  readWriteRead<SfpInfo>(document);
  readWriteRead<BoardModel>(document);
  readWriteRead<EthIpV4Cfg>(document);
  readWriteRead<NmosParameters>(document);
  readWriteRead<SysParameters>(document);
  readWriteRead<SysParametersDynamic>(document);
  readWriteRead<WhiteListEntry>(document);
  readWriteRead<WhiteListDb>(document);
  readWriteRead<EthBasicInfo>(document);
  readWriteRead<VideoFormat>(document);
  readWriteRead<SystemBasicInfo>(document);
  readWriteRead<NetworkStackStatus>(document);
}

/// Reads what of the document a record understands.
template <class Record>
Record readInto(const Json::Value& document) {
  Json::Value given = document;
  Record record;
  try {
    record.Deserialize(given);
  } catch (const Json::Exception&) {
    // What was read before stays read.
  }
  return record;
}

/// The delta, the dump and the judgements take whatever a document left in a record.
void judge(const Json::Value& document) {
  SysParameters stored = readInto<SysParameters>(document);
  const auto model = readInto<BoardModel>(document);
  Json::Value delta;
  stored.SerializeDelta(delta);
  stored.nmos.SerializeDelta(delta);
  stored.dumpParameter(model);

  for (const EthIpV4Cfg& cfg : stored.ethIPv4Cfg) {
    const int result = cfg.validate();
    if (result != 0 && result != zel::status::kInvalidAddress) std::abort();
    if (cfg != cfg || cfg < cfg) std::abort();  // NOLINT(misc-redundant-expression)
  }
  ErrorAuxMsg::getInstance()->clear();

  if (model.model == BoardModelType::NIMBRA_AES67) return;  // its defaults are those of the host
  const bool same = stored.isEthIPv4ConfigDefault(model);
  const std::size_t count = stored.ethIPv4Cfg.size();
  stored.setEthIpv4DefaultConfig(model);
  if (!stored.isEthIPv4ConfigDefault(model) || (same && stored.ethIPv4Cfg.size() != count)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setLevel(Logger::LEVEL_CONFIG);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zel::WireJsonReader reader;
  Json::Value document;
  if (!reader.read({reinterpret_cast<const char*>(data), size}, document).empty()) {
    if (!document.isNull()) std::abort();  // a refused text leaves the value alone
    return 0;
  }
  // A value that held another document before ends up the same, and so does one that holds this very one.
  static Json::Value kept;
  for (int i = 0; i < 2; ++i) {
    if (!reader.read({reinterpret_cast<const char*>(data), size}, kept).empty() || kept != document) std::abort();
  }

  // What was read can be written, and reads back as the same.
  std::string text;
  Json::Value back;
  if (zel::writeWireJson(document, text).empty() && (!reader.read(text, back).empty() || back != document))
    std::abort();

  readEveryRecord(document);
  judge(document);
  return 0;
}
