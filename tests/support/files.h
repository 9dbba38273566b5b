// Small file helpers for tests that prepare and inspect the sandbox's files.
#ifndef HAULPORT_TESTS_SUPPORT_FILES_H_
#define HAULPORT_TESTS_SUPPORT_FILES_H_

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace qrix::test {

// Writes `content` to `path` (plainly, not atomically), creating parent directories.
void WriteText(const std::string& path, const std::string& content);
// The content of `path`, or "" when it cannot be read.
std::string ReadText(const std::string& path);
// Removes `path` if it exists.
void Remove(const std::string& path);
// Parses a key="value" file strictly: every non-empty line must be key="value", the value as
// sh reads it between double quotes (a quote, $ or backquote only after a backslash). Lines
// that are not fail the test that calls it (through the returned `ok` flag).
struct ParsedKv {
  bool ok = true;
  std::string bad_line;
  std::map<std::string, std::string> values;
};
ParsedKv ParseKvStrict(const std::string& text);

// What `sh` reads for `key` when it sources `path` (a word key), or nothing when sh failed.
std::optional<std::string> SourcedValue(const std::string& path, const std::string& key);

// Runs `body(i)` in `n` forked children at once, i from 0; true when every one returned true.
bool InChildren(int n, const std::function<bool(int)>& body);

// Settings file helpers.
inline constexpr const char* kSettingsConf = "/var/packages/Haulport/etc/settings.conf";
void WriteSettings(const std::string& content);
std::map<std::string, std::string> ReadSettings();

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_FILES_H_
