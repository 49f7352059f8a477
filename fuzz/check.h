#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the fuzzer, which then keeps the input, when a property does not hold.
#define FUZZ_CHECK(...)                                                                     \
  do {                                                                                      \
    if (!(__VA_ARGS__)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #__VA_ARGS__); \
      std::abort();                                                                         \
    }                                                                                       \
  } while (false)
