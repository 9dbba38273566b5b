// System accounts and shares for tests: lines appended to the sandbox's /etc/passwd and
// /etc/group (bind mounts: changed in place), and the shares file.
#ifndef HAULPORT_TESTS_SUPPORT_ACCOUNTS_H_
#define HAULPORT_TESTS_SUPPORT_ACCOUNTS_H_

#include <sys/types.h>

#include <string>

namespace qrix::test {

// Adds the account (primary group "users", 100) unless one of that name exists.
void AddAccount(const std::string& name, uid_t uid);

// Writes the shares file and makes each share's folder: `ini` holds the sections.
void WriteShares(const std::string& ini);

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_ACCOUNTS_H_
