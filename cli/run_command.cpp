#include "cli/run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

std::string failureOf(int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  if (WIFEXITED(status)) return "it ended with status " + std::to_string(WEXITSTATUS(status));
  return "signal " + std::to_string(WTERMSIG(status)) + " ended it";
}

}  // namespace

std::string runInShell(const std::string& command, const std::string& prefix,
                       const std::map<std::string, std::string>& variables) {
  std::vector<std::string> assignments;
  assignments.reserve(variables.size());
  for (const auto& [name, value] : variables) assignments.push_back(joined({prefix, name, "=", value}));
  std::vector<char*> environment;
  environment.reserve(assignments.size() + 1);
  for (std::string& assignment : assignments) environment.push_back(assignment.data());
  for (char** inherited = environ; *inherited != nullptr; ++inherited) {
    if (std::string_view(*inherited).substr(0, prefix.size()) != prefix) environment.push_back(*inherited);
  }
  environment.push_back(nullptr);

  std::string text = command;
  char shell[] = "sh";
  char option[] = "-c";
  char* const arguments[] = {shell, option, text.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  pid_t child = 0;
  const int error = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, environment.data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return std::strerror(error);

  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return std::strerror(errno);
  }
  return failureOf(status);
}

}  // namespace zel::ctl
