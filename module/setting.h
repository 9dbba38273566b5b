// The module's exports: the API table, the parameter check table and the default schedule.
#ifndef HAULPORT_MODULE_SETTING_H_
#define HAULPORT_MODULE_SETTING_H_

#include <span>

#include "module/common/param_check.h"
#include "platform/qrix_export.h"
#include "platform/webapi/api_table.h"

extern "C" {
QRIX_EXPORT extern QRIX::APITableEntry gTable[];
QRIX_EXPORT extern const char* const gDefaultSchedule;
QRIX_EXPORT const QRIX::APITableEntry* GetAPITable();
QRIX_EXPORT const QRIX::APICheckTableEntry* GetAPICheckTable();
}

namespace QRIXDL {

// Each row of the check table with the parameter rules its check function applies, so that
// tests can walk every parameter of every method.
struct CheckedMethod {
  const char* api;
  const char* method;
  std::span<const ParamRule> rules;
};
QRIX_EXPORT std::span<const CheckedMethod> CheckedMethods();

}  // namespace QRIXDL

#endif  // HAULPORT_MODULE_SETTING_H_
