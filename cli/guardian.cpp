#include "cli/guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/atomic_file.h"
#include "cli/change_plan.h"
#include "cli/descriptor.h"
#include "cli/values.h"
#include "client/endpoints.h"

namespace zel::ctl {

namespace {

constexpr const char* kReady = "ready";
constexpr const char* kBusy = "busy";
constexpr const char* kDone = "done";
constexpr const char* kWords[] = {"confirm", "undo"};  // by the verdict
constexpr std::size_t kLongest = 4096;                 ///< bytes of a message

// --- the socket of the guardian

Descriptor openSocket(int flags = 0) { return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0)); }

/// The address of the guardian for the daemon at the endpoint in use. The name begins with a NUL: it is not a file.
struct Address {
  Address() {
    const std::string name = "sysmgrctl-confirm " + requestEndpoint();
    const std::size_t length = std::min(name.size(), sizeof un.sun_path - 1);
    un.sun_family = AF_UNIX;
    std::memcpy(un.sun_path + 1, name.data(), length);
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&un); }
  std::string text() const { return "@" + std::string(un.sun_path + 1, size - offsetof(sockaddr_un, sun_path) - 1); }

  sockaddr_un un{};
  socklen_t size = 0;
};

std::string receive(int socket) {
  char message[kLongest];
  const ssize_t size = read(socket, message, sizeof message);
  return size < 0 ? "" : std::string(message, static_cast<std::size_t>(size));
}

void reply(int socket, const std::string& message) {
  send(socket, message.data(), std::min(message.size(), kLongest), MSG_NOSIGNAL);
}

/// Whether the other end is this user or root.
bool mayDecide(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == 0 || peer.uid == geteuid();
}

/// Connects to the guardian. Any local process may take the name first, so the user behind it is looked at; root, who
/// may decide for every user, takes any.
/// @return whether there is one
bool connectToGuardian(const Descriptor& socket) {
  const Address address;
  if (connect(socket.number(), address.get(), address.size) != 0) return false;
  if (geteuid() == 0 || mayDecide(socket.number())) return true;
  throw Failure(Exit::kOther, "a process of another user has the name of the guardian, " + address.text(),
                "ss(8) shows which: ss -xlp | grep sysmgrctl-confirm");
}

// --- the file of the guardian

std::string stateFolder() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const bool isSet = runtime != nullptr && *runtime == '/';
  return std::string(isSet ? runtime : "/run") + "/sysmgrctl";
}

std::string stateFile() { return stateFolder() + "/pending-" + std::to_string(getpid()) + ".conf"; }

/// Opens a file and takes its lock, which lasts as long as the descriptor. A living guardian has that of its file.
/// @return without a descriptor when another process has the lock
Descriptor locked(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() >= 0 && flock(file.number(), LOCK_EX | LOCK_NB) != 0) file.reset();
  return file;
}

/// The file of a guardian that is gone; empty: none.
std::string leftFile() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(stateFolder(), error)) {
    if (locked(entry.path().string()).number() >= 0) return entry.path().string();
  }
  return "";
}

// --- the process of the guardian

/// Brings the old values back. @return whether that is over: done, or refused for good
bool undo(const Configuration& old, std::string& outcome) {
  constexpr double kSeconds = 5;
  const Deadline deadline(kSeconds);
  try {
    Daemon daemon(deadline);
    carryOut(daemon, stepsOf(differencesOf(liveConfiguration(daemon), old)));
    outcome = kDone;
    return true;
  } catch (const Failure& failure) {
    outcome = failure.what();
    const Exit status = failure.status();
    return status != Exit::kNoDaemon && status != Exit::kTimeOut && status != Exit::kBadAnswer;
  }
}

class Guardian {
 public:
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;
  ~Guardian() { close(signals_); }
  Guardian(int listener, Configuration old, double seconds)
      : listener_(listener), old_(std::move(old)), deadline_(seconds) {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&ends, signal);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    signals_ = signalfd(-1, &ends, SFD_CLOEXEC);
  }

  /// Waits for the verdict, the end of the time, or a signal, which ends the time.
  int run() {
    while (!isUndoing_ && !isConfirmed_) {
      if (!waitFor(deadline_)) isUndoing_ = true;
    }
    if (isConfirmed_) return EXIT_SUCCESS;
    return undoAll();
  }

 private:
  /// @return false when the time is over or a signal has come
  bool waitFor(const Deadline& deadline) {
    pollfd items[] = {{listener_, POLLIN, 0}, {signals_, POLLIN, 0}};
    const int ready = poll(items, 2, static_cast<int>(deadline.left().count()));
    if (items[1].revents != 0) {
      signalfd_siginfo taken{};
      return read(signals_, &taken, sizeof taken) < 0;
    }
    if (ready == 0) return false;
    if ((items[0].revents & POLLIN) != 0) serve();
    return true;
  }

  void serve() {
    const Descriptor client(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    pollfd item = {client.number(), POLLIN, 0};
    constexpr int kPatience = 5000;  // ms; on a busy machine a command sends its word long after it has connected
    if (client.number() < 0 || !mayDecide(client.number()) || poll(&item, 1, kPatience) <= 0) return;
    const std::string word = receive(client.number());
    if (word == kWords[static_cast<int>(Verdict::kConfirm)]) {
      isConfirmed_ = !isUndoing_;
      reply(client.number(), isConfirmed_ ? kDone : "it is too late: the old values are being set");
    } else if (word == kWords[static_cast<int>(Verdict::kUndo)]) {
      isUndoing_ = true;
      isOver_ = undo(old_, outcome_);
      reply(client.number(), isOver_ ? outcome_ : outcome_ + "; the guardian goes on trying");
    }
  }

  /// Goes on until the daemon takes the old values or refuses them.
  int undoAll() {
    constexpr double kHour = 3600;
    const Deadline last(kHour);
    while (!isOver_ && !last.isOver()) {
      isOver_ = undo(old_, outcome_);
      constexpr double kPause = 1;
      if (!isOver_) waitFor(Deadline(kPause));
    }
    while (waitFor(Deadline(0))) continue;  // somebody may just have asked
    if (outcome_ == kDone) return EXIT_SUCCESS;
    syslog(LOG_ERR, "the old values of a change that was not confirmed cannot be set: %s", outcome_.c_str());
    return EXIT_FAILURE;
  }

  int listener_;
  int signals_ = -1;
  Configuration old_;
  Deadline deadline_;
  bool isConfirmed_ = false;
  bool isUndoing_ = false;
  bool isOver_ = false;
  std::string outcome_;
};

/// Reads all of standard input, and sends every standard descriptor to /dev/null.
std::string takeInput() {
  std::string text = textOfFile("-");
  const int nothing = open("/dev/null", O_RDWR);
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDERR_FILENO);
  if (nothing > STDERR_FILENO) close(nothing);
  return text;
}

void answerParent(const std::string& text) {
  const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
  (void)written;  // a parent that is gone made no change
  const int nothing = open("/dev/null", O_WRONLY);
  dup2(nothing, STDOUT_FILENO);
  if (nothing > STDERR_FILENO) close(nothing);
}

/// What this process has inherited from the one that started it.
void closeInherited() {
  constexpr int kMost = 1024;
  for (int number = STDERR_FILENO + 1; number < kMost; ++number) close(number);
}

// --- the process that starts the guardian

/// @param peer  becomes standard input and output of the guardian
void spawn(const Words& words, int peer) {
  std::vector<std::string> texts = words;
  std::vector<char*> arguments;
  arguments.reserve(texts.size() + 1);
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int number : {STDIN_FILENO, STDOUT_FILENO}) posix_spawn_file_actions_adddup2(&actions, peer, number);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  const int error = posix_spawn(&child, "/proc/self/exe", &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw Failure(Exit::kOther, std::string("cannot start the guardian: ") + std::strerror(error));
}

std::string readAll(int file) {
  std::string text;
  char piece[512];
  ssize_t size = 0;
  while ((size = read(file, piece, sizeof piece)) != 0) {
    if (size > 0) text.append(piece, static_cast<std::size_t>(size));
    if (size < 0 && errno != EINTR) break;
  }
  return text;
}

}  // namespace

void startGuardian(const Configuration& old, double seconds) {
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw Failure(Exit::kOther, std::strerror(errno));
  const Descriptor own(ends[0]);
  Descriptor peer(ends[1]);
  spawn({"sysmgrctl", "--guard", std::to_string(seconds), requestEndpoint()}, peer.number());
  peer.reset();
  const std::string text = textOf(old);
  send(own.number(), text.data(), text.size(), MSG_NOSIGNAL);  // a guardian that does not read it says why
  shutdown(own.number(), SHUT_WR);
  const std::string answer = readAll(own.number());
  if (answer == kReady) return;
  if (answer == kBusy) {
    connectToGuardian(openSocket());
    throw Failure(Exit::kOther, "an earlier change waits for its confirmation",
                  "'sysmgrctl confirm' keeps it, 'sysmgrctl confirm --undo' brings the old values back");
  }
  throw Failure(Exit::kOther, "cannot start the guardian: " + (answer.empty() ? "it ended" : answer),
                "nothing was changed");
}

void tellGuardian(Verdict verdict, const Deadline& deadline) {
  const Descriptor socket = openSocket();
  if (!connectToGuardian(socket)) {
    const std::string file = leftFile();
    throw Failure(Exit::kNotFound, "no change waits for its confirmation",
                  file.empty() ? "" : "old values of a change whose guardian was killed are in " + file);
  }
  reply(socket.number(), kWords[static_cast<int>(verdict)]);
  if (!isReadable(socket.number(), deadline)) {
    throw Failure(Exit::kTimeOut, "the guardian of the change did not answer within " + deadline.text(),
                  "it does what it was told when it can; '-w SECONDS' waits longer");
  }
  const std::string answer = receive(socket.number());
  if (answer == kDone) return;
  throw Failure(Exit::kOther, answer.empty() ? "the guardian of the change does not answer" : answer,
                "'sysmgrctl diff' shows what is set");
}

int runGuardian(const Words& words) {
  closeInherited();
  useEndpoints(words.at(1), "");
  const Descriptor listener = openSocket(SOCK_NONBLOCK);
  const Address address;
  if (bind(listener.number(), address.get(), address.size) != 0 || listen(listener.number(), 8) != 0) {
    answerParent(kBusy);
    return EXIT_FAILURE;
  }
  std::string file;
  try {
    const std::string text = takeInput();
    Guardian guardian(listener.number(), parseConfiguration(text, "the old values"), parseSeconds(words.front()));
    mkdir(stateFolder().c_str(), S_IRWXU);
    file = stateFile();
    replaceFile(file, text);
    const Descriptor lock = locked(file);
    openlog("sysmgrctl", LOG_PID, LOG_DAEMON);
    if (chdir("/") != 0) return EXIT_FAILURE;
    answerParent(kReady);
    const int result = guardian.run();
    if (result == EXIT_SUCCESS) unlink(file.c_str());
    return result;
  } catch (const std::exception& error) {
    answerParent(error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace zel::ctl
