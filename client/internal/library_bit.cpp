#include "common/shared/library_bit.h"

const int zel::kLibraryBit = 2;
