#include "host/access/policy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/common/json_text.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

std::string PolicyPath(const std::string& module_path) {
  constexpr std::string_view kLibrarySuffix = ".so";
  std::string base = module_path;
  if (base.size() > kLibrarySuffix.size() &&
      std::string_view(base).substr(base.size() - kLibrarySuffix.size()) == kLibrarySuffix) {
    base.resize(base.size() - kLibrarySuffix.size());
  }
  return base + ".policy.json";
}

namespace {

// "uploads": {"API": {"method": ["parameter", ...]}}; false when it has another shape.
bool ReadUploads(const Json::Value& list, UploadParams* uploads) {
  if (list.isNull()) {
    return true;
  }
  if (!list.isObject()) {
    return false;
  }
  for (const std::string& api : list.getMemberNames()) {
    const Json::Value& methods = list[api];
    if (api.empty() || !methods.isObject()) {
      return false;
    }
    for (const std::string& method : methods.getMemberNames()) {
      const Json::Value& params = methods[method];
      if (method.empty() || !params.isArray()) {
        return false;
      }
      for (const Json::Value& name : params) {
        if (!name.isString() || name.asString().empty()) {
          return false;
        }
        (*uploads)[{api, method}].insert(name.asString());
      }
    }
  }
  return true;
}

}  // namespace

bool ReadPolicy(const std::string& module_path, std::set<std::string>* open, std::string* error,
                UploadParams* uploads) {
  open->clear();
  if (uploads != nullptr) {
    uploads->clear();
  }
  const std::string path = PolicyPath(module_path);
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.Valid() && errno == ENOENT) {
    return true;
  }
  struct stat st {};
  std::string text;
  if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0) {
    *error = "cannot read policy " + path + ": " + std::strerror(errno);
    return false;
  }
  // Whoever may write the policy decides what every user may change: root alone (or the account
  // the host itself runs as, which could change it anyway).
  const auto trusted_user = [](uid_t uid) { return uid == 0 || uid == ::geteuid(); };
  const auto trusted_group = [](gid_t gid) { return gid == 0 || gid == ::getegid(); };
  if (!S_ISREG(st.st_mode) || !trusted_user(st.st_uid) || (st.st_mode & S_IWOTH) != 0 ||
      ((st.st_mode & S_IWGRP) != 0 && !trusted_group(st.st_gid))) {
    *error = "policy " + path + " is not a file only root may write";
    return false;
  }
  if (const int err = ReadFd(fd.Get(), &text); err != 0) {
    *error = "cannot read policy " + path + ": " + std::strerror(err);
    return false;
  }
  Json::Value root;
  if (!ParseStrictJson(text, &root) || !root.isObject()) {
    *error = "policy " + path + " is not a JSON object";
    return false;
  }
  const Json::Value& list = root["open_to_every_user"];
  if (!list.isNull() && !list.isArray()) {
    *error = "policy " + path + ": \"open_to_every_user\" is not a list";
    return false;
  }
  for (const Json::Value& name : list) {
    if (!name.isString() || name.asString().empty()) {
      *error = "policy " + path + ": \"open_to_every_user\" holds something else than API names";
      return false;
    }
    open->insert(name.asString());
  }
  if (uploads != nullptr && !ReadUploads(root["uploads"], uploads)) {
    *error = "policy " + path + ": \"uploads\" is not {\"API\": {\"method\": [parameters]}}";
    return false;
  }
  return true;
}

}  // namespace qrix::host
