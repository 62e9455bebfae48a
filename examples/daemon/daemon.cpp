// A small daemon, as a start for your own: it keeps the rules of docs/protocol.md and drives no hardware.
//
//   zel-example-daemon FILE    FILE keeps the state
//
// All that it has is one JSON value. A request works on a copy, and a refusal is an exception: so a refused request
// changes nothing. What is accepted is stored, published and answered, in this order.

#include <arpa/inet.h>
#include <json/json.h>

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>
#include <zmq.hpp>

using Json::Value;

/// The settings by their place: the key of the request, the factory value, and what is accepted: from and to (of a
/// number, or of a text's bytes), or the texts.
const char* const kSettings = R"({
  "rtsp": {"eth-port": ["rtsp-eth-port", "all", 0, 255], "tcp-port": ["rtsp-tcp-port", 8554, 1, 65535]},
  "ember": {"tcp-port": ["ember-tcp-port", 9095, 1, 65535]},
  "advert": {"eth-port": ["advert-eth-port", "all", 0, 255], "tcp-port": ["advert-tcp-port", 80, 1, 65535],
             "board-name-prefix": ["board-name-prefix", "Example", 0, 255]},
  "cfg": {"cfg-file-path": ["cfg-file-path", "/etc/aes67/", 0, 4095], "autosave-enable": ["cfg-autosave-enable", true],
          "offset-from-master-threshold": ["offset-from-master-threshold", 30000, 0, 4294967295],
          "pause-audio-streams-ptp-fails": ["pause-streams-if-ptp-fails", false], "identify-enable": ["", false]},
  "redundancy": {"enable": ["redundancy-enable", true]}, "walkabout": {"enable": ["walkabout-enable", true]},
  "sap": {"enable": ["sap-enable", false]}, "slp": {"enable": ["slp-enable", true]},
  "tdm": {"channels-per-line": ["tdm-ch-per-line", 32, 1, 256]}, "ptp": {"ptp-path": ["", "/etc/ptp/", 0, 4095]},
  "vlan": {"primary-id": ["primary-vlan-id", 10, 0, 4094], "secondary-id": ["secondary-vlan-id", 20, 0, 4094]},
  "vtc": {"image-path": ["vtc-image-path", "/firmware/vtc_nios.bin", 0, 4095]},
  "bitstream": {"module": ["", "NA", ["SDI-TR04", "SDI-ST2110", "HDMI-ST2110", "SDI-BIDIR-ST2110", "NA"]]},
  "videoTimingParameters": {
    "timing-mode": ["", "low_latency", ["frame_sync", "low_latency", "2059"]], "initBufDelay": ["", 0, 0, 2147483647],
    "minWrRdPtrThresh": ["", 0, 0, 2147483647], "maxWrRdPtrThresh": ["", 0, 0, 2147483647],
    "rtpPktsPerFrame": ["", 0, 0, 2147483647]},
  "nmos": {"enable": ["", true], "http-sdp-port": ["", 8081, 1, 65535], "node-port": ["", 12345, 1, 65535],
    "query-port": ["", 8235, 1, 65535], "registration-port": ["", 8870, 1, 65535], "slot-id": ["", 0, 0, 2147483647],
    "shelf-id": ["", 0, 0, 2147483647], "node-name": ["", "Example", 0, 255], "device-name": ["", "Example", 0, 255],
    "advertisement-interface": ["", "eth0", 0, 255], "node-description": ["", "Velmar node", ["Velmar node"]]}})";

struct Refusal {
  int status;
  std::string error;
};

void demand(bool isTrue, int status, const std::string& error) {
  if (!isTrue) throw Refusal{status, error};
}

Value parsed(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const bool isUtf8 = std::mbstowcs(nullptr, text.c_str(), 0) != static_cast<std::size_t>(-1);
  Value value;
  std::string why;
  bool isJson = false;
  try {
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    isJson = reader->parse(text.data(), text.data() + text.size(), &value, &why);
  } catch (const Json::Exception& tooDeep) {
    why = tooDeep.what();
  }
  demand(isUtf8 && isJson && value.isObject() && text.find('\0') == std::string::npos, -3,
         "the body is not a JSON object: " + why);
  return value;
}

std::string written(const Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

/// Judges a value by the row of a setting.
void judge(const std::string& name, const Value& value, const Value& row) {
  const bool isNumber = row[1].isNumeric();                                                // JsonCpp: a boolean is not
  const bool isWhole = value.type() == Json::intValue || value.type() == Json::uintValue;  // 5004.0 is not
  demand(isNumber ? isWhole : value.type() == row[1].type(), -6, name + " has the wrong type: " + written(value));
  if (value.isBool()) return;
  bool isGood = false;
  for (const Value& text : row[2].isArray() ? row[2] : Value(Json::arrayValue)) isGood = isGood || text == value;
  if (!row[2].isArray()) {
    const std::string text = isNumber ? "" : value.asString();
    const Value measure = isNumber ? value : Value(Json::Int64(text.size()));
    isGood = measure.isInt64() && measure.asInt64() >= row[2].asInt64() && measure.asInt64() <= row[3].asInt64() &&
             text.find('\0') == std::string::npos;
  }
  demand(isGood, -7, name + " is out of range: " + written(value));
}

void demandMembers(const Value& object, const std::string& what, const Value& known) {
  demand(object.isObject(), -6, what + " is not an object");
  const std::string path = what + "/";
  for (const std::string& name : object.getMemberNames())
    demand(known.isMember(name), -5, path + name + " is not known");
}

std::uint32_t addressOf(const std::string& what, const Value& text) {
  in_addr address{};
  demand(text.isString(), -6, what + " is not a text");
  demand(inet_pton(AF_INET, text.asCString(), &address) == 1 && text.asString() == text.asCString(), -27,
         what + " is not an address: " + text.asString());
  return ntohl(address.s_addr);
}

bool isMulticast(std::uint32_t address) { return address >> 28U == 14; }
bool isHosts(std::uint32_t address) {
  return address >> 24U != 0 && !isMulticast(address) && address != INADDR_LOOPBACK;
}

/// The daemon: its state, and what the commands do to it.
class Daemon {
 public:
  explicit Daemon(const std::string& file) : file_(file), settings_(parsed(kSettings)) {
    reset();
    std::ifstream stored(file);
    const std::string text{std::istreambuf_iterator<char>(stored), {}};
    if (!text.empty()) state_ = parsed(text);
  }

  /// The present document of each topic whose name begins with a prefix.
  std::vector<std::pair<int, Value>> documents(const std::string& prefix) const {
    std::vector<std::pair<int, Value>> found;
    for (auto& document : std::vector<std::pair<int, Value>>{{1000, stored()}, {1001, dynamic()}, {1004, whitelist()}})
      if (std::to_string(document.first).compare(0, prefix.size(), prefix) == 0) found.push_back(document);
    return found;
  }

  /// Carries out a request. @return the answer; `published` receives topics and payloads
  Value handle(const std::vector<std::string>& frames, std::vector<std::pair<int, Value>>& published) {
    const Value before = state_;
    Value answer(Json::objectValue);
    try {
      demand(frames.size() == 2, -3, "a request has two frames");
      const std::string& id = frames[0];
      const bool isNumber = !id.empty() && id.size() <= 10 && id.find_first_not_of("0123456789") == std::string::npos;
      demand(isNumber && std::stoll(id) <= UINT32_MAX, -3, "the command id is not a number of 32 bits");
      run(std::stoll(id), frames[1], answer, published);
      if (!published.empty()) store();
    } catch (const Refusal& refusal) {
      state_ = before;
      published.clear();
      answer["status"] = refusal.status;
      answer["error"] = refusal.error;
    }
    return answer;
  }

 private:
  void run(std::int64_t id, const std::string& text, Value& answer, std::vector<std::pair<int, Value>>& published) {
    const bool hasBody = id == 2 || id == 7 || (id >= 13 && id <= 15) || (id >= 17 && id <= 19);
    const Value body = !hasBody || (text.empty() && id == 18) ? Value(Json::objectValue) : parsed(text);
    switch (id) {
      case 0: answer["stored"] = stored(); break;
      case 1: answer["dynamic"] = dynamic(); break;
      case 2: setKeys(body), published.emplace_back(1000, stored()); break;
      case 3: answer["board-model"] = parsed(R"({"model": "Undefined", "module": "NA"})"); break;
      case 4: answer["network-stack-status"]["state"] = "running"; break;
      case 5: answer["systemInfo"]["software-version"] = "1.0"; break;
      case 6:
        reset();
        published = {{1000, stored()}, {1004, whitelist()}};
        break;
      case 7: setModules(body), published.emplace_back(1001, dynamic()); break;
      case 8: published.emplace_back(1002, Value()); break;
      case 12: answer["debug-info"]["modules"] = state_["modules"]; break;
      case 13:
      case 14:
      case 15: changeWhitelist(id, body), published.emplace_back(1004, whitelist()); break;
      case 16: answer = whitelist(); break;
      case 17: demandMembers(body, "the body", Value(Json::objectValue)); break;  // this board has no GPIO lines
      case 18:
        demand(body.empty(), -8, "there is no such GPIO line");
        answer["gpio"] = Value(Json::objectValue);
        break;
      case 19:
        demandMembers(body, "the body", parsed(R"({"identify-enable": 0})"));
        judge("identify-enable", body["identify-enable"], settings_["cfg"]["identify-enable"]);
        state_["stored"]["cfg"]["identify-enable"] = body["identify-enable"];
        published.emplace_back(1000, stored());
        break;
      default: throw Refusal{-2, "there is no command " + std::to_string(id)};
    }
  }

  // The documents are made of the state. The objects of JsonCpp are sorted by their keys, and so are these lists.
  Value stored() const {
    Value document = state_["stored"];
    document["ethipv4"] = Value(Json::arrayValue);
    for (const Value& interface : state_["interfaces"]) document["ethipv4"].append(interface);
    return document;
  }
  Value whitelist() const {
    Value document(Json::objectValue);
    document["white-list"] = Value(Json::arrayValue);
    for (Value entry : state_["whitelist"]) {
      entry.removeMember("own");
      document["white-list"].append(entry);
    }
    return document;
  }
  Value dynamic() const {
    Value document = parsed(R"({"chipid-name": "", "chipid-version": "", "madi-lock": false, "errors": [],
      "eth-basics": [{"name": "eth0", "index": 0, "ip": "0.0.0.0", "ip-present": false, "label": "", "mac": "020000000001",
        "sfp-info": {"present": false}}], "fan-speed": {"main": -1}, "temperature": {"fpga": 65535}})");
    for (const std::string& name : state_["modules"].getMemberNames()) {
      for (const char* const kind : {"error", "warn"}) {
        if (!state_["modules"][name][kind].asBool()) continue;
        Value error(Json::objectValue);
        error["code"] = kind == std::string("error") ? 1 : 2;
        error["description"] = name + ": " + kind;
        document["errors"].append(error);
      }
    }
    return document;
  }

  void reset() {
    const Value serialNumber = state_["stored"].get("serial-number", "EX-000001");
    state_ = parsed(R"({"interfaces": {"eth0": {"eth": "eth0", "mode": "DHCP"}}, "modules": {}, "whitelist":
      {"e0000181": {"ip": "224.0.1.129", "mask": "255.255.255.255", "enabled": true, "own": true}}})");
    for (const std::string& block : settings_.getMemberNames()) {
      for (const std::string& name : settings_[block].getMemberNames()) {
        state_["stored"][block][name] = settings_[block][name][1];
      }
    }
    state_["stored"]["serial-number"] = serialNumber;
  }

  void setKeys(const Value& body) {
    for (const std::string& key : body.getMemberNames()) {  // sorted: add-eth-cfg comes before rem-eth-cfg
      const std::string block = key == "bitstream-type" ? "bitstream" : key;
      if (key == "add-eth-cfg") {
        addInterface(body[key]);
      } else if (key == "rem-eth-cfg") {
        demand(body[key].isString(), -6, key + " is not a text");
        demand(state_["interfaces"].isMember(body[key].asString()), -16, "there is no such interface");
        state_["interfaces"].removeMember(body[key].asString());
      } else if (key == "bitstream-type" || key == "videoTimingParameters" || key == "nmos") {
        demandMembers(body[key], key, settings_[block]);
        for (const std::string& name : body[key].getMemberNames()) setPlace(block, name, body[key][name]);
      } else {
        setKey(key, body[key]);
      }
    }
  }
  void setPlace(const std::string& block, const std::string& name, const Value& value) {
    judge(name, value, settings_[block][name]);
    state_["stored"][block][name] = value;
  }
  void setKey(const std::string& key, const Value& value) {
    for (const std::string& block : settings_.getMemberNames()) {
      for (const std::string& name : settings_[block].getMemberNames()) {
        if (!key.empty() && settings_[block][name][0] == key) return setPlace(block, name, value);
      }
    }
    throw Refusal{-5, key + " is not known"};
  }

  void addInterface(const Value& given) {
    static const Value kRows =
        parsed(R"({"eth": ["", "", 1, 15], "mode": ["", "", ["static", "DHCP"]], "static": []})");
    static const Value kAddresses = parsed(R"({"ip": "0.0.0.0", "mask": "255.255.255.0", "gw": "0.0.0.0"})");
    demandMembers(given, "add-eth-cfg", kRows);
    Value entry(Json::objectValue);
    entry["eth"] = given.get("eth", "");
    entry["mode"] = given.get("mode", "static");
    for (const char* const name : {"eth", "mode"}) judge(name, entry[name], kRows[name]);
    if (entry["mode"] == "static") {
      const Value addresses = given.get("static", Value(Json::objectValue));
      demandMembers(addresses, "static", kAddresses);
      for (const std::string& name : kAddresses.getMemberNames()) {
        entry["static"][name] = addresses.get(name, kAddresses[name]);
      }
      const std::uint32_t gateway = addressOf("gw", entry["static"]["gw"]);
      demand(isHosts(addressOf("ip", entry["static"]["ip"])), -27, "the address cannot be an interface's");
      demand(gateway == 0 || (gateway >> 24U != 0 && !isMulticast(gateway)), -27, "the gateway cannot be one");
      demand(addressOf("mask", entry["static"]["mask"]) != 0, -27, "the mask is 0.0.0.0");
    }
    state_["interfaces"][entry["eth"].asString()] = entry;
  }

  void changeWhitelist(std::int64_t id, const Value& body) {
    demandMembers(body, "the body", whitelist());
    demand(body["white-list"].isArray(), -6, "white-list is not an array");
    demand(!body["white-list"].empty(), -7, "white-list has no entry");
    for (const Value& given : body["white-list"]) {
      demandMembers(given, "white-list", parsed(R"({"ip": 0, "mask": 0, "enabled": 0})"));
      const std::uint32_t ip = addressOf("ip", given.get("ip", ""));
      const std::uint32_t mask = addressOf("mask", given.get("mask", ""));
      const Value enabled = given.get("enabled", false);
      demand(enabled.isBool(), -6, "enabled is not a boolean");
      demand(isMulticast(ip) && mask != 0 && (~mask & (~mask + 1U)) == 0, -27, "the range is not multicast");
      char key[9];
      std::snprintf(key, sizeof key, "%08x", ip);
      Value& entry = state_["whitelist"][key];
      demand(id == 13 || (entry.isObject() && entry["mask"] == given["mask"]), -8, "there is no such entry");
      demand(!entry.isMember("own"), -9, "the entry is the system's own");
      entry = given;
      entry["enabled"] = enabled;
      if (id == 14) state_["whitelist"].removeMember(key);
    }
  }

  void setModules(const Value& body) {
    for (const std::string& name : body.getMemberNames()) {
      demand(name.find('\0') == std::string::npos, -7, "the name of a module has a NUL character");
      demandMembers(body[name], name, parsed(R"({"error": 0, "warn": 0})"));
      for (const Value& isOn : body[name]) demand(isOn.isBool(), -6, name + " has a value that is not a boolean");
      state_["modules"][name] = body[name];
    }
  }

  void store() const {
    const std::string next = file_ + ".new";
    std::ofstream file(next);
    file << written(state_);
    file.close();
    demand(file.good() && std::rename(next.c_str(), file_.c_str()) == 0, -12, "the change cannot be stored");
  }

  std::string file_;
  Value settings_;
  Value state_{Json::objectValue};
};

void send(zmq::socket_t& socket, const std::vector<std::string>& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    socket.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
  }
}

void publish(zmq::socket_t& publisher, const std::vector<std::pair<int, Value>>& notifications) {
  static_cast<void>(publisher.get(zmq::sockopt::events));  // takes the subscriptions that have arrived
  for (const auto& [topic, payload] : notifications) {
    send(publisher, {std::to_string(topic), payload.isNull() ? "" : written(payload)});
  }
}

/// Takes a message from the publisher's socket. @return whether there was one
bool heal(zmq::socket_t& publisher, const Daemon& daemon) {
  zmq::message_t message;
  if (!publisher.recv(message, zmq::recv_flags::dontwait)) return false;
  const std::string text = message.to_string();
  if (!text.empty() && text[0] == 1) publish(publisher, daemon.documents(text.substr(1)));  // 0: a client that goes
  return true;
}

/// Takes a request, carries it out, publishes and answers. @return whether there was one
bool serve(zmq::socket_t& requests, zmq::socket_t& publisher, Daemon& daemon) {
  std::vector<std::string> frames;  // the identity, the envelope up to an empty frame, the id and the body
  std::size_t envelope = 0;
  for (bool more = true; more;) {
    zmq::message_t frame;
    if (!requests.recv(frame, zmq::recv_flags::dontwait)) return false;
    more = frame.more();
    frames.push_back(frame.to_string());
    if (envelope == 0 && frames.size() > 1 && frames.back().empty()) envelope = frames.size();
  }
  if (envelope == 0) return true;  // there is nowhere to send an answer
  const auto content = frames.begin() + static_cast<std::ptrdiff_t>(envelope);
  std::vector<std::pair<int, Value>> published;
  const Value answer = daemon.handle({content, frames.end()}, published);
  publish(publisher, published);
  frames.resize(envelope);
  frames.push_back(written(answer));
  send(requests, frames);
  return true;
}

int main(int argc, char** argv) try {
  if (argc != 2 || std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    std::fprintf(stderr, "Usage: zel-example-daemon FILE\n");
    return 2;
  }
  Daemon daemon(argv[1]);
  zmq::context_t context;
  zmq::socket_t publisher(context, zmq::socket_type::xpub);
  zmq::socket_t requests(context, zmq::socket_type::router);
  requests.set(zmq::sockopt::maxmsgsize, std::int64_t{1048576});
  publisher.set(zmq::sockopt::xpub_verbose, true);  // tells of each subscription, not only of the first to a topic
  publisher.bind("tcp://127.0.0.1:5575");           // first: a client that is answered can subscribe
  requests.bind("tcp://127.0.0.1:5556");
  zmq::pollitem_t items[] = {{requests.handle(), 0, ZMQ_POLLIN, 0}, {publisher.handle(), 0, ZMQ_POLLIN, 0}};
  for (;;) {
    zmq::poll(items, 2);
    for (bool isBusy = true; isBusy;) {
      const bool isServed = serve(requests, publisher, daemon);
      isBusy = heal(publisher, daemon) || isServed;
    }
  }
} catch (const Refusal& refusal) {
  std::fprintf(stderr, "%s: %s\n", argv[1], refusal.error.c_str());
  return 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
