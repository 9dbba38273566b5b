// Row layouts of the two tables a web-API module exports, shared by the module and the host.
#ifndef QRIX_PLATFORM_WEBAPI_API_TABLE_H_
#define QRIX_PLATFORM_WEBAPI_API_TABLE_H_

#include <cstddef>
#include <cstdint>

namespace QRIX {

class APIRequest;
class APIResponse;

using APIEntryFunc = void (*)(APIRequest*, APIResponse*);
using APICheckFunc = bool (*)(APIRequest*, APIResponse*);

// Ends with a row of zeros.
struct APITableEntry {
  const char* api;
  int32_t version;
  const char* method;
  APIEntryFunc entry;
};

// Ends with a row of zeros. The two reserved words are the host's; modules write 0.
struct APICheckTableEntry {
  const char* api;
  int32_t version;
  const char* method;
  APICheckFunc check;
  intptr_t reserved1;
  intptr_t reserved2;
};

// On the 32-bit NAS the host reads an API row as four 32-bit words and a check row as six; a
// changed member type or padding there would shift every row after the first.
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(APITableEntry) == 4 * 4 && offsetof(APITableEntry, version) == 4 &&
              offsetof(APITableEntry, method) == 8 && offsetof(APITableEntry, entry) == 12);
static_assert(sizeof(APICheckTableEntry) == 6 * 4 && offsetof(APICheckTableEntry, version) == 4 &&
              offsetof(APICheckTableEntry, method) == 8 &&
              offsetof(APICheckTableEntry, check) == 12 &&
              offsetof(APICheckTableEntry, reserved1) == 16 &&
              offsetof(APICheckTableEntry, reserved2) == 20);
#endif

}  // namespace QRIX

// The names a host looks up with dlsym.
#define QRIX_API_TABLE_SYMBOL "GetAPITable"
#define QRIX_API_CHECK_TABLE_SYMBOL "GetAPICheckTable"
using QRIXGetAPITableFunc = const QRIX::APITableEntry* (*)();
using QRIXGetAPICheckTableFunc = const QRIX::APICheckTableEntry* (*)();

#endif  // QRIX_PLATFORM_WEBAPI_API_TABLE_H_
