// Stands between the code under test and the platform's key/value calls, so a test can see the
// order of the reads and writes and make one of them fail. Link with ENABLE_EXPORTS: the test
// executable's definitions then take the place of the platform library's.
#ifndef HAULPORT_TESTS_SUPPORT_KV_INTERPOSER_H_
#define HAULPORT_TESTS_SUPPORT_KV_INTERPOSER_H_

#include <string>
#include <vector>

namespace qrix::test {

struct KvInterposer {
  std::vector<std::string> read_keys;   // keys of VLIBCFileGetKeyValue calls, in order
  std::vector<std::string> write_keys;  // keys of VLIBCFileSetKeyValue(N) calls, in order
  int fail_read_at = -1;   // 0-based index of the read that returns -1
  int fail_write_at = -1;  // 0-based index of the write that returns -1
  void Reset() { *this = KvInterposer(); }
};

// The one instance the interposed functions use.
KvInterposer& Kv();

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_KV_INTERPOSER_H_
