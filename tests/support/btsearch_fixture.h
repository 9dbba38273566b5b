// The search script's test double (tests/fixtures/btsearch.php), installed at the script's real
// path: what it was run with, and the exit status and output a test asks of it.
#ifndef HAULPORT_TESTS_SUPPORT_BTSEARCH_FIXTURE_H_
#define HAULPORT_TESTS_SUPPORT_BTSEARCH_FIXTURE_H_

#include <json/json.h>

#include <map>
#include <string>
#include <vector>

namespace qrix::test {

inline constexpr const char* kBtSearchScript =
    "/var/packages/Haulport/target/ui/dlm/btsearch/btsearch.php";

struct ScriptCall {
  std::vector<std::string> cmdline;  // /usr/bin/php and everything after it
  std::vector<std::string> argv;     // what the script itself got after its path
  Json::Value added;                 // the content of the file after "-a", or null
};

class BtSearchFixture {
 public:
  // Installs the script and forgets earlier calls; it exits 0 and prints nothing until told.
  BtSearchFixture();

  // Exit with `status`, or with `status_for[arg]` for a run that got that argument; print
  // `output`.
  void Answer(int status, const std::map<std::string, int>& status_for = {},
              const std::string& output = "");
  // The runs so far, in order.
  std::vector<ScriptCall> Calls() const;
};

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_BTSEARCH_FIXTURE_H_
