// The version of the installed download package, from its own version file: key="value" lines
// "majorversion", "minorversion" and "buildnumber", each a decimal number, as the system's
// /etc.defaults/VERSION is written.
#ifndef QRIX_PLATFORM_DLBASE_PKG_VERSION_H_
#define QRIX_PLATFORM_DLBASE_PKG_VERSION_H_

#include "platform/qrix_export.h"

#define QRIXDL_PKG_VERSION_FILE "/var/packages/Haulport/target/etc/VERSION"

// True with the package's major and minor version; false when the file or a key is missing or
// is not a number from 0 to INT_MAX (the outputs are then left as they were).
QRIX_EXPORT bool GetDLPkgVersion(int* major, int* minor);
// True with the package's build number; false as above.
QRIX_EXPORT bool GetDLPkgBuildNum(int* build);

#endif  // QRIX_PLATFORM_DLBASE_PKG_VERSION_H_
