// The key="value" line format, as text: parsing and replacing one key. No I/O here.
#ifndef QRIX_PLATFORM_VLIBC_KV_TEXT_H_
#define QRIX_PLATFORM_VLIBC_KV_TEXT_H_

#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/qrix_export.h"

namespace qrix::kv {

// `s` without the blanks at either end.
QRIX_EXPORT std::string_view Trim(std::string_view s, std::string_view blanks = " \t");

// The package's shell scripts source these files with sh, so a quoted value is written the way
// sh reads double-quoted text: `"`, `$`, backquote and backslash each get a backslash before
// them. Reading undoes exactly that and keeps every other backslash, as sh does, so lines
// written by others without such escapes read as they stand.
std::string EscapeQuoted(std::string_view value);
std::string UnescapeQuoted(std::string_view text);

// The key of a line, or an empty view for blank, comment, section and malformed lines.
// `value` (may be null) receives the line's value: the text between the first quote after "="
// and the last quote of the line, unescaped, when quoted; else the trimmed rest of the line.
std::string_view ParseLine(std::string_view line, std::string* value);

// Every key with the value of its first line.
std::unordered_map<std::string, std::string> ParseAll(std::string_view text);

// Replaces the first line of `key` with `line` (which has no newline), drops later lines of the
// same key, or appends `line`. The result ends with a newline.
void ReplaceKey(std::string* text, std::string_view key, std::string_view line);

// Renders a line with the default format (format == nullptr) or a format holding exactly two
// "%s" (key, value) and "%%" for a percent sign, the value's "%s" between double quotes; the
// value is escaped (EscapeQuoted). False for any other format: an unquoted value is one sh
// would split, expand or run.
bool RenderLine(const char* format, std::string_view key, std::string_view value,
                std::string* line);

// A value may hold anything but the bytes that end a line or a C string.
bool IsStorableValue(std::string_view value);
// A key is a non-empty word of letters, digits, "_", "." and "-": nothing sh would expand.
bool IsStorableKey(std::string_view key);

}  // namespace qrix::kv

#endif  // QRIX_PLATFORM_VLIBC_KV_TEXT_H_
