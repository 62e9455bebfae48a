#include "simulator/watched_command.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>

namespace zel::sim {

namespace {

/// The kernel sends it to the watcher when the process of the board has ended.
int boardHasEnded() { return SIGRTMIN; }

int exitStatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : WatchedCommand::kEndedBySignal + WTERMSIG(status);
}

pid_t parentOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t nameEnd = line.rfind(')');  // the name of a program may hold anything
  pid_t parent = 0;
  if (nameEnd != std::string::npos) std::sscanf(line.c_str() + nameEnd + 1, " %*c %d", &parent);
  return parent;
}

std::vector<pid_t> children() {
  std::vector<pid_t> found;
  DIR* const processes = opendir("/proc");
  if (processes == nullptr) return found;
  while (const dirent* const entry = readdir(processes)) {
    const pid_t process = std::atoi(entry->d_name);
    if (process > 0 && parentOf(process) == getpid()) found.push_back(process);
  }
  closedir(processes);
  return found;
}

/// Kills all descendants. The children of one that ends become children of this process, since it is their subreaper.
void endDescendants() {
  for (bool killed = true; killed;) {
    killed = false;
    for (const pid_t child : children()) killed |= kill(child, SIGKILL) == 0;
    if (killed && waitpid(-1, nullptr, 0) < 0 && errno != EINTR) return;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
  }
}

/// Has the kernel send this process a signal when its parent ends. @return whether the parent still lives
bool endWith(pid_t parent, int signal) { return prctl(PR_SET_PDEATHSIG, signal) == 0 && getppid() == parent; }

/// Becomes the command, in the process that the watcher has made for it.
[[noreturn]] void execute(const std::vector<std::string>& words, pid_t watcher, const sigset_t& signals) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));  // execvp keeps them
  arguments.push_back(nullptr);
  if (!endWith(watcher, SIGKILL)) _exit(WatchedCommand::kFailed);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  execvp(arguments.front(), arguments.data());
  const int error = errno;
  std::fprintf(stderr, "sysmgr-sim: cannot run %s: %s\n", arguments.front(), std::strerror(error));
  _exit(error == ENOENT ? WatchedCommand::kNotFound : WatchedCommand::kCannotRun);
}

/// The process that starts the command and ends with it.
class Watcher {
 public:
  Watcher(pid_t board, int line) : board_(board), line_(line) {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &signals_);
  }

  [[noreturn]] void run(const std::vector<std::string>& words) {
    char order = 0;
    const bool wanted = endWith(board_, boardHasEnded()) && read(line_, &order, 1) == 1;
    if (!wanted) _exit(WatchedCommand::kFailed);  // the board could not start, and has said why
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t watcher = getpid();
    command_ = fork();
    if (command_ == 0) execute(words, watcher, signals_);
    if (command_ < 0) {
      std::fprintf(stderr, "sysmgr-sim: no process can be made: %s\n", std::strerror(errno));
      _exit(WatchedCommand::kFailed);
    }
    const int status = waitForTheEnd();
    endDescendants();
    _exit(status);
  }

 private:
  int waitForTheEnd() const {
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, boardHasEnded()}) sigaddset(&awaited, signal);
    for (;;) {
      siginfo_t info{};
      const int signal = sigwaitinfo(&awaited, &info);
      if (signal == boardHasEnded()) return WatchedCommand::kFailed;
      if (signal == SIGCHLD) {
        int status = 0;
        for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
          if (ended == command_) return exitStatusOf(status);
        }
      } else if (signal > 0 && info.si_code != SI_KERNEL) {  // one from the terminal has reached the command already
        kill(command_, signal);
      }
    }
  }

  pid_t board_;
  int line_;
  pid_t command_ = -1;
  sigset_t signals_{};
};

}  // namespace

WatchedCommand::WatchedCommand(const std::vector<std::string>& words) {
  std::signal(SIGCHLD, SIG_DFL);  // an ignored one would take the exit statuses away
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  const pid_t board = getpid();
  watcher_ = fork();
  if (watcher_ == 0) {
    close(ends[0]);
    Watcher(board, ends[1]).run(words);
  }
  close(ends[1]);
  line_ = ends[0];
  if (watcher_ < 0) {
    close(line_);
    throw std::system_error(errno, std::generic_category(), "no process can be made");
  }
}

WatchedCommand::~WatchedCommand() {
  close(line_);
  if (watcher_ < 0) return;
  kill(watcher_, boardHasEnded());
  wait();
}

void WatchedCommand::start() const noexcept { send(line_, "", 1, MSG_NOSIGNAL); }

void WatchedCommand::pass(int signal) const noexcept {
  if (const pid_t watcher = watcher_; watcher > 0) kill(watcher, signal);
}

bool WatchedCommand::hasEnded() const noexcept {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(watcher_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == watcher_;
}

int WatchedCommand::wait() noexcept {
  int status = 0;
  while (watcher_ > 0 && waitpid(watcher_, &status, 0) < 0 && errno == EINTR) {
  }
  watcher_ = -1;
  // They are here if the watcher was killed; else it has ended them, and who is here was there before the command.
  if (WIFSIGNALED(status)) endDescendants();
  return exitStatusOf(status);
}

}  // namespace zel::sim
