#pragma once

namespace zel {

/// How the dumps show a switch.
inline const char* mark(bool on) { return on ? "X" : " "; }

}  // namespace zel
