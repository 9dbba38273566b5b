#include "host/dispatch/module_registry.h"

#include <dlfcn.h>

#include <set>

#include "host/access/policy.h"

namespace qrix::host {
namespace {

// A table without its terminator would otherwise be walked into whatever follows it.
constexpr size_t kMaxRows = 4096;

std::string Name(const ApiMethod& m) {
  return m.api + " v" + std::to_string(m.version) + " " + m.method;
}

ApiMethod* FindExact(std::vector<ApiMethod>& methods, const char* api, int version,
                     const char* method) {
  for (ApiMethod& m : methods) {
    if (m.api == api && m.version == version && m.method == method) {
      return &m;
    }
  }
  return nullptr;
}

}  // namespace

void ModuleRegistry::Unloader::operator()(void* handle) const {
  ::dlclose(handle);
}

bool ModuleRegistry::Load(const std::string& path, std::string* error) {
  std::unique_ptr<void, Unloader> handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!handle) {
    *error = "cannot load module " + path + ": " + ::dlerror();
    return false;
  }
  auto* get_table =
      reinterpret_cast<QRIXGetAPITableFunc>(::dlsym(handle.get(), QRIX_API_TABLE_SYMBOL));
  auto* get_checks = reinterpret_cast<QRIXGetAPICheckTableFunc>(
      ::dlsym(handle.get(), QRIX_API_CHECK_TABLE_SYMBOL));
  if (get_table == nullptr || get_checks == nullptr) {
    *error = "module " + path + " does not export " QRIX_API_TABLE_SYMBOL " and " +
             QRIX_API_CHECK_TABLE_SYMBOL;
    return false;
  }
  std::set<std::string> open;
  UploadParams uploads;
  if (!ReadPolicy(path, &open, error, &uploads)) {
    return false;
  }

  std::vector<ApiMethod> added;
  const QRIX::APITableEntry* row = get_table();
  for (size_t i = 0; row != nullptr && row[i].api != nullptr; ++i) {
    if (i == kMaxRows || row[i].method == nullptr || row[i].entry == nullptr) {
      *error = "module " + path + ": API table row " + std::to_string(i + 1) + " is incomplete";
      return false;
    }
    ApiMethod m{row[i].api,   row[i].version, row[i].method,
                row[i].entry, nullptr,        open.count(row[i].api) > 0};
    if (const auto it = uploads.find({m.api, m.method}); it != uploads.end()) {
      m.upload_params = it->second;
    }
    if (FindExact(methods_, row[i].api, row[i].version, row[i].method) != nullptr ||
        FindExact(added, row[i].api, row[i].version, row[i].method) != nullptr) {
      *error = "module " + path + ": " + Name(m) + " is served twice";
      return false;
    }
    added.push_back(std::move(m));
  }
  const QRIX::APICheckTableEntry* check = get_checks();
  for (size_t i = 0; check != nullptr && check[i].api != nullptr; ++i) {
    if (i == kMaxRows || check[i].method == nullptr || check[i].check == nullptr) {
      *error = "module " + path + ": check table row " + std::to_string(i + 1) + " is incomplete";
      return false;
    }
    // Check rows of methods the module does not serve yet are allowed and unused.
    ApiMethod* m = FindExact(added, check[i].api, check[i].version, check[i].method);
    if (m != nullptr) {
      if (m->check != nullptr) {
        *error = "module " + path + ": " + Name(*m) + " has two check functions";
        return false;
      }
      m->check = check[i].check;
    }
  }
  for (const ApiMethod& m : added) {
    if (m.check == nullptr) {
      *error = "module " + path + ": " + Name(m) + " has no check function";
      return false;
    }
  }
  methods_.insert(methods_.end(), added.begin(), added.end());
  handles_.push_back(std::move(handle));
  return true;
}

std::vector<std::string> ModuleRegistry::ApisFor(bool admin) const {
  std::set<std::string> apis;
  for (const ApiMethod& m : methods_) {
    if (admin || m.open_to_every_user) {
      apis.insert(m.api);
    }
  }
  return {apis.begin(), apis.end()};
}

Lookup ModuleRegistry::Find(std::string_view api, int version, std::string_view method,
                            const ApiMethod** found) const {
  bool api_known = false;
  bool version_known = false;
  for (const ApiMethod& m : methods_) {
    if (m.api != api) {
      continue;
    }
    api_known = true;
    if (m.version != version) {
      continue;
    }
    version_known = true;
    if (m.method == method) {
      *found = &m;
      return Lookup::kFound;
    }
  }
  if (!api_known) {
    return Lookup::kUnknownApi;
  }
  return version_known ? Lookup::kUnknownMethod : Lookup::kUnsupportedVersion;
}

}  // namespace qrix::host
