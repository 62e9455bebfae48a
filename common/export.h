#pragma once

/// Marks a class or function as part of the libraries' binary interface; everything else stays hidden.
#define ZEL_EXPORT __attribute__((visibility("default")))

/// For a class inside a public class that only the library itself uses.
#define ZEL_HIDDEN __attribute__((visibility("hidden")))
