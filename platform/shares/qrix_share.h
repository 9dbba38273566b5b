/* Shared folders, from one INI file: "/var/qrix/etc/shares.conf", a section per share, named by
 * the share:
 *
 *   [video]
 *   path="/volume1/video"          the share's folder
 *   encrypted="no"                 "yes" for an encrypted share
 *   read_write="alice, @users"     accounts and @groups that may write
 *   read_only="bob"                accounts and @groups that may only read
 *
 * Share, account and group names are matched without regard to letter case. A missing file
 * means no shares. */
#ifndef QRIX_PLATFORM_SHARES_QRIX_SHARE_H_
#define QRIX_PLATFORM_SHARES_QRIX_SHARE_H_

#include "platform/qrix_export.h"

#define QRIX_SHARES_CONF "/var/qrix/etc/shares.conf"

/* Bits of QRIXSHARE.fStatus. */
#define QRIX_SHARE_STATUS_ENCRYPTED 0x0002

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _tag_QRIXSHARE {
  char* szName; /* as the shares file spells it */
  char* szPath;
  unsigned int fStatus;
} QRIXSHARE, *PQRIXSHARE;

/* Fills `*share` with a record the caller frees with QRIXShareFree.
 * Returns 0, or -1 with the error state set (ERR_NOT_FOUND, ERR_FILE_READ, ...). */
QRIX_EXPORT int QRIXShareGet(const char* name, PQRIXSHARE* share);
QRIX_EXPORT void QRIXShareFree(PQRIXSHARE share);

#ifdef __cplusplus
}

#include <string>
#include <vector>

/* The names of the shares whose folder is `mount_path` or lies under it, in file order.
 * Returns their number, or -1 with the error state set. */
QRIX_EXPORT int QRIXShareEnumByMntPath(const char* mount_path, std::vector<std::string>* names);

namespace qrix::share {

enum class Access { kNone, kRead, kWrite };

struct Share {
  std::string name;
  std::string path;
  bool encrypted = false;
  std::vector<std::string> read_write;  // account names and "@group"s
  std::vector<std::string> read_only;
};

// Every share of the shares file, in file order; sections without a path are skipped. False
// (with the error state set) when the file exists but cannot be read.
QRIX_EXPORT bool LoadShares(std::vector<Share>* shares);

// The share named `name` (any letter case), or nullptr.
QRIX_EXPORT const Share* FindShare(const std::vector<Share>& shares, const std::string& name);

// What `user` may do in `share`: writing beats reading when both lists name the account.
QRIX_EXPORT Access AccessOf(const Share& share, const std::string& user);

}  // namespace qrix::share
#endif

#endif /* QRIX_PLATFORM_SHARES_QRIX_SHARE_H_ */
