// The INI text: any text parses, and replacing one section leaves exactly the given entries in
// it while every other section keeps its entries. Input: "name\nkey=value\nkey=value\n" then
// the file's text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_check.h"
#include "platform/vlibc/ini_text.h"

namespace {

qrix::ini::Entry TakeEntry(std::string_view* in) {
  const std::string_view line = TakeLine(in);
  const size_t eq = std::min(line.find('='), line.size());  // no "=": a key without a value
  return {std::string(line.substr(0, eq)), std::string(line.substr(std::min(eq + 1, line.size())))};
}

bool SameEntries(const std::vector<qrix::ini::Entry>& a, const std::vector<qrix::ini::Entry>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.key == y.key && x.value == y.value;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  const std::string name(TakeLine(&in));
  const std::vector<qrix::ini::Entry> entries = {TakeEntry(&in), TakeEntry(&in)};
  std::string text(in);

  const std::vector<qrix::ini::Section> before = qrix::ini::ParseSections(text);
  const std::string original = text;
  if (!qrix::ini::ReplaceSection(&text, name, entries)) {
    FUZZ_CHECK(text == original);
    return 0;
  }
  const std::vector<qrix::ini::Section> after = qrix::ini::ParseSections(text);
  const qrix::ini::Section* replaced = qrix::ini::FindSection(after, name);
  FUZZ_CHECK(replaced != nullptr && SameEntries(replaced->entries, entries));
  for (const qrix::ini::Section& section : before) {
    if (section.name == name) {
      continue;
    }
    const qrix::ini::Section* kept = qrix::ini::FindSection(after, section.name);
    FUZZ_CHECK(kept != nullptr && SameEntries(kept->entries, section.entries));
  }
  FUZZ_CHECK(after.size() == before.size() + (qrix::ini::FindSection(before, name) ? 0 : 1));
  return 0;
}
