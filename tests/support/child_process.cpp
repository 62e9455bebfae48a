#include "tests/support/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <utility>

namespace zel::test {

namespace {

constexpr int kFailed = 98;  // the exit status of a child in which an expectation failed
constexpr int kBroken = 99;  // the exit status of a child that could not run, or that threw

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
  return ends;
}

}  // namespace

ChildProcess ChildProcess::start(const std::function<void()>& inChild) {
  const std::array<int, 2> output = makePipe();
  const std::array<int, 2> errors = makePipe();
  std::fflush(nullptr);  // what is buffered is to be written once
  const pid_t parent = getpid();

  ChildProcess child;
  child.pid_ = fork();
  if (child.pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child.pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(kBroken);
    dup2(output[1], STDOUT_FILENO);
    dup2(errors[1], STDERR_FILENO);
    inChild();
    _exit(kBroken);
  }
  close(output[1]);
  close(errors[1]);
  for (const int descriptor : {output[0], errors[0]}) fcntl(descriptor, F_SETFL, O_NONBLOCK);
  child.output_.descriptor = output[0];
  child.errors_.descriptor = errors[0];
  return child;
}

ChildProcess ChildProcess::run(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  return start([&] {
    execvp(arguments[0], arguments.data());
    std::perror(arguments[0]);
  });
}

ChildProcess ChildProcess::call(const std::function<int()>& body) {
  return start([&] {
    try {
      const int status = body();
      std::exit(status == 0 && testing::Test::HasFailure() ? kFailed : status);
    } catch (const std::exception& thrown) {
      std::fprintf(stderr, "thrown: %s\n", thrown.what());
    }
  });
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      status_(other.status_),
      seen_(other.seen_),
      waits_(std::move(other.waits_)),
      output_(std::exchange(other.output_, Stream())),
      errors_(std::exchange(other.errors_, Stream())) {}

ChildProcess::~ChildProcess() {
  kill();
  for (const Stream* stream : {&output_, &errors_}) {
    if (stream->descriptor >= 0) close(stream->descriptor);
  }
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0 && !status_) ::kill(pid_, number);
}

void ChildProcess::kill() {
  signal(SIGKILL);
  reap(0);
}

void ChildProcess::freeze() const {
  signal(SIGSTOP);
  waitUntilFrozen();
}

void ChildProcess::waitUntilFrozen() const {
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED);
}

void ChildProcess::thaw() const {
  signal(SIGCONT);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pid_), &info, WCONTINUED);
}

bool ChildProcess::reap(int flags) {
  if (pid_ <= 0 || status_) return true;
  int status = 0;
  pid_t reaped = -1;
  do {
    reaped = waitpid(pid_, &status, flags);
  } while (reaped < 0 && errno == EINTR);
  if (reaped != pid_) return false;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return true;
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds limit) {
  waitUntil(
      [this] {
        output_.drain();
        errors_.drain();
        return endsOrIsSeen();
      },
      limit);
  return status_;
}

Elapsed ChildProcess::timeToEnd() {
  const Clock::time_point start = seen_ = Clock::now();
  const ProcessorWaits before = waits_ = waitsOf(pid_);
  wait();
  const auto since = [start](Clock::time_point end) {
    return std::chrono::duration_cast<std::chrono::microseconds>(end - start);
  };
  return {since(Clock::now()), since(seen_) - waitedBetween(before, waits_)};
}

// The accounts of threads that have ended are gone, so they are read each time.
bool ChildProcess::endsOrIsSeen() {
  const Clock::time_point now = Clock::now();
  const ProcessorWaits waits = waitsOf(pid_);
  if (reap(WNOHANG)) return true;
  seen_ = now;
  for (const auto& [thread, waited] : waits) waits_[thread] = waited;
  return false;
}

void ChildProcess::Stream::drain() {
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

std::string ChildProcess::output() {
  output_.drain();
  return output_.text;
}

std::string ChildProcess::errors() {
  errors_.drain();
  return errors_.text;
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds limit) {
  return waitUntil(
      [&] {
        errors_.drain();
        return output().find(text) != std::string::npos;
      },
      limit);
}

}  // namespace zel::test
