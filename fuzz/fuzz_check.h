// A property a fuzz target checks on every input: when it does not hold, the input is a finding
// (libFuzzer keeps it as a crash).
#ifndef HAULPORT_FUZZ_FUZZ_CHECK_H_
#define HAULPORT_FUZZ_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond)                                                                      \
  do {                                                                                        \
    if (!(cond)) {                                                                            \
      std::fprintf(stderr, "%s:%d: property does not hold: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                           \
    }                                                                                         \
  } while (0)

#endif  // HAULPORT_FUZZ_FUZZ_CHECK_H_
