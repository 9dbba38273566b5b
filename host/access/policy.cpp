#include "host/access/policy.h"

#include <cerrno>
#include <cstring>

#include "host/common/json_text.h"
#include "platform/vlibc/atomic_file.h"

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

bool ReadPolicy(const std::string& module_path, std::set<std::string>* open, std::string* error) {
  open->clear();
  const std::string path = PolicyPath(module_path);
  std::string text;
  if (const int err = ReadFile(path, &text); err != 0) {
    if (err == ENOENT) {
      return true;
    }
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
  return true;
}

}  // namespace qrix::host
