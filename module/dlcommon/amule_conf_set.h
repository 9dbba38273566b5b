/* Pointing the eMule daemon's temporary directory at a volume. */
#ifndef HAULPORT_MODULE_DLCOMMON_AMULE_CONF_SET_H_
#define HAULPORT_MODULE_DLCOMMON_AMULE_CONF_SET_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QRIXDL_AMULE_CONF "/var/packages/Haulport/etc/amule/amule.conf"

/* Rewrites amule.conf: every "TempDir=" line becomes TempDir=<volume>/@download/aMuleTmp (cut
 * to 63 characters, newline included, as the daemon's tools always wrote it) and every
 * "Address=" line is emptied; the rest stays. The file is replaced atomically, keeping its owner
 * and mode. 0, or -1 with the file untouched. */
QRIX_EXPORT int QRIXDLAmuleVolumeSet(const char* volume);

#ifdef __cplusplus
}

#include <string>
#include <string_view>

namespace qrixdl {

// The rewriting alone: `text` taken in the pieces fgets makes of it with a 1024-byte buffer (up
// to a newline or 1023 bytes, each read as a C string), "TempDir=" and "Address=" pieces
// replaced as above, the others kept.
QRIX_EXPORT std::string AmuleConfForVolume(std::string_view text, const char* volume);

}  // namespace qrixdl
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_AMULE_CONF_SET_H_ */
