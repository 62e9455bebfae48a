#include "cli/keys.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

#include "common/ip_address.h"
#include "types/sysmgr_types.h"

namespace zel::ctl {

namespace {

const Words kOn = {"on", "true", "yes", "1"};
const Words kOff = {"off", "false", "no", "0"};

bool isAmong(const std::string& word, const Words& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

template <class Number>
Number parseNumber(const std::string& text, Number highest = std::numeric_limits<Number>::max()) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number > highest) {
    throw usage("'" + text + "' is not a number from 0 to " + std::to_string(highest));
  }
  return number;
}

Json::Value number(const std::string& text) { return parseNumber<uint32_t>(text); }
Json::Value smallNumber(const std::string& text) { return parseNumber<uint16_t>(text); }
Json::Value integer(const std::string& text) {
  return parseNumber<uint32_t>(text, static_cast<uint32_t>(std::numeric_limits<int32_t>::max()));
}
Json::Value text(const std::string& text) { return text; }
Json::Value onOrOff(const std::string& text) { return parseSwitch(text); }

/// The texts of an enumeration that `fromText` reads again; the enumerators count from 0.
template <class Record, class Enum>
Words textsOf() {
  constexpr int kMoreThanAny = 16;
  Words texts;
  for (int value = 0; value < kMoreThanAny; ++value) {
    const char* const name = Record::toText(static_cast<Enum>(value));
    if (Record::fromText(name) == static_cast<Enum>(value) && !isAmong(name, texts)) texts.emplace_back(name);
  }
  return texts;
}

Json::Value oneOf(const std::string& text, const Words& texts) {
  if (isAmong(text, texts)) return text;
  std::string all;
  for (const std::string& known : texts) all += (all.empty() ? "" : ", ") + known;
  throw usage("'" + text + "' is none of: " + all, didYouMean(text, texts));
}

Words bitstreams() {
  Words texts = textsOf<BitstreamType, BitstreamType::bitstream_t>();
  texts.emplace_back(BitstreamType::toText(BitstreamType::BITSTREAM_NONE));
  return texts;
}
Words timingModes() { return textsOf<VideoTimingParameters, VideoTimingParameters::timing_mode_t>(); }
Words switches() { return {kOn.front(), kOff.front()}; }
Words wholeBoard() { return {"all"}; }

const KeyType kText = {"text", text, nullptr};
const KeyType kSwitch = {"on|off", onOrOff, switches};
const KeyType kNumber = {"number", number, nullptr};
const KeyType kSmallNumber = {"0..65535", smallNumber, nullptr};
const KeyType kInteger = {"number", integer, nullptr};
const KeyType kBitstream = {"bitstream", [](const std::string& typed) { return oneOf(typed, bitstreams()); },
                            bitstreams};
const KeyType kTimingMode = {"mode", [](const std::string& typed) { return oneOf(typed, timingModes()); }, timingModes};
const KeyType kInterfaceOrAll = {"interface|all", text, wholeBoard};
const KeyType kInterface = {"interface", text, nullptr};
const KeyType kInterfaceConfig = {"configuration", parseInterface, nullptr};

constexpr KeyRoute kBlock = KeyRoute::kBlock;  // the table stays readable

std::string lastStep(const std::string& path) { return path.substr(path.rfind('/') + 1); }
std::string firstStep(const std::string& path) { return path.substr(0, path.find('/')); }

Json::Value typedValue(const Key& key, const std::string& text) {
  try {
    return key.type.parse(text);
  } catch (const Failure& failure) {
    throw usage(std::string(key.path) + ": " + failure.what(), failure.advice());
  }
}

}  // namespace

const std::vector<Key>& settableKeys() {
  static const std::vector<Key> kKeys = {
      {"rtsp/eth-port", "rtsp-eth-port", kInterfaceOrAll, "interface on which the RTSP server listens"},
      {"rtsp/tcp-port", "rtsp-tcp-port", kNumber, "TCP port of the RTSP server"},
      {"ember/tcp-port", "ember-tcp-port", kNumber, "TCP port of the Ember+ provider"},
      {"advert/eth-port", "advert-eth-port", kInterfaceOrAll, "interface on which the board advertises itself"},
      {"advert/tcp-port", "advert-tcp-port", kNumber, "TCP port that is advertised"},
      {"advert/board-name-prefix", "board-name-prefix", kText,
       "beginning of the advertised name; a MAC address follows"},
      {"cfg/cfg-file-path", "cfg-file-path", kText, "directory in which the daemon keeps its configuration"},
      {"cfg/autosave-enable", "cfg-autosave-enable", kSwitch, "whether the daemon saves each change by itself"},
      {"cfg/offset-from-master-threshold", "offset-from-master-threshold", kNumber,
       "offset from the PTP master above which the board counts as not synchronised"},
      {"cfg/pause-audio-streams-ptp-fails", "pause-streams-if-ptp-fails", kSwitch,
       "whether the streams pause while PTP fails"},
      {"cfg/identify-enable", "identify-enable", kSwitch, "whether the identification LEDs blink; to be set alone",
       KeyRoute::kIdentify},
      {"redundancy/enable", "redundancy-enable", kSwitch, "whether the streams are sent twice, over two networks"},
      {"walkabout/enable", "walkabout-enable", kSwitch, "whether other devices find the board through Walkabout"},
      {"sap/enable", "sap-enable", kSwitch, "whether the streams are announced with SAP"},
      {"slp/enable", "slp-enable", kSwitch, "whether other devices find the board through SLP"},
      {"tdm/channels-per-line", "tdm-ch-per-line", kNumber, "channels on one TDM line"},
      {"vlan/primary-id", "primary-vlan-id", kSmallNumber, "VLAN of the primary network"},
      {"vlan/secondary-id", "secondary-vlan-id", kSmallNumber, "VLAN of the secondary network"},
      {"vtc/image-path", "vtc-image-path", kText, "image file of the video timing controller"},
      {"bitstream/module", "bitstream-type", kBitstream, "FPGA bitstream to run", kBlock},
      {"videoTimingParameters/timing-mode", "videoTimingParameters", kTimingMode, "video timing", kBlock},
      {"videoTimingParameters/initBufDelay", "videoTimingParameters", kInteger, "initial delay of the video buffer",
       kBlock},
      {"videoTimingParameters/minWrRdPtrThresh", "videoTimingParameters", kInteger,
       "least distance of the buffer's write and read pointers", kBlock},
      {"videoTimingParameters/maxWrRdPtrThresh", "videoTimingParameters", kInteger,
       "greatest distance of the buffer's write and read pointers", kBlock},
      {"videoTimingParameters/rtpPktsPerFrame", "videoTimingParameters", kInteger, "RTP packets in a video frame",
       kBlock},
      {"nmos/enable", "nmos", kSwitch, "whether the NMOS node runs", kBlock},
      {"nmos/http-sdp-port", "nmos", kInteger, "TCP port on which SDP files are served", kBlock},
      {"nmos/node-port", "nmos", kInteger, "TCP port of the NMOS Node API", kBlock},
      {"nmos/query-port", "nmos", kInteger, "TCP port of the NMOS Query API", kBlock},
      {"nmos/registration-port", "nmos", kInteger, "TCP port of the NMOS Registration API", kBlock},
      {"nmos/slot-id", "nmos", kInteger, "the board's slot in its shelf", kBlock},
      {"nmos/shelf-id", "nmos", kInteger, "the shelf that the board is in", kBlock},
      {"nmos/node-name", "nmos", kText, "name of the NMOS node", kBlock},
      {"nmos/device-name", "nmos", kText, "name of the NMOS device", kBlock},
      {"nmos/advertisement-interface", "nmos", kInterface, "interface on which the NMOS node is advertised", kBlock},
      {"ethipv4/add", "add-eth-cfg", kInterfaceConfig,
       "adds or replaces an interface: NAME,dhcp or NAME,ADDRESS/PREFIX[,GATEWAY]"},
      {"ethipv4/remove", "rem-eth-cfg", kInterface, "removes the configuration of an interface"},
  };
  return kKeys;
}

const Key& keyOf(const std::string& path) {
  Words paths;
  for (const Key& key : settableKeys()) {
    if (path == key.path) return key;
    paths.emplace_back(key.path);
  }
  const std::string guess = didYouMean(path, paths);
  throw Failure(Exit::kNotFound, "there is no key '" + path + "' to set",
                guess.empty() ? "'sysmgrctl set --list' lists the keys" : guess);
}

namespace {

struct Assignment {
  const Key& key;
  Json::Value value;
};

/// Reads everything before anything is sent, so that a slip in the last value leaves the first ones unset.
std::vector<Assignment> assignmentsOf(const Words& keysAndValues) {
  std::vector<Assignment> assignments;
  for (std::size_t i = 0; i + 1 < keysAndValues.size(); i += 2) {
    const Key& key = keyOf(keysAndValues[i]);
    assignments.push_back({key, typedValue(key, keysAndValues[i + 1])});
    if (key.route == KeyRoute::kIdentify && keysAndValues.size() > 2) {
      throw usage(std::string(key.path) + " is a command of its own: set it alone");
    }
  }
  if (keysAndValues.size() % 2 == 0) return assignments;
  throw usage(keyOf(keysAndValues.back()).path + std::string(" has no value"),
              "sysmgrctl set KEY VALUE [KEY VALUE ...]");
}

Json::Value requestOf(Board& board, const std::vector<Assignment>& assignments) {
  Json::Value request(Json::objectValue);
  Json::Value stored;
  for (const auto& [key, value] : assignments) {
    if (key.route != KeyRoute::kBlock) {
      request[key.request] = value;
      continue;
    }
    if (stored.isNull()) stored = board.get("stored");
    if (!request.isMember(key.request)) request[key.request] = stored[firstStep(key.path)];
    request[key.request][lastStep(key.path)] = value;
  }
  return request;
}

}  // namespace

Json::Value setKeys(Board& board, const Words& keysAndValues) {
  const std::vector<Assignment> assignments = assignmentsOf(keysAndValues);
  Json::Value values(Json::objectValue);
  std::string names;
  Board::Command command = &SysMgrJsonClient::setSysMgrParameter;
  for (const auto& [key, value] : assignments) {
    values[key.path] = value;
    names += names.empty() ? "" : ", ";
    names += key.path;
    if (key.route == KeyRoute::kIdentify) command = &SysMgrJsonClient::setIdentifyLeds;
  }
  board.send("set " + names, command, requestOf(board, assignments));
  return values;
}

bool parseSwitch(const std::string& text) {
  if (isAmong(text, kOn)) return true;
  if (isAmong(text, kOff)) return false;
  throw usage("'" + text + "' is neither on nor off");
}

std::string parseAddress(const std::string& text) {
  IpAddress address;
  if (text.empty() || address.setAddress(text) < 0) {
    throw usage("'" + text + "' is no IPv4 address", "an address is four numbers from 0 to 255: 192.168.0.100");
  }
  return text;
}

std::string maskOfPrefix(const std::string& length) {
  const uint32_t bits = parseNumber<uint32_t>(length, 32);
  return IpAddress(bits == 0 ? 0 : ~uint32_t{0} << (32 - bits)).toString();
}

Json::Value parseInterface(const std::string& text) {
  Words parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  Json::Value config;
  config["eth"] = parts.front();
  if (parts.size() == 2 && (parts[1] == "dhcp" || parts[1] == "DHCP")) {
    config["mode"] = EthMode::toText(EthMode::ETH_MODE_DHCP);
    return config;
  }
  const std::size_t slash = parts.size() < 2 ? std::string::npos : parts[1].find('/');
  if (slash == std::string::npos || parts.size() > 3 || parts.front().empty()) {
    throw usage("'" + text + "' is no interface configuration", "NAME,dhcp or NAME,ADDRESS/PREFIX[,GATEWAY]");
  }
  config["mode"] = EthMode::toText(EthMode::ETH_MODE_STATIC);
  config["static"]["ip"] = parseAddress(parts[1].substr(0, slash));
  config["static"]["mask"] = maskOfPrefix(parts[1].substr(slash + 1));
  config["static"]["gw"] = parts.size() == 3 ? parseAddress(parts[2]) : IpAddress().toString();
  return config;
}

}  // namespace zel::ctl
