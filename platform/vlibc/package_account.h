// The package's own system account and group. Files that hold the package's secrets belong to
// root and its group, and only root and its group may take the platform's locks.
#ifndef QRIX_PLATFORM_VLIBC_PACKAGE_ACCOUNT_H_
#define QRIX_PLATFORM_VLIBC_PACKAGE_ACCOUNT_H_

#include <sys/types.h>

#include <optional>
#include <string_view>

#define QRIX_PACKAGE_ACCOUNT "Haulport"
#define QRIX_PACKAGE_ETC_DIR "/var/packages/Haulport/etc"

namespace qrix {

// The ids of the account and of the group named QRIX_PACKAGE_ACCOUNT; nullopt when the system
// has none (a missing group is logged). Looked up again only when /etc/passwd or /etc/group
// changes, so asking costs one stat.
std::optional<uid_t> PackageUid();
std::optional<gid_t> PackageGid();

// Owner, group and mode a file must have whatever it had before.
struct FileAccess {
  uid_t uid;
  gid_t gid;
  mode_t mode;
};

// Files in the package's etc directory, or below it, hold its secrets (the settings carry the
// NZB password): root's, readable by the package's group, 0640; root's alone (0600) on a system
// without that group. A file the package's account already owns stays its own (its daemons
// write their configuration back, eMule's for one). `owner` is the file's owner now, if it
// exists. nullopt for every other file.
std::optional<FileAccess> PackageFileAccess(std::string_view path, std::optional<uid_t> owner);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_PACKAGE_ACCOUNT_H_
