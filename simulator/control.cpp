#include "simulator/control.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "simulator/judge.h"

namespace zel::sim {

namespace {

constexpr int kWaitingClients = 16;
constexpr std::size_t kPiece = 16384;  // bytes of one client that are taken before the other clients have their turn
constexpr timeval kLongestWait{10, 0};
constexpr int kPauseMs = 50;  // where no connection can be accepted
constexpr std::string_view kDone = "ok";
constexpr std::string_view kFailed = "failed";
constexpr std::string_view kNotUnderstood = "not-understood";

std::string failure(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string wrongPath(const std::string& path) {
  return "\"" + shownBytes(path) + "\" cannot be the path of a socket: it has " + std::to_string(path.size()) +
         " bytes, 1 to " + std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " are possible";
}

/// A socket of this process, closed with its scope.
class Socket {
 public:
  explicit Socket(int flags) : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {}
  ~Socket() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  bool connectTo(const sockaddr_un& address) const {
    return connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

std::string_view headOf(OrderResult::Status status) {
  switch (status) {
    case OrderResult::kDone: return kDone;
    case OrderResult::kFailed: return kFailed;
    case OrderResult::kNotUnderstood: break;
  }
  return kNotUnderstood;
}

/// A text as a piece of a line.
std::string inOneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ');
  return text;
}

std::string answerText(const OrderResult& result) {
  std::string text(headOf(result.status));
  if (result.status != OrderResult::kDone) return text + " " + inOneLine(result.error) + "\n";
  text += " " + std::to_string(result.lines.size()) + "\n";
  for (const std::string& line : result.lines) text += inOneLine(line) + "\n";
  return text;
}

}  // namespace

std::string ControlSocket::open(const std::string& path) {
  const auto address = socketAddress(path);
  if (!address) return wrongPath(path);
  if (std::string why = makeRoomForSocket(path); !why.empty()) return why;
  Socket socket(SOCK_NONBLOCK);
  // The mode of the socket becomes that of its file, so the file is never open to others.
  if (socket.get() < 0 || fchmod(socket.get(), S_IRUSR | S_IWUSR) != 0 ||
      bind(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
    return failure(path + " cannot be made");
  }
  file_.emplace(path);
  listener_ = socket.release();
  end_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (end_ < 0 || listen(listener_, kWaitingClients) != 0) return failure(path + " cannot be listened on");
  return {};
}

ControlSocket::~ControlSocket() {
  if (thread_.joinable()) {
    eventfd_write(end_, 1);
    thread_.join();
  }
  for (const Client& client : clients_) close(client.descriptor);
  for (const int descriptor : {listener_, end_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

void ControlSocket::serve(std::function<OrderResult(const std::string& line)> carryOut) {
  carryOut_ = std::move(carryOut);
  thread_ = std::thread([this] { run(); });
}

void ControlSocket::run() {
  for (;;) {
    std::vector<pollfd> items = {{end_, POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const Client& client : clients_) {
      // While an answer is not fetched no further order is taken.
      items.push_back({client.descriptor, static_cast<short>(client.answer.empty() ? POLLIN : POLLOUT), 0});
    }
    if (poll(items.data(), items.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (items[0].revents != 0) return;
    auto item = items.begin() + 2;
    for (auto client = clients_.begin(); client != clients_.end(); ++item) {
      if (item->revents == 0 || exchange(*client)) {
        ++client;
      } else {
        close(client->descriptor);
        client = clients_.erase(client);
      }
    }
    if (items[1].revents != 0) accept();
  }
}

void ControlSocket::accept() {
  const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (clients_.size() >= kMostClients) {
    const auto silent = std::min_element(clients_.begin(), clients_.end(), [](const Client& one, const Client& other) {
      return one.lastHeard < other.lastHeard;
    });
    close(silent->descriptor);
    clients_.erase(silent);
  }
  if (descriptor >= 0) {
    clients_.push_back({descriptor, "", "", std::chrono::steady_clock::now()});
  } else if (errno != EAGAIN && errno != ECONNABORTED) {
    poll(nullptr, 0, kPauseMs);  // the connection still waits, so there would be no end of trying
  }
}

/// Reads orders, carries them out and sends the answers, as far as the client lets it.
/// @return whether the connection goes on
bool ControlSocket::exchange(Client& client) {
  if (!client.answer.empty()) {
    if (!send(client)) return false;
  } else if (!receive(client)) {
    return false;
  }
  while (client.answer.empty() && client.received.find('\n') != std::string::npos) {
    answerFirstLine(client);
    if (!send(client)) return false;
  }
  if (client.received.size() <= kLongestLine) return true;
  client.answer = answerText({OrderResult::kNotUnderstood, "the line is too long", {}});
  send(client);
  return false;
}

bool ControlSocket::receive(Client& client) const {
  std::array<char, kPiece> bytes;
  const ssize_t count = recv(client.descriptor, bytes.data(), bytes.size(), 0);
  if (count <= 0) return count < 0 && (errno == EAGAIN || errno == EINTR);
  client.received.append(bytes.data(), static_cast<std::size_t>(count));
  client.lastHeard = std::chrono::steady_clock::now();
  return true;
}

/// Carries the first line out.
void ControlSocket::answerFirstLine(Client& client) const {
  const std::size_t end = client.received.find('\n');
  const std::string line = client.received.substr(0, end);
  client.received.erase(0, end + 1);
  client.answer = answerText(carryOut_(line));
}

/// Sends as much of the answer as the client takes now. @return whether the connection goes on
bool ControlSocket::send(Client& client) const {
  while (!client.answer.empty()) {
    const ssize_t count = ::send(client.descriptor, client.answer.data(), client.answer.size(), MSG_NOSIGNAL);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    client.answer.erase(0, static_cast<std::size_t>(count));
  }
  return true;
}

// --- the other side

namespace {

/// Reads the lines of an answer.
class AnswerReader {
 public:
  explicit AnswerReader(int descriptor) : descriptor_(descriptor) {}

  bool line(std::string& text) {
    std::size_t end;
    while ((end = bytes_.find('\n')) == std::string::npos) {
      std::array<char, kPiece> piece;
      const ssize_t count = recv(descriptor_, piece.data(), piece.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      if (count == 0) errno = 0;
      if (count <= 0) return false;
      bytes_.append(piece.data(), static_cast<std::size_t>(count));
    }
    text = bytes_.substr(0, end);
    bytes_.erase(0, end + 1);
    return true;
  }

 private:
  int descriptor_;
  std::string bytes_;
};

bool sendAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = send(descriptor, text.data(), text.size(), MSG_NOSIGNAL);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Reads what follows the head of an answer.
bool readAnswer(AnswerReader& reader, OrderResult& result) {
  std::string head;
  if (!reader.line(head)) return false;
  const std::string word = head.substr(0, head.find(' '));
  const std::string rest = word.size() < head.size() ? head.substr(word.size() + 1) : "";
  if (word == kFailed || word == kNotUnderstood) {
    result = {word == kFailed ? OrderResult::kFailed : OrderResult::kNotUnderstood, rest, {}};
    return true;
  }
  if (word != kDone) return false;
  for (unsigned long left = std::strtoul(rest.c_str(), nullptr, 10); left > 0; --left) {
    result.lines.emplace_back();
    if (!reader.line(result.lines.back())) return false;
  }
  return true;
}

}  // namespace

OrderResult tellAt(const std::string& path, const std::string& line) {
  const auto address = socketAddress(path);
  if (!address) return {OrderResult::kFailed, wrongPath(path), {}};
  const Socket socket(0);
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kLongestWait, sizeof kLongestWait);
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kLongestWait, sizeof kLongestWait);
  if (!socket.connectTo(*address)) {
    const char* const advice = errno == ENOENT || errno == ECONNREFUSED ? ". Does 'sysmgr-sim --control' run?" : "";
    return {OrderResult::kFailed, failure("no simulator takes orders at " + path) + advice, {}};
  }
  OrderResult result;
  AnswerReader reader(socket.get());
  if (!sendAll(socket.get(), line + "\n") || !readAnswer(reader, result)) {
    const char* const why = errno == EAGAIN ? " did not answer within 10 s" : " ended without an answer";
    return {OrderResult::kFailed, "the simulator at " + path + why, {}};
  }
  return result;
}

}  // namespace zel::sim
