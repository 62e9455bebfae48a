#include "client/zmq_utils.h"
#include "common/logger.h"

int between();

int main() {
  Logger::log(Logger::LEVEL_CONFIG, "linked through a library");
  return between();
}
