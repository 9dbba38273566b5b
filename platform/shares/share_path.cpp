#include "platform/shares/share_path.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

namespace qrix::share {
namespace {

// The share a path names and the rest of the path after the share's folder.
const Share* Locate(const std::vector<Share>& shares, std::string_view path,
                    std::string_view* rest) {
  if (path.empty()) {
    return nullptr;
  }
  if (path[0] != '/') {
    const size_t slash = path.find('/');
    *rest = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    return FindShare(shares, std::string(path.substr(0, slash)));
  }
  for (const Share& share : shares) {
    std::string_view folder = share.path;
    while (folder.size() > 1 && folder.back() == '/') {
      folder.remove_suffix(1);
    }
    if (path.substr(0, folder.size()) == folder &&
        (path.size() == folder.size() || path[folder.size()] == '/')) {
      *rest = path.substr(folder.size());
      return &share;
    }
  }
  return nullptr;
}

// True when ".." never climbs above the start, counting the components as written.
bool StaysBelow(std::string_view rest) {
  int depth = 0;
  while (!rest.empty()) {
    const size_t slash = rest.find('/');
    const std::string_view part = rest.substr(0, slash);
    if (part == "..") {
      if (--depth < 0) {
        return false;
      }
    } else if (!part.empty() && part != ".") {
      ++depth;
    }
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  }
  return true;
}

bool RealPath(const std::string& path, std::string* out) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  if (real == nullptr) {
    return false;
  }
  *out = real.get();
  return true;
}

bool IsInside(const std::string& path, const std::string& base) {
  return path == base || (path.compare(0, base.size(), base) == 0 &&
                          (base == "/" || (path.size() > base.size() && path[base.size()] == '/')));
}

}  // namespace

ResolvedPath ResolveSharePath(const std::string& path, const std::string& user, Access need) {
  ResolvedPath result;
  std::vector<Share> shares;
  std::string_view rest;
  const Share* share = LoadShares(&shares) ? Locate(shares, path, &rest) : nullptr;
  if (share == nullptr || path.find('\0') != std::string::npos) {
    return result;
  }
  result.share = share->name;
  const Access access = AccessOf(*share, user);
  if (access == Access::kNone || (need == Access::kWrite && access != Access::kWrite) ||
      !StaysBelow(rest)) {
    return result;
  }
  std::string base;
  std::string real;
  struct stat st {};
  if (!RealPath(share->path, &base) || !RealPath(base + "/" + std::string(rest), &real)) {
    result.verdict = PathVerdict::kNotUsable;
    return result;
  }
  if (!IsInside(real, base)) {
    return result;  // a link led out
  }
  if (::stat(real.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    result.verdict = PathVerdict::kNotUsable;
    return result;
  }
  result.verdict = PathVerdict::kUsable;
  result.real_path = std::move(real);
  return result;
}

}  // namespace qrix::share
