#include "tests/support/kv_interposer.h"

#include <dlfcn.h>

#include <cstddef>

#include "platform/vlibc/vlibc_error.h"

namespace qrix::test {

KvInterposer& Kv() {
  static KvInterposer instance;
  return instance;
}

namespace {

template <typename F>
F Next(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace qrix::test

using qrix::test::Kv;

extern "C" {

__attribute__((visibility("default"))) int VLIBCFileGetKeyValue(const char* file,
                                                                const char* key, char* buf,
                                                                int size, int flags) {
  using Fn = int (*)(const char*, const char*, char*, int, int);
  static const Fn real = qrix::test::Next<Fn>("VLIBCFileGetKeyValue");
  const int index = static_cast<int>(Kv().read_keys.size());
  Kv().read_keys.emplace_back(key);
  if (index == Kv().fail_read_at) {
    VLIBCErrSet(ERR_FILE_READ);
    return -1;
  }
  return real(file, key, buf, size, flags);
}

__attribute__((visibility("default"))) int VLIBCFileSetKeyValueN(const char* file,
                                                                 const char* key,
                                                                 const char* value, size_t len,
                                                                 const char* format) {
  using Fn = int (*)(const char*, const char*, const char*, size_t, const char*);
  static const Fn real = qrix::test::Next<Fn>("VLIBCFileSetKeyValueN");
  const int index = static_cast<int>(Kv().write_keys.size());
  Kv().write_keys.emplace_back(key);
  if (index == Kv().fail_write_at) {
    VLIBCErrSet(ERR_FILE_WRITE);
    return -1;
  }
  return real(file, key, value, len, format);
}

__attribute__((visibility("default"))) int VLIBCFileSetKeyValue(const char* file,
                                                                const char* key,
                                                                const char* value,
                                                                const char* format) {
  return VLIBCFileSetKeyValueN(file, key, value, value != nullptr ? __builtin_strlen(value) : 0,
                               format);
}

}  // extern "C"
