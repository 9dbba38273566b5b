/* String hashes of the system library: keys and values are C strings, as sections of INI files
 * are read into them (VLIBCFileGetSection). */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_SZHASH_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_SZHASH_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VLIBCSzHash VLIBCSZHASH, *PVLIBCSZHASH;

/* A new, empty hash with room for `size` entries before it grows. NULL when `size` is not
 * positive or memory runs out (error state set). Free it with VLIBCSzHashFree. */
QRIX_EXPORT PVLIBCSZHASH VLIBCSzHashAlloc(int size);
QRIX_EXPORT void VLIBCSzHashFree(PVLIBCSZHASH hash);

/* The value of `key`, or NULL when the hash has none. Valid until the hash changes. */
QRIX_EXPORT const char* VLIBCSzHashGetValue(PVLIBCSZHASH hash, const char* key);
/* Sets `key` to `value` (both copied). Returns 0, or -1 with the error state set. */
QRIX_EXPORT int VLIBCSzHashSetValue(PVLIBCSZHASH hash, const char* key, const char* value);
/* The number of entries. */
QRIX_EXPORT int VLIBCSzHashCount(PVLIBCSZHASH hash);
QRIX_EXPORT void VLIBCSzHashClear(PVLIBCSZHASH hash);

/* Reads section `section` of the INI file `file` ("[name]" headers, key="value" lines) into
 * `*hash`, which is cleared first and filled in place. Returns 1 when the section is there
 * (even without keys), 0 when it or the whole file is missing, -1 when the file cannot be read
 * or an argument is bad (error state set). */
QRIX_EXPORT int VLIBCFileGetSection(const char* file, const char* section, PVLIBCSZHASH* hash);

#ifdef __cplusplus
}

#include <memory>

namespace qrix {

struct SzHashFree {
  void operator()(PVLIBCSZHASH hash) const { VLIBCSzHashFree(hash); }
};
using SzHashPtr = std::unique_ptr<VLIBCSZHASH, SzHashFree>;

}  // namespace qrix
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_SZHASH_H_ */
