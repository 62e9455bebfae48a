#pragma once

namespace zel {

/// The bit of the library that this code is linked into: libzelCommonTypes and libzelSysMgrApi each hold their own copy
/// of `SocketOwner`, with a registry and exit handlers of its own, and mark their contexts apart from each other. Each
/// library defines it once.
extern const int kLibraryBit;

}  // namespace zel
