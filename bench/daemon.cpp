// The daemon that the benchmarks talk to: it keeps one stored document as text and spends as little as possible on a
// request, so that what is measured is the client's side and the wire.
//
//   zelBenchDaemon [INTERFACES]
//
// Says "ready" and runs until it is killed.

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>
#include <zmq.hpp>

namespace {

constexpr const char* kFirstPort = "50000";
constexpr std::string_view kPortKey = "\"rtsp-tcp-port\":";

std::string dotted(unsigned int high, unsigned int index, unsigned int last) {
  return std::to_string(high) + '.' + std::to_string(index / 250) + '.' + std::to_string(index % 250) + '.' +
         std::to_string(last);
}

/// The interfaces' names in the order of the stored list.
std::vector<std::string> sortedNames(unsigned int interfaces) {
  std::vector<std::string> names;
  for (unsigned int index = 0; index < interfaces; ++index) names.push_back("eth" + std::to_string(index));
  std::sort(names.begin(), names.end());
  return names;
}

Json::Value interfaceConfiguration(const std::string& name, unsigned int index) {
  Json::Value entry;
  entry["eth"] = name;
  entry["mode"] = "static";
  entry["static"]["ip"] = dotted(10, index, 1);
  entry["static"]["mask"] = "255.255.255.0";
  entry["static"]["gw"] = dotted(10, index, 254);
  return entry;
}

/// The stored parameters: 38 keys and the interfaces.
Json::Value storedParameters(unsigned int interfaces) {
  Json::Value stored;
  stored["ptp"]["ptp-path"] = "/etc/ptp/";
  stored["rtsp"]["eth-port"] = "eth1";
  stored["rtsp"]["tcp-port"] = static_cast<unsigned int>(std::atoi(kFirstPort));
  stored["advert"]["eth-port"] = "eth1";
  stored["advert"]["tcp-port"] = 80u;
  stored["advert"]["board-name-prefix"] = "Velmar ORVEN";
  stored["cfg"]["cfg-file-path"] = "/etc/aes67/";
  stored["cfg"]["autosave-enable"] = true;
  stored["cfg"]["offset-from-master-threshold"] = 30000u;
  stored["cfg"]["pause-audio-streams-ptp-fails"] = false;
  stored["cfg"]["identify-enable"] = false;
  stored["redundancy"]["enable"] = true;
  stored["walkabout"]["enable"] = true;
  stored["sap"]["enable"] = false;
  stored["slp"]["enable"] = true;
  stored["vlan"]["primary-id"] = 10;
  stored["vlan"]["secondary-id"] = 20;
  Json::Value& nmos = stored["nmos"];
  nmos["enable"] = true;
  nmos["http-sdp-port"] = 8081;
  nmos["node-port"] = 12345;
  nmos["query-port"] = 8235;
  nmos["registration-port"] = 8870;
  nmos["slot-id"] = 3;
  nmos["shelf-id"] = 2;
  nmos["node-name"] = "Velmar Board";
  nmos["node-description"] = "Velmar node";
  nmos["device-name"] = "Velmar Board";
  nmos["advertisement-interface"] = "eth0";
  Json::Value& timing = stored["videoTimingParameters"];
  timing["timing-mode"] = "low_latency";
  timing["initBufDelay"] = 4;
  timing["minWrRdPtrThresh"] = 2;
  timing["maxWrRdPtrThresh"] = 12;
  timing["rtpPktsPerFrame"] = 4320;
  stored["tdm"]["channels-per-line"] = 32u;
  stored["vtc"]["image-path"] = "/firmware/vtc_nios.bin";
  stored["bitstream"]["module"] = "SDI-ST2110";
  stored["serial-number"] = "VB-0042-1871";
  stored["ember"]["tcp-port"] = 9095u;
  unsigned int index = 0;
  for (const std::string& name : sortedNames(interfaces)) {
    stored["ethipv4"].append(interfaceConfiguration(name, index++));
  }
  return stored;
}

Json::Value dynamicParameters(unsigned int interfaces) {
  Json::Value dynamic;
  dynamic["chipid-version"] = "1.7.0";
  dynamic["chipid-name"] = "orven-video";
  dynamic["temperature"]["fpga"] = 51;
  dynamic["fan-speed"]["main"] = 4200;
  dynamic["madi-lock"] = true;
  for (unsigned int index = 0; index < interfaces; ++index) {
    Json::Value entry;
    entry["name"] = "eth" + std::to_string(index);
    entry["ip"] = dotted(10, index, 1);
    entry["mac"] = "00a0b1c2d3e4";
    entry["ip-present"] = true;
    entry["index"] = index + 1;
    entry["label"] = "";
    Json::Value& sfp = entry["sfp-info"];
    sfp["present"] = true;
    sfp["temperature"] = 38.5;
    sfp["rx_power"] = -3.25;
    sfp["tx_power"] = -2.5;
    sfp["wavelength"] = 1310;
    sfp["part_number"] = "SFP-10G-LR";
    dynamic["eth-basics"].append(entry);
  }
  return dynamic;
}

Json::Value boardModel() {
  Json::Value model;
  model["model"] = "KORVA";
  model["module"] = "SDI-ST2110";
  return model;
}

Json::Value whitelist() {
  Json::Value list;
  for (unsigned int index = 0; index < 3; ++index) {
    Json::Value entry;
    entry["ip"] = dotted(239, index, 0);
    entry["mask"] = "255.255.255.0";
    entry["enabled"] = true;
    list.append(entry);
  }
  return list;
}

std::string compact(const Json::Value& value) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  return Json::writeString(settings, value);
}

std::string answerWith(const char* member, const Json::Value& payload) {
  Json::Value answer;
  answer["status"] = 0;
  answer[member] = payload;
  return compact(answer);
}

/// The stored document as text, in which a change replaces the number alone.
class StoredText {
 public:
  explicit StoredText(unsigned int interfaces) : text_(compact(storedParameters(interfaces))) {
    at_ = text_.find(std::string("\"tcp-port\":") + kFirstPort) + std::string_view("\"tcp-port\":").size();
    length_ = std::string_view(kFirstPort).size();
  }
  /// @param request  {"rtsp-tcp-port":NUMBER}
  void change(std::string_view request) {
    const std::size_t from = request.find(kPortKey) + kPortKey.size();
    const std::size_t to = request.find_first_of(",}", from);
    text_.replace(at_, length_, request.substr(from, to - from));
    length_ = to - from;
  }
  const std::string& text() const { return text_; }
  std::string answer() const { return "{\"status\":0,\"stored\":" + text_ + '}'; }

 private:
  std::string text_;
  std::size_t at_;
  std::size_t length_;
};

constexpr std::string_view kTopic = "1000";

class Publisher {
 public:
  explicit Publisher(zmq::context_t& context) : socket_(context, zmq::socket_type::xpub) {
    socket_.set(zmq::sockopt::xpub_nodrop, true);  // a flood waits for its reader instead of losing messages
    socket_.bind("tcp://127.0.0.1:5575");
  }
  void publish(const std::string& document) {
    socket_.send(zmq::buffer(kTopic), zmq::send_flags::sndmore);
    socket_.send(zmq::buffer(document), zmq::send_flags::none);
  }
  /// Reads the subscriptions, and their ends, that have arrived.
  void takeNews() {
    zmq::message_t news;
    while (socket_.recv(news, zmq::recv_flags::dontwait)) note(news);
  }
  void waitForFollower() {
    takeNews();
    zmq::message_t news;
    while (!followed_) {
      static_cast<void>(socket_.recv(news));
      note(news);
    }
  }

 private:
  /// @param news  1 for the first subscription of a topic, 0 for the end of the last, and the topic
  void note(const zmq::message_t& news) {
    if (news.to_string_view().substr(1) == kTopic) followed_ = news.to_string_view()[0] == 1;
  }

  zmq::socket_t socket_;
  bool followed_ = false;
};

void serve(unsigned int interfaces) {
  zmq::context_t context;
  Publisher publisher(context);
  zmq::socket_t replier(context, zmq::socket_type::rep);
  replier.set(zmq::sockopt::rcvtimeo, 20);  // ms
  replier.bind("tcp://127.0.0.1:5556");

  StoredText stored(interfaces);
  const std::string dynamicAnswer = answerWith("dynamic", dynamicParameters(interfaces));
  const std::string modelAnswer = answerWith("board-model", boardModel());
  const std::string whitelistAnswer = answerWith("white-list", whitelist());
  const auto answer = [&replier](const std::string& text) { replier.send(zmq::buffer(text), zmq::send_flags::none); };

  std::puts("ready");
  std::fflush(stdout);
  for (;;) {
    zmq::message_t id;
    zmq::message_t body;
    while (!replier.recv(id))
      publisher.takeNews();  // else an ended client's subscription would pass for the next client's
    static_cast<void>(replier.recv(body));
    switch (std::atoi(id.to_string().c_str())) {
      case 0: answer(stored.answer()); break;
      case 1: answer(dynamicAnswer); break;
      case 3: answer(modelAnswer); break;
      case 16: answer(whitelistAnswer); break;
      case 2:
        stored.change(body.to_string_view());
        answer("{\"status\":0}");
        publisher.publish(stored.text());
        break;
      case 9000:  // not a command of the daemon's: publishes the document as often as the body says
        answer("{\"status\":0}");
        publisher.waitForFollower();
        for (int left = std::atoi(body.to_string().c_str()); left > 0; --left) publisher.publish(stored.text());
        break;
      default: answer("{\"error\":\"unknown command\",\"status\":-1}");
    }
  }
}

}  // namespace

int main(int argc, char** argv) try {
  serve(argc > 1 ? static_cast<unsigned int>(std::atoi(argv[1])) : 4);
} catch (const std::exception& error) {
  std::fprintf(stderr, "zelBenchDaemon: %s\n", error.what());
  return 1;
}
