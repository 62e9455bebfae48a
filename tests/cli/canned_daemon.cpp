// A daemon that answers from a file, for answers that the simulator does not give: canned_daemon FILE [REQUESTS
// NOTIFICATIONS]
//
// A line of FILE is "ID TEXT": the text is the whole answer to the command. Other commands are answered with "{}". When
// a file "publish" appears in the working directory, its lines "TOPIC TEXT" are published, and the file is removed.

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>
#include <zmq.hpp>
#include <zmq_addon.hpp>

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

/// The lines of a file, each as its first word and the rest.
Lines linesOf(const char* path) {
  Lines lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::size_t blank = line.find(' ');
    lines.emplace_back(line.substr(0, blank), blank == std::string::npos ? "" : line.substr(blank + 1));
  }
  return lines;
}

void answer(zmq::socket_t& requests, const std::map<std::string, std::string>& answers) {
  std::vector<zmq::message_t> frames;
  if (!zmq::recv_multipart(requests, std::back_inserter(frames)) || frames.size() < 3) return;
  const auto found = answers.find(frames[frames.size() - 2].to_string());
  frames.pop_back();
  frames.back() = zmq::message_t(found == answers.end() ? "{}" : found->second);
  zmq::send_multipart(requests, frames);
}

void publish(zmq::socket_t& publisher) {
  const Lines lines = linesOf("publish");
  if (lines.empty()) return;
  std::remove("publish");
  for (const auto& [topic, text] : lines) {
    publisher.send(zmq::buffer(topic), zmq::send_flags::sndmore);
    publisher.send(zmq::buffer(text));
  }
}

}  // namespace

int main(int count, char** arguments) try {
  const Lines lines = linesOf(arguments[1]);
  const std::map<std::string, std::string> answers(lines.begin(), lines.end());
  zmq::context_t context;
  zmq::socket_t requests(context, zmq::socket_type::router);
  zmq::socket_t publisher(context, zmq::socket_type::pub);
  requests.bind(count > 2 ? arguments[2] : "tcp://127.0.0.1:5556");
  publisher.bind(count > 3 ? arguments[3] : "tcp://127.0.0.1:5575");
  std::puts("ready");
  std::fflush(stdout);
  while (true) {
    zmq::pollitem_t item = {requests.handle(), 0, ZMQ_POLLIN, 0};
    zmq::poll(&item, 1, std::chrono::milliseconds(10));
    if ((item.revents & ZMQ_POLLIN) != 0) answer(requests, answers);
    publish(publisher);
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "canned_daemon: %s\n", error.what());
  return 1;
}
