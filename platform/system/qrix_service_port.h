/* The ports the system's services listen on, as the firewall and port forwarding see them.
 *
 * One INI file per service, QRIX_SERVICE_CONF_DIR "/<service>.conf", one section per port entry:
 *
 *   [bt]
 *   protocol="tcp"
 *   port="16881"
 *
 * "protocol" is "tcp", "udp" or "tcp,udp"; "port" is a port or a range "first-last".
 *
 * A section belongs to the service whose name it carries: the section named like the service
 * or starting with the service's name and "_" ("bt" owns "bt" and "bt_dht", not "btsearch").
 * Names, not files, decide, because one service file may register ports for several parts of
 * a package. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_PORT_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_PORT_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Operations of QRIXServiceConfSectionPortSet. */
#define QRIX_SERVICE_CONF_SET 2 /* create the section or replace its contents */

#define QRIX_SERVICE_PORT_V1 1 /* the record layout below */

/* Protocol bits. */
#define QRIX_PORT_TCP 1
#define QRIX_PORT_UDP 2

/* One port entry, six 32-bit words. */
typedef struct _tag_QRIXSERVICEPORT_ {
  int version;  /* QRIX_SERVICE_PORT_V1 */
  int flags;    /* none defined yet: 0 */
  int protocol; /* QRIX_PORT_TCP, QRIX_PORT_UDP or both */
  int port;     /* 1 to 65535 */
  int port_end; /* last port of a range (port to 65535), or 0 for the single port */
  int reserved; /* 0 */
} QRIXSERVICEPORT;

/* Writes section `section` of the file of `service` from `record`, creating the directory and
 * the file as needed. The file is published atomically, under the lock of the directory, so
 * concurrent writers of any service file lose nothing. `service` is a file name (letters,
 * digits, "_", "-", "." but not first); `section` has no brackets, line breaks or outer blanks.
 * Returns 0, or -1 with the error state set: ERR_BAD_PARAMETERS for an unknown operation or a
 * bad name or record, ERR_FILE_OPEN / ERR_FILE_READ / ERR_FILE_WRITE for the file system. */
QRIX_EXPORT int QRIXServiceConfSectionPortSet(int op, const char* service, const char* section,
                                              const QRIXSERVICEPORT* record);

#ifdef __cplusplus
}

#include <string>

namespace WebUtils {

/* Non-zero when a section of any service file that does not belong to `service` (see above)
 * holds a port in [first, last], whatever its protocol. Files or sections that cannot be read
 * or parsed hold no ports. */
QRIX_EXPORT int IsPortConflict(const std::string& service, int first, int last);

}  // namespace WebUtils
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_PORT_H_ */
