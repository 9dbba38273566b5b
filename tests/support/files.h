// Small file helpers for tests that prepare and inspect the sandbox's files.
#ifndef HAULPORT_TESTS_SUPPORT_FILES_H_
#define HAULPORT_TESTS_SUPPORT_FILES_H_

#include <map>
#include <string>

namespace qrix::test {

// Writes `content` to `path` (plainly, not atomically), creating parent directories.
void WriteText(const std::string& path, const std::string& content);
// The content of `path`, or "" when it cannot be read.
std::string ReadText(const std::string& path);
// Removes `path` if it exists.
void Remove(const std::string& path);
// Parses a key="value" file strictly: every non-empty line must be key="value". Lines that
// are not fail the test that calls it (through the returned `ok` flag).
struct ParsedKv {
  bool ok = true;
  std::string bad_line;
  std::map<std::string, std::string> values;
};
ParsedKv ParseKvStrict(const std::string& text);

// Settings file helpers.
inline constexpr const char* kSettingsConf = "/var/packages/Haulport/etc/settings.conf";
void WriteSettings(const std::string& content);
std::map<std::string, std::string> ReadSettings();

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_FILES_H_
