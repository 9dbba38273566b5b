// Which APIs of a module every logged-in user may call; all others are for administrators. And
// which parameters only an uploaded file may fill. The module's descriptor next to its library
// ("libx.so" -> "libx.policy.json") says:
//   {"open_to_every_user": ["API name", ...],
//    "uploads": {"API name": {"method": ["parameter", ...]}}}
// A module without that file serves administrators only and takes no uploads. The file must be
// root's (or the host's own account's) and writable by no other account: whoever may write it
// decides what every user may change.
#ifndef QRIX_HOST_POLICY_H_
#define QRIX_HOST_POLICY_H_

#include <map>
#include <set>
#include <string>
#include <utility>

namespace qrix::host {

// (API, method) -> the parameters filled only from an uploaded file.
using UploadParams = std::map<std::pair<std::string, std::string>, std::set<std::string>>;

std::string PolicyPath(const std::string& module_path);

// Fills `open` with the API names open to every user. False with a one-line reason when the
// file exists but cannot be read or does not have that shape.
// With `uploads`, fills it from "uploads" too.
bool ReadPolicy(const std::string& module_path, std::set<std::string>* open, std::string* error,
                UploadParams* uploads = nullptr);

}  // namespace qrix::host

#endif  // QRIX_HOST_POLICY_H_
