// The documents of the wire: the strict reader, then every record behind it. What a record reads, writes and reads
// again is the same both times, and nothing but JsonCpp's own exception leaves a record.

#include <json/value.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "common/eth_basic_info.h"
#include "common/logger.h"
#include "common/video_format.h"
#include "common/wire_json.h"
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

/// The delta and the dump take whatever a document left in a record.
void describe(const Json::Value& document) {
  Json::Value given = document;
  SysParameters stored;
  try {
    stored.Deserialize(given);
  } catch (const Json::Exception&) {
    // What was read before stays read.
  }
  Json::Value delta;
  stored.SerializeDelta(delta);
  stored.dumpParameter(stored.boardModel);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setLevel(Logger::LEVEL_CONFIG);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zel::WireJsonReader reader;
  static zel::WireJsonWriter writer;
  Json::Value document;
  if (!reader.read({reinterpret_cast<const char*>(data), size}, document).empty()) {
    if (!document.isNull()) std::abort();  // a refused text leaves the value alone
    return 0;
  }
  // A value that held another document before ends up the same.
  static Json::Value kept;
  if (!reader.read({reinterpret_cast<const char*>(data), size}, kept).empty() || kept != document) std::abort();

  // What was read can be written, and reads back as the same.
  std::string text;
  Json::Value back;
  if (writer.write(document, text).empty() && (!reader.read(text, back).empty() || back != document)) std::abort();

  readEveryRecord(document);
  describe(document);
  return 0;
}
