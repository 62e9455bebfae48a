#include "tests/faults/random_app.h"

namespace zel::test {

// Programs that failed once, as they were printed. They are run before the random ones.
const std::vector<FoundProgram>& foundPrograms() {
  static const std::vector<FoundProgram> made{
      {"a view beside a subscriber, whose monitors had the same endpoint",
       {
           {0, &App::startThread, 562},
           {0, &App::makeView, 3},      // static
           {2, &App::makeReceiver, 0},  // stack
           {0, &App::checkView, 533},
       }},
      {"a view that was made with few descriptors, beside a subscriber",
       {
           {0, &App::limitDescriptors, 203},
           {0, &App::makeAsync, 1},  // heap
           {0, &App::makeView, 1},   // heap
           {0, &App::mendBoard, 750},
           {0, &App::makeReceiver, 1},  // heap
           {0, &App::checkView, 329},
       }},
      {"a view whose client for changes was made with too few descriptors",
       {
           {0, &App::limitDescriptors, 952},
           {0, &App::makeReceiver, 2},  // function-static
           {0, &App::makeView, 0},      // stack
           {0, &App::checkView, 910},
       }},
      {"a view whose client for fetches was made with too few descriptors",
       {
           {0, &App::makeView, 0},  // stack
           {0, &App::pause, 14},
           {0, &App::limitDescriptors, 32},
           {0, &App::turnView, 59},
           {0, &App::checkView, 669},
       }},
      {"a completion that does not return while another thread ends the process",
       {
           {0, &App::startThread, 297},
           {1, &App::makeAsync, 1},  // heap
           {1, &App::forkManyChildren, 964},
           {1, &App::submit, 260},
           {0, &App::receive, 585},
           {1, &App::atNextCallback, 10},  // exit
           {1, &App::turnAsync, 425},
       }},
      {"a child that was forked while another thread opened views",
       {
           {0, &App::startThread, 267},
           {0, &App::atNextCallback, 9},    // a child goes on
           {1, &App::makeClients, 3},       // static
           {1, &App::makeAsync, 2},         // function-static
           {0, &App::makeContext, 0},       // stack
           {0, &App::makeAsync, 3},         // static
           {1, &App::comeAndGoForEver, 2},  // views
           {0, &App::submit, 215},
           {0, &App::breakBoard, 13},   // frozen
           {0, &App::makeReceiver, 3},  // static
           {0, &App::usePlugin, 0},     // unloaded at once
           {0, &App::turnAsync, 289},
           {0, &App::makeEvents, 220},
           {0, &App::turnAsync, 439},
       }},
  };
  return made;
}

}  // namespace zel::test
