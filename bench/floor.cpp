// The floor: the same exchange on bare libzmq and JsonCpp. Sockets, reader, writer and record are made once; a record
// is filled with `find`, and nothing is checked that the exchange does not need.

#include <arpa/inet.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <zmq.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "bench/contestant.h"

namespace zel::bench {

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "floor: %s: %s\n", what, zmq_strerror(zmq_errno()));
  std::exit(1);
}

struct Interface {
  std::string name;
  bool dhcp = false;
  std::uint32_t ip = 0, mask = 0, gateway = 0;
};

struct Stored {
  std::string ptpPath, rtspEthPort, advertEthPort, prefix, cfgFilePath, serialNumber, vtcImagePath;
  std::string nodeName, deviceName, advertisementInterface;
  std::uint32_t rtspTcpPort = 0, advertTcpPort = 0, threshold = 0, channelsPerLine = 0, emberTcpPort = 0;
  bool autosave = false, pause = false, identify = false, redundancy = false, walkabout = false, sap = false,
       slp = false, nmosEnable = false;
  std::uint16_t primaryVlan = 0, secondaryVlan = 0;
  int httpSdpPort = 0, nodePort = 0, queryPort = 0, registrationPort = 0, slotId = 0, shelfId = 0;
  int timingMode = 0, initBufDelay = 0, minThreshold = 0, maxThreshold = 0, packetsPerFrame = 0, module = 0;
  std::vector<Interface> interfaces;
};

struct Basic {
  std::string name, mac, label, partNumber;
  std::uint32_t ip = 0, index = 0;
  bool ipPresent = false, sfpPresent = false;
  float temperature = 0, rxPower = 0, txPower = 0;
  int wavelength = 0;
};

struct Range {
  std::uint32_t ip = 0, mask = 0;
  bool enabled = false;
};

const Json::Value* find(const Json::Value& object, std::string_view key) {
  return object.find(key.data(), key.data() + key.size());
}

void get(const Json::Value& object, std::string_view key, std::string& field) {
  const char *begin, *end;
  if (const Json::Value* value = find(object, key); value != nullptr && value->getString(&begin, &end)) {
    field.assign(begin, end);
  }
}
void get(const Json::Value& object, std::string_view key, std::uint32_t& field) {
  if (const Json::Value* value = find(object, key)) field = value->asUInt();
}
void get(const Json::Value& object, std::string_view key, std::uint16_t& field) {
  if (const Json::Value* value = find(object, key)) field = static_cast<std::uint16_t>(value->asUInt());
}
void get(const Json::Value& object, std::string_view key, int& field) {
  if (const Json::Value* value = find(object, key)) field = value->asInt();
}
void get(const Json::Value& object, std::string_view key, bool& field) {
  if (const Json::Value* value = find(object, key)) field = value->asBool();
}
void get(const Json::Value& object, std::string_view key, float& field) {
  if (const Json::Value* value = find(object, key)) field = value->asFloat();
}
void getAddress(const Json::Value& object, std::string_view key, std::uint32_t& field) {
  const char *begin, *end;
  in_addr address;
  const Json::Value* value = find(object, key);
  if (value != nullptr && value->getString(&begin, &end) && inet_pton(AF_INET, begin, &address) == 1) {
    field = ntohl(address.s_addr);
  }
}
/// The position of the text among the names.
void getName(const Json::Value& object, std::string_view key, std::initializer_list<std::string_view> names,
             int& field) {
  const char *begin, *end;
  const Json::Value* value = find(object, key);
  if (value == nullptr || !value->getString(&begin, &end)) return;
  const std::string_view text(begin, static_cast<std::size_t>(end - begin));
  int position = 0;
  for (const std::string_view name : names) {
    if (text == name) field = position;
    ++position;
  }
}

void fill(const Json::Value& entry, Interface& record) {
  get(entry, "eth", record.name);
  int mode = 0;
  getName(entry, "mode", {"static", "DHCP"}, mode);
  record.dhcp = mode == 1;
  if (const Json::Value* addresses = find(entry, "static")) {
    getAddress(*addresses, "gw", record.gateway);
    getAddress(*addresses, "ip", record.ip);
    getAddress(*addresses, "mask", record.mask);
  }
}

void fill(const Json::Value& stored, Stored& record) {
  if (const Json::Value* ptp = find(stored, "ptp")) get(*ptp, "ptp-path", record.ptpPath);
  if (const Json::Value* rtsp = find(stored, "rtsp")) {
    get(*rtsp, "eth-port", record.rtspEthPort);
    get(*rtsp, "tcp-port", record.rtspTcpPort);
  }
  if (const Json::Value* advert = find(stored, "advert")) {
    get(*advert, "eth-port", record.advertEthPort);
    get(*advert, "tcp-port", record.advertTcpPort);
    get(*advert, "board-name-prefix", record.prefix);
  }
  if (const Json::Value* cfg = find(stored, "cfg")) {
    get(*cfg, "cfg-file-path", record.cfgFilePath);
    get(*cfg, "offset-from-master-threshold", record.threshold);
    get(*cfg, "pause-audio-streams-ptp-fails", record.pause);
    get(*cfg, "autosave-enable", record.autosave);
    get(*cfg, "identify-enable", record.identify);
  }
  if (const Json::Value* bitstream = find(stored, "bitstream")) {
    getName(*bitstream, "module", {"SDI-TR04", "SDI-ST2110", "HDMI-ST2110", "SDI-BIDIR-ST2110"}, record.module);
  }
  if (const Json::Value* redundancy = find(stored, "redundancy")) get(*redundancy, "enable", record.redundancy);
  if (const Json::Value* walkabout = find(stored, "walkabout")) get(*walkabout, "enable", record.walkabout);
  if (const Json::Value* sap = find(stored, "sap")) get(*sap, "enable", record.sap);
  if (const Json::Value* slp = find(stored, "slp")) get(*slp, "enable", record.slp);
  if (const Json::Value* vlan = find(stored, "vlan")) {
    get(*vlan, "primary-id", record.primaryVlan);
    get(*vlan, "secondary-id", record.secondaryVlan);
  }
  if (const Json::Value* interfaces = find(stored, "ethipv4")) {
    record.interfaces.resize(interfaces->size());
    auto next = record.interfaces.begin();
    for (const Json::Value& entry : *interfaces) fill(entry, *next++);
  }
  if (const Json::Value* tdm = find(stored, "tdm")) get(*tdm, "channels-per-line", record.channelsPerLine);
  if (const Json::Value* vtc = find(stored, "vtc")) get(*vtc, "image-path", record.vtcImagePath);
  get(stored, "serial-number", record.serialNumber);
  if (const Json::Value* nmos = find(stored, "nmos")) {
    get(*nmos, "enable", record.nmosEnable);
    get(*nmos, "http-sdp-port", record.httpSdpPort);
    get(*nmos, "node-port", record.nodePort);
    get(*nmos, "query-port", record.queryPort);
    get(*nmos, "registration-port", record.registrationPort);
    get(*nmos, "node-name", record.nodeName);
    get(*nmos, "device-name", record.deviceName);
    get(*nmos, "advertisement-interface", record.advertisementInterface);
    get(*nmos, "slot-id", record.slotId);
    get(*nmos, "shelf-id", record.shelfId);
  }
  if (const Json::Value* timing = find(stored, "videoTimingParameters")) {
    getName(*timing, "timing-mode", {"unset", "frame_sync", "low_latency", "2059"}, record.timingMode);
    get(*timing, "initBufDelay", record.initBufDelay);
    get(*timing, "minWrRdPtrThresh", record.minThreshold);
    get(*timing, "maxWrRdPtrThresh", record.maxThreshold);
    get(*timing, "rtpPktsPerFrame", record.packetsPerFrame);
  }
  if (const Json::Value* ember = find(stored, "ember")) get(*ember, "tcp-port", record.emberTcpPort);
}

void fill(const Json::Value& entry, Basic& record) {
  get(entry, "name", record.name);
  getAddress(entry, "ip", record.ip);
  get(entry, "mac", record.mac);
  get(entry, "ip-present", record.ipPresent);
  get(entry, "index", record.index);
  get(entry, "label", record.label);
  if (const Json::Value* sfp = find(entry, "sfp-info")) {
    get(*sfp, "present", record.sfpPresent);
    get(*sfp, "temperature", record.temperature);
    get(*sfp, "rx_power", record.rxPower);
    get(*sfp, "tx_power", record.txPower);
    get(*sfp, "wavelength", record.wavelength);
    get(*sfp, "part_number", record.partNumber);
  }
}

class Floor final : public Contestant {
 public:
  void connect() override {
    context_ = zmq_ctx_new();
    requester_ = open(ZMQ_REQ, "tcp://127.0.0.1:5556");
  }

  void set(std::uint32_t port) override {
    Json::Value body;
    body["rtsp-tcp-port"] = port;
    stream_.str({});
    writer_->write(body, &stream_);
    exchange("2", stream_.str());
  }

  void get() override {
    exchange("0", {});
    fill(*find(document_, "stored"), stored_);
  }

  // An event loop costs something: the floor waits in the call.
  void connectLoop() override { connect(); }
  void setInLoop(std::uint32_t port) override { set(port); }
  void queueInLoop(std::uint32_t firstPort, int count) override {
    for (int i = 0; i < count; ++i) set(firstPort + static_cast<std::uint32_t>(i));
  }

  void fetchAll() override {
    connect();
    get();
    exchange("1", {});
    const Json::Value& dynamic = *find(document_, "dynamic");
    const Json::Value& basics = *find(dynamic, "eth-basics");
    basics_.resize(basics.size());
    auto basic = basics_.begin();
    for (const Json::Value& entry : basics) fill(entry, *basic++);
    exchange("3", {});
    int model = 0;
    getName(*find(document_, "board-model"), "model", {"ORVEN_AES67", "TRISK_AES67", "ORVEN_AVB", "KORVA"}, model);
    exchange("16", {});
    const Json::Value& ranges = *find(document_, "white-list");
    ranges_.resize(ranges.size());
    auto range = ranges_.begin();
    for (const Json::Value& entry : ranges) {
      getAddress(entry, "ip", range->ip);
      getAddress(entry, "mask", range->mask);
      bench::get(entry, "enabled", range->enabled);
      ++range;
    }
  }

  void follow() override {
    subscriber_ = open(ZMQ_SUB, "tcp://127.0.0.1:5575");
    zmq_setsockopt(subscriber_, ZMQ_SUBSCRIBE, "1000", 4);
  }

  int absorb() override {
    zmq_pollitem_t item{subscriber_, 0, ZMQ_POLLIN, 0};
    require(zmq_poll(&item, 1, kTimeoutMs) == 1, "no notification");
    require(zmq_msg_recv(&frame_, subscriber_, 0) == 4, "the topic");
    require(zmq_msg_recv(&frame_, subscriber_, 0) >= 0, "the payload");
    read();
    fill(document_, stored_);
    return 1;
  }

  std::uint32_t cachedPort() override { return stored_.rtspTcpPort; }

  ~Floor() override {
    zmq_msg_close(&frame_);
    if (requester_ != nullptr) zmq_close(requester_);
    if (subscriber_ != nullptr) zmq_close(subscriber_);
    if (context_ != nullptr) zmq_ctx_term(context_);
  }
  Floor() { zmq_msg_init(&frame_); }

 private:
  static constexpr int kTimeoutMs = 10000;

  void* open(int type, const char* address) {
    void* socket = zmq_socket(context_, type);
    require(socket != nullptr, "socket");
    const int linger = 0;
    zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
    zmq_setsockopt(socket, ZMQ_RCVTIMEO, &kTimeoutMs, sizeof kTimeoutMs);
    require(zmq_connect(socket, address) == 0, address);
    return socket;
  }

  void exchange(std::string_view id, const std::string& body) {
    require(zmq_send(requester_, id.data(), id.size(), ZMQ_SNDMORE) >= 0, "send");
    require(zmq_send(requester_, body.data(), body.size(), 0) >= 0, "send");
    require(zmq_msg_recv(&frame_, requester_, 0) >= 0, "no answer");
    read();
    const Json::Value* status = find(document_, "status");
    require(status == nullptr || status->asInt() >= 0, "refused");
  }

  void read() {
    const char* text = static_cast<const char*>(zmq_msg_data(&frame_));
    require(reader_->parse(text, text + zmq_msg_size(&frame_), &document_, nullptr), "not JSON");
  }

  static Json::StreamWriterBuilder compact() {
    Json::StreamWriterBuilder settings;
    settings["indentation"] = "";
    return settings;
  }

  void* context_ = nullptr;
  void* requester_ = nullptr;
  void* subscriber_ = nullptr;
  zmq_msg_t frame_;
  std::unique_ptr<Json::CharReader> reader_{Json::CharReaderBuilder().newCharReader()};
  std::unique_ptr<Json::StreamWriter> writer_{compact().newStreamWriter()};
  std::ostringstream stream_;
  Json::Value document_;
  Stored stored_;
  std::vector<Basic> basics_;
  std::vector<Range> ranges_;
};

}  // namespace

Contestant& contestant() {
  static Floor floor;
  return floor;
}

}  // namespace zel::bench
