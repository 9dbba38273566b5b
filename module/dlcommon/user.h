/* Per-user download settings in the table user_setting of the package database: the default
 * destination, the torrent/NZB watch folder and whether the account may use the download
 * service. Account names match without regard to letter case. */
#ifndef HAULPORT_MODULE_DLCOMMON_USER_H_
#define HAULPORT_MODULE_DLCOMMON_USER_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sets the account's default destination, creating its row. 0, or -1. */
QRIX_EXPORT int DownloadUserShareSet(const char* username, const char* shareFolder);
/* The default destination into `buf`: 1, or 2 for a disabled account; 0 (and `buf` zeroed)
 * when there is none; -1 on failure. */
QRIX_EXPORT int DownloadUserShareGet(const char* username, char* buf, int size);
/* The watch folder into `buf` and 1; each flag is set to 1 when on and left as it was when off,
 * so clear both first. 0 (`buf` zeroed, flags untouched) without one; -1 on failure. */
QRIX_EXPORT int DownloadUserWatchInfoGet(const char* username, int* enableWatch, int* deleteWatched,
                                         char* buf, int size);
/* Stores the watch settings; switching the watch off keeps the stored folder. 0, or -1. */
QRIX_EXPORT int DownloadUserWatchInfoSet(const char* username, int enableWatch, int deleteWatched,
                                         const char* folder);
/* 1 when no other enabled account watches `folder`, 0 when one does, -1 on failure. */
QRIX_EXPORT int DownloadCheckWatchfolder(const char* username, const char* folder);
/* Bars the account from the download service (switching its watch off), or lets it back.
 * 0, or -1. */
QRIX_EXPORT int DownloadUserDisable(const char* username, int disable);

#ifdef __cplusplus
}
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_USER_H_ */
