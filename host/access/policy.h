// Which APIs of a module every logged-in user may call; all others are for administrators.
// The module's descriptor next to its library ("libx.so" -> "libx.policy.json") says:
//   {"open_to_every_user": ["API name", ...]}
// A module without that file serves administrators only.
#ifndef QRIX_HOST_POLICY_H_
#define QRIX_HOST_POLICY_H_

#include <set>
#include <string>

namespace qrix::host {

std::string PolicyPath(const std::string& module_path);

// Fills `open` with the API names open to every user. False with a one-line reason when the
// file exists but cannot be read or does not have that shape.
bool ReadPolicy(const std::string& module_path, std::set<std::string>* open, std::string* error);

}  // namespace qrix::host

#endif  // QRIX_HOST_POLICY_H_
