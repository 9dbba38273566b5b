#include "platform/shares/qrix_share.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/accounts/qrix_user.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/ini_text.h"
#include "platform/vlibc/kv_text.h"
#include "platform/vlibc/vlibc_error.h"

namespace qrix::share {
namespace {

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::vector<std::string> SplitList(const std::string* text) {
  std::vector<std::string> items;
  std::string_view rest = text != nullptr ? std::string_view(*text) : std::string_view();
  while (!rest.empty()) {
    const size_t comma = rest.find(',');
    const std::string_view item = kv::Trim(rest.substr(0, comma));
    if (!item.empty()) {
      items.emplace_back(item);
    }
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
  }
  return items;
}

bool Names(const std::vector<std::string>& list, const std::string& user,
           const std::vector<std::string>& groups) {
  for (const std::string& entry : list) {
    if (entry.size() > 1 && entry[0] == '@') {
      for (const std::string& group : groups) {
        if (SameName(entry.substr(1), group)) {
          return true;
        }
      }
    } else if (SameName(entry, user)) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool LoadShares(std::vector<Share>* shares) {
  shares->clear();
  std::string text;
  const int rc = ReadFile(QRIX_SHARES_CONF, &text);
  if (rc == ENOENT) {
    return true;
  }
  if (rc != 0) {
    VLIBCErrSet(ERR_FILE_READ);
    return false;
  }
  for (const ini::Section& section : ini::ParseSections(text)) {
    const std::string* path = section.Find("path");
    if (section.name.empty() || path == nullptr || path->empty()) {
      continue;
    }
    const std::string* encrypted = section.Find("encrypted");
    shares->push_back({section.name, *path, encrypted != nullptr && *encrypted == "yes",
                       SplitList(section.Find("read_write")),
                       SplitList(section.Find("read_only"))});
  }
  return true;
}

const Share* FindShare(const std::vector<Share>& shares, const std::string& name) {
  for (const Share& share : shares) {
    if (SameName(share.name, name)) {
      return &share;
    }
  }
  return nullptr;
}

Access AccessOf(const Share& share, const std::string& user) {
  const std::vector<std::string> groups = accounts::GroupsOf(user.c_str());
  if (groups.empty()) {
    return Access::kNone;  // no such account
  }
  if (Names(share.read_write, user, groups)) {
    return Access::kWrite;
  }
  return Names(share.read_only, user, groups) ? Access::kRead : Access::kNone;
}

}  // namespace qrix::share

extern "C" int QRIXShareGet(const char* name, PQRIXSHARE* out) {
  if (name == nullptr || out == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  std::vector<qrix::share::Share> shares;
  if (!qrix::share::LoadShares(&shares)) {
    return -1;
  }
  const qrix::share::Share* share = qrix::share::FindShare(shares, name);
  if (share == nullptr) {
    VLIBCErrSet(ERR_NOT_FOUND);
    return -1;
  }
  auto* record = static_cast<QRIXSHARE*>(std::calloc(1, sizeof(QRIXSHARE)));
  if (record != nullptr) {
    record->szName = strdup(share->name.c_str());
    record->szPath = strdup(share->path.c_str());
    record->fStatus = share->encrypted ? QRIX_SHARE_STATUS_ENCRYPTED : 0;
  }
  if (record == nullptr || record->szName == nullptr || record->szPath == nullptr) {
    QRIXShareFree(record);
    VLIBCErrSet(ERR_OUT_OF_MEMORY);
    return -1;
  }
  *out = record;
  return 0;
}

extern "C" void QRIXShareFree(PQRIXSHARE share) {
  if (share != nullptr) {
    std::free(share->szName);
    std::free(share->szPath);
    std::free(share);
  }
}

int QRIXShareEnumByMntPath(const char* mount_path, std::vector<std::string>* names) {
  if (mount_path == nullptr || mount_path[0] != '/' || names == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  std::vector<qrix::share::Share> shares;
  if (!qrix::share::LoadShares(&shares)) {
    return -1;
  }
  const std::string_view mount = mount_path;
  names->clear();
  for (const qrix::share::Share& share : shares) {
    const std::string_view path = share.path;
    if (path.substr(0, mount.size()) == mount &&
        (path.size() == mount.size() || path[mount.size()] == '/')) {
      names->push_back(share.name);
    }
  }
  return static_cast<int>(names->size());
}
