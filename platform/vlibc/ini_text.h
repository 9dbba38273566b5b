// INI text: "[name]" headers, each followed by key="value" lines. Parsing and replacing one
// section, as text; no I/O. The lines inside a section are the key/value lines of kv_text, so a
// value reads the same in both kinds of file; comments (# or ;) and blank lines are skipped.
#ifndef QRIX_PLATFORM_VLIBC_INI_TEXT_H_
#define QRIX_PLATFORM_VLIBC_INI_TEXT_H_

#include <string>
#include <string_view>
#include <vector>

#include "platform/qrix_export.h"

namespace qrix::ini {

struct Entry {
  std::string key;
  std::string value;
};

struct Section {
  std::string name;            // "" for the lines before the first header
  std::vector<Entry> entries;  // in file order

  // The value of the first line of `key`, or nullptr.
  QRIX_EXPORT const std::string* Find(std::string_view key) const;
};

// Every section in file order. A header seen again adds its lines to the first section of that
// name, so each name appears once; an empty header "[]" continues the unnamed section (the lines
// before the first header), which is listed only when it has entries.
QRIX_EXPORT std::vector<Section> ParseSections(std::string_view text);

// The section `name` of `sections`, or nullptr.
QRIX_EXPORT const Section* FindSection(const std::vector<Section>& sections, std::string_view name);

// Replaces everything under the header of section `name` with `entries` (key="value" lines),
// keeping the header where it is and dropping later sections of the same name, or appends the
// section at the end. Other sections, comments and blank lines stay as they are.
// False, with `text` untouched, when the name, a key or a value cannot be stored.
QRIX_EXPORT bool ReplaceSection(std::string* text, std::string_view name,
                                const std::vector<Entry>& entries);

// A section name is non-empty, without brackets, line breaks, NUL or blanks at either end.
QRIX_EXPORT bool IsStorableSectionName(std::string_view name);

}  // namespace qrix::ini

#endif  // QRIX_PLATFORM_VLIBC_INI_TEXT_H_
