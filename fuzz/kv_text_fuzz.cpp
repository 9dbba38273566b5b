// The key/value line format: any text parses, and setting one key in it reads back exactly
// while every other key keeps its value. Input: "key\nvalue\n" then the file's text.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.h"
#include "platform/vlibc/kv_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  const std::string key(TakeLine(&in));
  const std::string value(TakeLine(&in));
  std::string text(in);

  const auto before = qrix::kv::ParseAll(text);
  std::string line;
  if (!qrix::kv::IsStorableKey(key) || !qrix::kv::IsStorableValue(value) ||
      !qrix::kv::RenderLine(nullptr, key, value, &line)) {
    return 0;
  }
  qrix::kv::ReplaceKey(&text, key, line);
  FUZZ_CHECK(!text.empty() && text.back() == '\n');
  const auto after = qrix::kv::ParseAll(text);
  FUZZ_CHECK(after.count(key) == 1 && after.at(key) == value);
  for (const auto& [k, v] : before) {
    FUZZ_CHECK(k == key || (after.count(k) == 1 && after.at(k) == v));
  }
  FUZZ_CHECK(after.size() == before.size() + (before.count(key) == 0 ? 1 : 0));
  return 0;
}
