#pragma once

/// Marks a class or function as part of the libraries' binary interface; everything else stays hidden.
#define ZEL_EXPORT __attribute__((visibility("default")))
