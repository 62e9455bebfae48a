#include "bench/library.h"

namespace zel::bench {

Contestant& contestant() {
  static Library library;
  return library;
}

}  // namespace zel::bench
