#include "cli/notices.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace zel::ctl {

NoticesOnStandardError::NoticesOnStandardError() : output_(dup(STDOUT_FILENO)) {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

NoticesOnStandardError::~NoticesOnStandardError() {
  std::cout.flush();
  std::fflush(stdout);
  if (output_ < 0) return;
  dup2(output_, STDOUT_FILENO);
  close(output_);
}

}  // namespace zel::ctl
