#!/usr/bin/env python3
"""Plants faults in the example daemon: plant_faults.py DAEMON.cpp FAULTY.cpp

The faulty daemon has all of them, and the environment variable PLANTED_FAULT names the one that is active."""

import pathlib
import sys

# The name of a fault, a piece of the example's source, and what stands in its place.
FAULTS = [
    ("keeps-half", "state_ = before;", 'if (!planted("keeps-half")) state_ = before;'),
    ("publishes-refused", "published.clear();",
     'published.clear();\n      if (planted("publishes-refused")) published.emplace_back(1000, stored());'),
    ("identify-unpublished", "judge(\"identify-enable\", body[\"identify-enable\"], settings_[\"cfg\"][\"identify-enable\"]);",
     'judge("identify-enable", body["identify-enable"], settings_["cfg"]["identify-enable"]);\n'
     '        state_["stored"]["cfg"]["identify-enable"] = body["identify-enable"];\n'
     '        if (planted("identify-unpublished")) break;'),
    ("wraps-stored", "case 2: setKeys(body), published.emplace_back(1000, stored()); break;",
     'case 2:\n        setKeys(body);\n        published.emplace_back(1000, stored());\n'
     '        if (planted("wraps-stored")) published.back().second = wrapped(stored());\n        break;'),
    ("publishes-before", "run(std::stoll(id), frames[1], answer, published);",
     "run(std::stoll(id), frames[1], answer, published);\n"
     '      if (planted("publishes-before")) publishOld(before, published);'),
    ("replaces-block", "demandMembers(body[key], key, settings_[block]);",
     'demandMembers(body[key], key, settings_[block]);\n        if (planted("replaces-block")) resetBlock(block);'),
    ("takes-fractions", "const bool isWhole =", 'const bool isWhole = planted("takes-fractions") ? value.isNumeric() :'),
    ("lower-case-mode", "document[\"ethipv4\"].append(interface);",
     'document["ethipv4"].append(interface);\n'
     '    if (planted("lower-case-mode")) document["ethipv4"][0]["mode"] = "dhcp";'),
    ("lacks-serial-number", "Value document = state_[\"stored\"];",
     'Value document = state_["stored"];\n    if (planted("lacks-serial-number")) document.removeMember("serial-number");'),
    ("text-status", "answer[\"status\"] = refusal.status;",
     'answer["status"] = refusal.status;\n      if (planted("text-status")) answer["status"] = "failed";'),
    ("takes-all-commands", "default: throw Refusal{-2,", 'default: if (!planted("takes-all-commands")) throw Refusal{-2,'),
    ("shortens-envelope", "frames.resize(envelope);",
     'frames.resize(envelope);\n'
     '  if (planted("shortens-envelope") && envelope > 3) frames.erase(frames.begin() + 2);'),
    ("removes-by-address", "entry[\"mask\"] == given[\"mask\"]",
     '(planted("removes-by-address") || entry["mask"] == given["mask"])'),
    ("forgets-whitelist", "if (!text.empty()) state_ = parsed(text);",
     'const Value fresh = state_;\n    if (!text.empty()) state_ = parsed(text);\n'
     '    if (planted("forgets-whitelist")) state_["whitelist"] = fresh["whitelist"];'),
    ("renumbers-on-reset", 'const Value serialNumber = state_["stored"].get("serial-number", "EX-000001");',
     'const Value serialNumber = planted("renumbers-on-reset") && state_["stored"].isMember("serial-number")\n'
     '        ? Value("EX-000002") : state_["stored"].get("serial-number", "EX-000001");'),
    ("forgets-interfaces", "if (!text.empty()) state_ = parsed(text);",
     'if (!text.empty()) state_ = parsed(text);\n'
     '    if (planted("forgets-interfaces")) state_["interfaces"] = Value(Json::objectValue);'),
    ("counts-characters", "const Value measure = isNumber ? value : Value(Json::Int64(text.size()));",
     'const std::size_t size = planted("counts-characters") ? std::mbstowcs(nullptr, text.c_str(), 0) : text.size();\n'
     '    const Value measure = isNumber ? value : Value(Json::Int64(size));'),
    ("repeats-reboot", "publish(publisher, daemon.documents(text.substr(1)));",
     '{\n    publish(publisher, daemon.documents(text.substr(1)));\n'
     '    if (planted("repeats-reboot")) publish(publisher, {{1002, Value()}});\n  }'),
    ("takes-short-addresses", "demand(inet_pton(AF_INET, text.asCString(), &address) == 1 &&",
     'if (planted("takes-short-addresses") && inet_aton(text.asCString(), &address) != 0) return ntohl(address.s_addr);\n'
     '  demand(inet_pton(AF_INET, text.asCString(), &address) == 1 &&'),
    # Not a fault: a REP socket in place of the ROUTER. It handles the envelope by itself.
    ("uses-rep", "requests(context, zmq::socket_type::router);",
     'requests(context, planted("uses-rep") ? zmq::socket_type::rep : zmq::socket_type::router);'),
    ("uses-rep", "if (envelope == 0 && frames.size() > 1", 'if (!planted("uses-rep") && envelope == 0 && frames.size() > 1'),
    ("uses-rep", "if (envelope == 0) return true;", 'if (envelope == 0 && !planted("uses-rep")) return true;'),
]

HELPERS = """
#include <cstdlib>

bool planted(const char* name) {
  const char* const wanted = std::getenv("PLANTED_FAULT");
  return wanted != nullptr && std::string(wanted) == name;
}

Json::Value wrapped(const Json::Value& document) {
  Json::Value wrapper;
  wrapper["stored"] = document;
  return wrapper;
}
"""

MEMBERS = """ private:
  void publishOld(const Value& before, std::vector<std::pair<int, Value>>& published) {
    const Value after = state_;
    state_ = before;
    for (auto& [topic, payload] : published) {
      if (topic == 1000) payload = stored();
    }
    state_ = after;
  }
  void resetBlock(const std::string& block) {
    for (const std::string& name : settings_[block].getMemberNames()) {
      state_["stored"][block][name] = settings_[block][name][1];
    }
  }
"""


def replaced(source, old, new):
    if source.count(old) != 1:
        sys.exit(f"the example has {source.count(old)} times: {old}")
    return source.replace(old, new)


source = pathlib.Path(sys.argv[1]).read_text()
for name, old, new in FAULTS:
    assert f'planted("{name}")' in new
    source = replaced(source, old, new)
source = replaced(source, "using Json::Value;\n", HELPERS + "\nusing Json::Value;\n")
source = replaced(source, "\n private:\n", "\n" + MEMBERS)
pathlib.Path(sys.argv[2]).write_text(source)
