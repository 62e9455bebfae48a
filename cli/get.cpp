#include "cli/command.h"
#include "cli/json_paths.h"
#include "cli/suggest.h"
#include "common/logger.h"
#include "types/sysmgr_types.h"

namespace zel::ctl {

namespace {

bool isSingle(const Json::Value& value) { return !value.isObject() && !value.isArray(); }

Json::Value asObject(const std::string& name, const Json::Value& value) {
  Json::Value object(Json::objectValue);
  object[name] = value;
  return object;
}

const Json::Value& placeOf(const CommandRow& query, const Json::Value& whole, const std::string& path) {
  if (const Json::Value* const value = valueAt(whole, path)) return *value;
  const std::string guess = didYouMean(path, pathsOf(whole));
  throw Failure(Exit::kNotFound, "there is no '" + path + "' in " + query.title,
                guess.empty() ? std::string("'sysmgrctl get ") + query.document + "' shows what is there" : guess)
      .about(path);
}

/// The values in a value, a line each, without their paths.
void printValues(Output& output, const Json::Value& value) {
  if (isSingle(value)) return output.line(cellOf(value));
  forEachLeaf(value, [&output](const std::string&, const Json::Value& leaf) { output.line(cellOf(leaf)); });
}

void printOne(Call& call, const CommandRow& query, const std::string& path, const Json::Value& value) {
  if (!call.output.isJson()) return isSingle(value) ? call.output.line(cellOf(value)) : call.output.leaves(value);
  // The output is one object: any other value, and a part of a document, is a member with its name.
  if (path.empty() && value.isObject()) return call.output.document(value);
  call.output.document(asObject(path.empty() ? query.payload : path, value));
}

}  // namespace

void runGet(Call& call) {
  const CommandRow& query = queryOf(call.word("document"));
  const Json::Value whole = call.daemon().get(query);
  const Words paths = call.has("path") ? call.words("path") : Words{""};
  std::vector<const Json::Value*> values;
  for (const std::string& path : paths) values.push_back(&placeOf(query, whole, path));

  if (call.has("--values") && !call.output.isJson()) {
    for (const Json::Value* const value : values) printValues(call.output, *value);
    return;
  }
  if (paths.size() == 1) return printOne(call, query, paths.front(), *values.front());
  Json::Value found(Json::objectValue);
  for (std::size_t i = 0; i < paths.size(); ++i) found[paths[i]] = *values[i];
  call.output.document(found);
}

void runDelta(Call& call) {
  auto stored = call.daemon().record<SysParameters>("stored");
  Json::Value delta(Json::objectValue);
  stored.SerializeDelta(delta);
  // Two members are in every delta, and the interfaces are in it also where they are the factory's.
  delta.removeMember("version");
  if (delta["videoTimingParameters"].isNull()) delta.removeMember("videoTimingParameters");
  if (stored.isEthIPv4ConfigDefault(call.daemon().record<BoardModel>("model"))) delta.removeMember("ethipv4");
  call.output.document(delta);
}

void runDump(Call& call) {
  const auto stored = call.daemon().record<SysParameters>("stored");
  const auto model = call.daemon().record<BoardModel>("model");
  Json::Value lines(Json::arrayValue);
  Logger* const logger = Logger::getInstance();
  const Logger::logDebugLevel_t level = logger->getLevel();
  logger->setLevel(Logger::LEVEL_CONFIG);
  logger->setSink([&lines](Logger::logDebugLevel_t, const std::string& text) { lines.append(text); });
  stored.dumpParameter(model);
  logger->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  logger->setLevel(level);

  call.output.page(asObject("lines", lines), [&] {
    for (const Json::Value& line : lines) call.output.line(cellOf(line));
  });
}

}  // namespace zel::ctl
