// The program that scripts/demo runs: typed calls to the system manager, here a virtual board. The board itself prints
// each request and its answer.

#include <json/json.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "common/logger.h"
#include "config/system_default_cfg.h"

namespace {

/// Colours, on a terminal only.
struct Style {
  const bool colours = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
  std::string in(const char* code, const std::string& text) const {
    return colours ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
  }
  std::string heading(const std::string& text) const { return in("1;36", text); }
  std::string call(const std::string& text) const { return in("1", text); }
  std::string good(const std::string& text) const { return in("32", text); }
  std::string bad(const std::string& text) const { return in("31", text); }
  std::string changed(const std::string& text) const { return in("33", text); }
};
const Style style;

void print(const std::string& text) {
  std::puts(text.c_str());
  std::fflush(stdout);
}

std::string compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

/// Prints one line for each block, and marks a block that differs from the document before.
void showDocument(const SysParameters& parameters, const SysParameters* before) {
  Json::Value document;
  parameters.Serialize(document);
  Json::Value old;
  if (before != nullptr) before->Serialize(old);
  for (const std::string& name : document.getMemberNames()) {
    const bool changed = before != nullptr && document[name] != old[name];
    const std::string line = (changed ? "  * " : "    ") + name + " " + compact(document[name]);
    print(changed ? style.changed(line) : line);
  }
}

class Demo {
 public:
  explicit Demo(SysMgrClient& client) : client_(client) {}

  /// Makes a call and shows its result.
  void call(const std::string& text, const std::function<int()>& call, bool refusalExpected = false) {
    print("\n" + style.call(text));
    const int result = call();
    if (result >= 0) {
      print(style.good("  returned " + std::to_string(result)));
    } else {
      ErrorReport report;
      client_.getLastErrorMessage(report);
      print(style.bad("  returned " + std::to_string(result) + ": " + report.text));
    }
    asExpected_ = asExpected_ && (result < 0) == refusalExpected;
  }
  void refusedCall(const std::string& text, const std::function<int()>& body) { call(text, body, true); }

  bool asExpected() const { return asExpected_; }

 private:
  SysMgrClient& client_;
  bool asExpected_ = true;
};

unsigned int portOf(const SystemDefaultCfg& cache) {
  unsigned int port = 0;
  cache.getRtspTcpPort(&port);
  return port;
}

/// Runs in the other process, which is this program again, with a port as its argument.
int changePort(const char* port) {
  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  const int result = client.setRtspTcpPort(static_cast<uint32_t>(std::strtoul(port, nullptr, 10)));
  print("  process " + std::to_string(getpid()) + ": setRtspTcpPort(" + port + ") returned " + std::to_string(result));
  return result == 0 ? 0 : 1;
}

/// Follows the daemon while another process changes the port. @return the port that the cache shows in the end
unsigned int followOtherProcess(unsigned int newPort) {
  const auto show = [](const SystemDefaultCfg& cache) {
    print("  process " + std::to_string(getpid()) + ": its cache shows RTSP port " + std::to_string(portOf(cache)));
  };
  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  PollFds fds;
  cache.initSubscribers(fds);
  cache.init();  // fetches what changed before the subscription
  show(cache);

  std::string port = std::to_string(newPort);
  std::string name = "other";
  char* const arguments[] = {name.data(), port.data(), nullptr};
  pid_t other = -1;
  if (posix_spawn(&other, "/proc/self/exe", nullptr, nullptr, arguments, environ) != 0) return 0;
  while (portOf(cache) != newPort && fds.poll(5000) > 0) cache.processEvent(fds[0]);
  waitpid(other, nullptr, 0);
  show(cache);
  return portOf(cache);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2) return changePort(argv[1]);

  // The log's lines about refused calls would only repeat what this program shows.
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});

  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  Demo demo(client);

  print(style.heading("\n== Which board is it?"));
  BoardModel model;
  demo.call("getBoardModel(model)", [&] { return client.getBoardModel(model); });
  print(std::string("  ") + BoardModelType::displayName(model.model) + ", bitstream " +
        BitstreamType::toText(model.bitstream.type) + ", " + std::to_string(model.supportedVideoFormats.size()) +
        " video formats");

  print(style.heading("\n== The stored parameters before"));
  SysParameters before;
  demo.call("getStoredParameters(before)", [&] { return client.getStoredParameters(before); });
  showDocument(before, nullptr);

  print(style.heading("\n== Some changes"));
  demo.call("setRtspTcpPort(5004)", [&] { return client.setRtspTcpPort(5004); });
  demo.call("setAdvertBoardPrefixName(\"Studio 1\")", [&] { return client.setAdvertBoardPrefixName("Studio 1"); });
  demo.call("setVlanPrimaryID(100)", [&] { return client.setVlanPrimaryID(100); });
  NmosParameters nmos = before.nmos;
  nmos.slotId = 3;
  demo.call("setNmosParameters(slot 3)", [&] { return client.setNmosParameters(nmos); });
  EthIpV4Cfg config;
  config.eth = "eth2";
  config.ip = 0x0A000014;  // 10.0.0.20
  demo.call("addEthIPv4Cfg(eth2, static 10.0.0.20)", [&] { return client.addEthIPv4Cfg(config); });
  demo.call("addMcastWhitelist(239.10.0.0, 255.255.0.0, enabled)",
            [&] { return client.addMcastWhitelist("239.10.0.0", "255.255.0.0", true); });

  print(style.heading("\n== Values that the daemon refuses"));
  demo.refusedCall("setRtspTcpPort(70000)", [&] { return client.setRtspTcpPort(70000); });
  config.ip = 0xEF010101;  // 239.1.1.1
  demo.refusedCall("addEthIPv4Cfg(eth2, static 239.1.1.1)", [&] { return client.addEthIPv4Cfg(config); });
  demo.refusedCall("removeMcastWhitelist(224.0.1.129, 255.255.255.255)",
                   [&] { return client.removeMcastWhitelist("224.0.1.129", "255.255.255.255"); });

  print(style.heading("\n== The stored parameters after"));
  SysParameters after;
  demo.call("getStoredParameters(after)", [&] { return client.getStoredParameters(after); });
  showDocument(after, &before);

  print(style.heading("\n== A change by another process reaches the cache of this one"));
  const unsigned int shown = followOtherProcess(6004);

  return demo.asExpected() && after.rtspTcpPort == 5004 && shown == 6004 ? 0 : 1;
}
