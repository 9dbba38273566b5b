// A property a fuzz target checks on every input: when it does not hold, the input is a finding
// (libFuzzer keeps it as a crash).
#ifndef HAULPORT_FUZZ_FUZZ_CHECK_H_
#define HAULPORT_FUZZ_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>
#include <string_view>

#define FUZZ_CHECK(cond)                                                                      \
  do {                                                                                        \
    if (!(cond)) {                                                                            \
      std::fprintf(stderr, "%s:%d: property does not hold: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                           \
    }                                                                                         \
  } while (0)

// The next line of `in` (without its newline), consumed: the targets' inputs are lines first.
inline std::string_view TakeLine(std::string_view* in) {
  const size_t nl = in->find('\n');
  const std::string_view line = in->substr(0, nl);
  in->remove_prefix(nl == std::string_view::npos ? in->size() : nl + 1);
  return line;
}

#endif  // HAULPORT_FUZZ_FUZZ_CHECK_H_
