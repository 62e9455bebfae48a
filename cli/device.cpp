#include <json/reader.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include "cli/command.h"
#include "cli/descriptor.h"
#include "cli/values.h"

namespace zel::ctl {

namespace {

/// A value as JSON, where it is JSON; the text itself otherwise.
Json::Value jsonOrText(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  return reader->parse(text.data(), text.data() + text.size(), &value, nullptr) ? value : Json::Value(text);
}

/// The object that FIELD=VALUE words describe; a field may be a path.
Json::Value describedObject(const Words& words) {
  Json::Value object(Json::objectValue);
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == 0 || equals == std::string::npos) throw usage("'" + word + "' is not LINE/FIELD=VALUE");
    Json::Value* place = &object;
    std::size_t begin = 0;
    for (std::size_t slash = word.find('/'); slash < equals; slash = word.find('/', begin)) {
      place = &(*place)[word.substr(begin, slash - begin)];
      begin = slash + 1;
    }
    if (!place->isObject() && !place->isNull()) throw usage("'" + word + "' goes into a value that is not an object");
    (*place)[word.substr(begin, equals - begin)] = jsonOrText(word.substr(equals + 1));
  }
  return object;
}

/// Asks on the terminal before something that cannot be taken back, unless --yes was given.
/// @throws Failure when the answer is not yes, when there is no terminal, or when the time of --wait is over
void confirm(Call& call, const std::string& question) {
  if (call.has("--yes")) return;
  if (isatty(STDIN_FILENO) != 1 || isatty(STDERR_FILENO) != 1) {
    throw usage("there is no terminal to ask on: " + question, "'--yes' does it without asking");
  }
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  const Deadline* const end = call.end();
  if (end != nullptr && !isReadable(STDIN_FILENO, *end)) {
    std::fputs("\n", stderr);
    throw timeIsOver(*end);
  }
  std::string answer;
  std::getline(std::cin, answer);
  call.beginTime();
  if (answer != "y" && answer != "yes") throw Failure(Exit::kOther, "nothing was done");
}

void act(Call& call, const char* verb, const BareOperation& operation, const char* done) {
  call.daemon().send(verb, operation);
  Json::Value document;
  document["done"] = done;
  call.output.page(document, [&] { call.output.line(std::string("The daemon has taken the request: ") + done + "."); });
}

}  // namespace

void runModule(Call& call) {
  const std::string name = call.word("name");
  Json::Value request;
  request[name]["error"] = call.has("--error");
  request[name]["warn"] = call.has("--warn");
  call.daemon().send(
      "report the module " + name,
      [](SysMgrJsonClient& client, Json::Value& body, Json::Value& reply) {
        const int result = client.setModuleState(body);
        reply = body;
        return result;
      },
      request);
  Json::Value document;
  document["module"] = request;
  call.output.page(document, [&] { call.output.leaves(request); });
}

void runIdentify(Call& call) {
  Json::Value request;
  request["identify-enable"] = parseSwitch(call.word("state"));
  call.daemon().send("switch the identification LEDs", &SysMgrJsonClient::setIdentifyLeds, request);
  call.output.document(request);
}

void runGpioGet(Call& call) {
  Json::Value request(Json::objectValue);
  for (const std::string& line : call.words("lines")) request[line] = Json::Value();
  call.output.document(unwrapped(
      queryOf("gpio"),
      call.daemon().send("read the GPIO lines", &SysMgrJsonClient::getGpioConfiguration, request, Purpose::kToRead)));
}

void runGpioSet(Call& call) {
  const Json::Value request = describedObject(call.words("changes"));
  call.daemon().send("change the GPIO lines", &SysMgrJsonClient::setGpioConfiguration, request);
  Json::Value document;
  document["set"] = request;
  call.output.page(document, [&] { call.output.leaves(request); });
}

void runReboot(Call& call) {
  confirm(call, "Restart the board now?");
  act(call, "restart the board", &SysMgrJsonClient::rebootDevice, "the board restarts");
}

void runFactoryReset(Call& call) {
  confirm(call, "Set the whole configuration back to the factory's?");
  act(call, "reset the configuration", &SysMgrJsonClient::factoryReset, "the configuration is the factory's");
}

}  // namespace zel::ctl
