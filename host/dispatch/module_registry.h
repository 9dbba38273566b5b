// The methods of every loaded module, with their entry and check functions and who may call
// them. Built in the master before any worker is forked, read-only afterwards.
#ifndef QRIX_HOST_MODULE_REGISTRY_H_
#define QRIX_HOST_MODULE_REGISTRY_H_

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/webapi/api_table.h"

namespace qrix::host {

struct ApiMethod {
  std::string api;
  int version = 0;
  std::string method;
  QRIX::APIEntryFunc entry = nullptr;
  QRIX::APICheckFunc check = nullptr;
  bool open_to_every_user = false;
  std::set<std::string> upload_params;  // filled only from an uploaded file
};

enum class Lookup { kFound, kUnknownApi, kUnsupportedVersion, kUnknownMethod };

class ModuleRegistry {
 public:
  ModuleRegistry() = default;
  ModuleRegistry(const ModuleRegistry&) = delete;
  ModuleRegistry& operator=(const ModuleRegistry&) = delete;

  // Loads the module at `path` with both tables and its policy. Every method of the API table
  // needs a check function; a method two modules both serve is refused. False with a one-line
  // reason when the module cannot be served.
  bool Load(const std::string& path, std::string* error);

  Lookup Find(std::string_view api, int version, std::string_view method,
              const ApiMethod** found) const;
  size_t Size() const { return methods_.size(); }
  // The APIs an account may call, sorted: every one for an administrator, else those the
  // policy opens to every user. The page shows only these.
  std::vector<std::string> ApisFor(bool admin) const;

 private:
  struct Unloader {
    void operator()(void* handle) const;
  };
  std::vector<std::unique_ptr<void, Unloader>> handles_;
  std::vector<ApiMethod> methods_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_MODULE_REGISTRY_H_
