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

// The key of a line, or an empty view for blank, comment, section and malformed lines.
// `value` receives the line's value: the text between the first quote after "=" and the last
// quote of the line when quoted, else the trimmed rest of the line.
std::string_view ParseLine(std::string_view line, std::string_view* value);

// Every key with the value of its first line.
std::unordered_map<std::string, std::string> ParseAll(std::string_view text);

// Replaces the first line of `key` with `line` (which has no newline), drops later lines of the
// same key, or appends `line`. The result ends with a newline.
void ReplaceKey(std::string* text, std::string_view key, std::string_view line);

// Renders a line with the default format (format == nullptr) or a format holding exactly two
// "%s" (key, value) and "%%" for a percent sign. False for any other format.
bool RenderLine(const char* format, std::string_view key, std::string_view value,
                std::string* line);

// A value may hold anything but the bytes that end a line or a C string.
bool IsStorableValue(std::string_view value);
// A key is a non-empty word without quotes, "=", blanks or line breaks.
bool IsStorableKey(std::string_view key);

}  // namespace qrix::kv

#endif  // QRIX_PLATFORM_VLIBC_KV_TEXT_H_
