// Error lines of the module's handlers and common code: "<source>:<line> <message>".
#ifndef HAULPORT_MODULE_COMMON_MODULE_LOG_H_
#define HAULPORT_MODULE_COMMON_MODULE_LOG_H_

#include <syslog.h>

#define QRIXDL_LOG_ERR(source, fmt, ...) \
  syslog(LOG_ERR, "%s:%d " fmt, source, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The same for a message whose line number is part of its contract.
#define QRIXDL_LOG_ERR_AT(source, line, fmt, ...) \
  syslog(LOG_ERR, "%s:%d " fmt, source, line __VA_OPT__(, ) __VA_ARGS__)

#endif  // HAULPORT_MODULE_COMMON_MODULE_LOG_H_
