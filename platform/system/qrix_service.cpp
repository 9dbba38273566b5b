#include "platform/system/qrix_service.h"

#include <cstring>

#include "platform/vlibc/pid_file.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

struct Service {
  const char* name;
  const char* pid_file;
};

constexpr Service kServices[] = {
    {"pgsql", "/run/postgresql/pgsql.pid"},
};

}  // namespace

extern "C" int VLIBServiceIsRunning(const char* name) {
  for (const Service& s : kServices) {
    if (name != nullptr && std::strcmp(name, s.name) == 0) {
      return qrix::DaemonPid(s.pid_file, qrix::PidFileOwner::kAny) > 0 ? 1 : 0;
    }
  }
  VLIBCErrSet(ERR_NOT_FOUND);
  return 0;
}
