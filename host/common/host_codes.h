// The error codes the host answers with itself. Modules never use them for anything else.
#ifndef QRIX_HOST_HOST_CODES_H_
#define QRIX_HOST_HOST_CODES_H_

namespace qrix::host {

enum HostCode : int {
  kNoOutcome = 100,     // the module set neither success nor error on its response
  kMissingField = 101,  // api, version or method missing, or a body that is no request
  kUnknownApi = 102,
  kUnknownMethod = 103,
  kUnsupportedVersion = 104,
  kNotPermitted = 105,  // not for this user, or login refused for the account
  kNotLoggedIn = 106,   // no session, or the session expired
  kBadToken = 107,      // X-QRIX-Token missing or not the session's
  kTooLarge = 108,
  kLockedOut = 109,      // too many failed logins for the account or the address
  kInternalError = 110,  // exception, crash or time limit in the module
  // Login with an unknown account or a wrong password: one answer for both, so that nobody
  // learns which accounts exist.
  kWrongCredentials = 111,
};

// The module's code for an invalid parameter; the host's own API uses it the same way.
inline constexpr int kInvalidParameter = 120;

}  // namespace qrix::host

#endif  // QRIX_HOST_HOST_CODES_H_
