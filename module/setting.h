// The module's exports: the API table, the parameter check table and the default schedule.
#ifndef HAULPORT_MODULE_SETTING_H_
#define HAULPORT_MODULE_SETTING_H_

#include "platform/qrix_export.h"
#include "platform/webapi/api_table.h"

extern "C" {
QRIX_EXPORT extern QRIX::APITableEntry gTable[];
QRIX_EXPORT extern const char* const gDefaultSchedule;
QRIX_EXPORT const QRIX::APITableEntry* GetAPITable();
QRIX_EXPORT const QRIX::APICheckTableEntry* GetAPICheckTable();
}

#endif  // HAULPORT_MODULE_SETTING_H_
