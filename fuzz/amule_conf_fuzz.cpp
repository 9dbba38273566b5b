// The eMule configuration's rewriting for a new temporary volume. Input: the volume's path up
// to the first newline, then the file's text. Any text is rewritten without fault and stays
// within its bounds; a text of ordinary lines keeps every line but "TempDir=" and "Address=",
// which become the volume's temporary directory and an empty address.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_check.h"
#include "module/dlcommon/amule_conf_set.h"

namespace {

std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    lines.push_back(TakeLine(&text));
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  const std::string_view first = TakeLine(&in);
  const std::string volume(first.substr(0, first.find('\0')));

  const std::string out = qrixdl::AmuleConfForVolume(in, volume.c_str());
  // At most one 63-byte line in place of each piece of the input.
  FUZZ_CHECK(out.size() <= in.size() + 64 * (in.size() / 8 + 1));

  const std::string temp_dir = "TempDir=" + volume + "/@download/aMuleTmp";
  const std::vector<std::string_view> before = Lines(in);
  // Only a text of ordinary lines keeps them all.
  if (temp_dir.size() >= 63 || in.find('\0') != std::string_view::npos ||
      (!in.empty() && in.back() != '\n') ||
      std::any_of(before.begin(), before.end(), [](auto line) { return line.size() >= 1000; })) {
    return 0;
  }
  const std::vector<std::string_view> after = Lines(out);
  FUZZ_CHECK(after.size() == before.size() && (out.empty() || out.back() == '\n'));
  for (size_t i = 0; i < before.size(); ++i) {
    const std::string_view want = before[i].starts_with("TempDir=")   ? temp_dir
                                  : before[i].starts_with("Address=") ? "Address="
                                                                      : before[i];
    FUZZ_CHECK(after[i] == want);
  }
  return 0;
}
