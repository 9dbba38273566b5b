/* Share, ownership and indexing utilities of the download library, for the package's other
 * programs. No database here. */
#ifndef HAULPORT_MODULE_DLCOMMON_UTILSWITHOUTDB_H_
#define HAULPORT_MODULE_DLCOMMON_UTILSWITHOUTDB_H_

#include <stddef.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Download URL kinds of QRIXDLGetURLType. */
enum {
  QRIXDL_URL_HTTP = 0,
  QRIXDL_URL_HTTPS = 1,
  QRIXDL_URL_MAGNET = 2,
  QRIXDL_URL_ED2K = 3,
  QRIXDL_URL_FTP = 4,
  QRIXDL_URL_FTPS = 5,
  QRIXDL_URL_SFTP = 6,
  QRIXDL_URL_THUNDER = 7,
  QRIXDL_URL_FLASHGET = 8,
  QRIXDL_URL_QQDL = 9,
  QRIXDL_URL_OTHER = 10
};

/* The package account's uid and gid, looked up once; -1 while unknown (tried again next time). */
QRIX_EXPORT int GetPackageUID(void);
QRIX_EXPORT int GetPackageGID(void);

/* Gives `path` and everything under it to `user` (as root). 0 on success, or when the file
 * system keeps no owners; -1 on failure. */
QRIX_EXPORT int DownloadUtilsChangeOwner(const char* path, const char* user);
/* The share name of `path` ("video/a.mkv", "/volume1/video/a.mkv"; "home" for the homes share).
 * 0, or -1 on failure. */
QRIX_EXPORT int DownloadUtilsGetShareNameByPath(const char* path, char* out, int size);
/* 1 when the share holding `path` is encrypted, 0 otherwise and on any failure. */
QRIX_EXPORT int DownloadUtilsIsEncryptShare(const char* path);
/* Queues `path` (a file or a folder) for the media indexer. 0, or -1. */
QRIX_EXPORT int DownloadUtilsNotifyIndexing(const char* path);
/* Writes into `out` a path in `dir` for `name` that does not exist yet: name, then name1, name2,
 * ... before the extension. 0, or -1 on bad parameters. */
QRIX_EXPORT int QRIXDLValidateFilename(char* out, int size, const char* dir, const char* name);
/* The QRIXDL_URL_... kind of `url` by its scheme, case ignored. */
QRIX_EXPORT int QRIXDLGetURLType(const char* url);

#ifdef __cplusplus
}
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_UTILSWITHOUTDB_H_ */
