// Row layouts of the two tables a web-API module exports, shared by the module and the host.
#ifndef QRIX_PLATFORM_WEBAPI_API_TABLE_H_
#define QRIX_PLATFORM_WEBAPI_API_TABLE_H_

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

}  // namespace QRIX

// The names a host looks up with dlsym.
#define QRIX_API_TABLE_SYMBOL "GetAPITable"
#define QRIX_API_CHECK_TABLE_SYMBOL "GetAPICheckTable"
using QRIXGetAPITableFunc = const QRIX::APITableEntry* (*)();
using QRIXGetAPICheckTableFunc = const QRIX::APICheckTableEntry* (*)();

#endif  // QRIX_PLATFORM_WEBAPI_API_TABLE_H_
