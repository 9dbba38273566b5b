// multipart/form-data decoding, for the uploaded files. The input is parsed as a body as it is;
// then its lines are taken as parts (name, then content, alternately; a name starting with "@"
// names a file), built into a body the way a browser does, and must come back exactly.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_check.h"
#include "host/http/multipart.h"

namespace {

constexpr std::string_view kBoundary = "----fuzzb0undary7MA4YWxk";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  (void)qrix::host::ParseMultipart(in, kBoundary);
  (void)qrix::host::MultipartBoundary(in);

  std::vector<qrix::host::FormPart> parts;
  bool name_line = true;
  for (size_t at = 0; at < in.size(); name_line = !name_line) {
    const size_t nl = std::min(in.find('\n', at), in.size());
    const std::string_view line = in.substr(at, nl - at);
    at = nl + 1;
    if (name_line) {
      qrix::host::FormPart part;
      part.is_file = line.starts_with('@');
      part.name = std::string(part.is_file ? line.substr(1) : line);
      parts.push_back(std::move(part));
    } else {
      parts.back().content = std::string(line);
    }
  }
  std::string body;
  for (const qrix::host::FormPart& p : parts) {
    // A browser escapes these in a name; contents never hold the boundary line.
    if (p.name.empty() || p.name.find_first_of("\"\r\n") != std::string::npos ||
        p.content.find(kBoundary) != std::string::npos) {
      return 0;
    }
    body += "--" + std::string(kBoundary) + "\r\nContent-Disposition: form-data; name=\"" + p.name +
            "\"" + (p.is_file ? "; filename=\"f\"\r\nContent-Type: text/plain" : "") + "\r\n\r\n" +
            p.content + "\r\n";
  }
  body += "--" + std::string(kBoundary) + "--\r\n";
  const auto parsed = qrix::host::ParseMultipart(body, kBoundary);
  FUZZ_CHECK(parsed.has_value());
  FUZZ_CHECK(parsed->size() == parts.size());
  for (size_t i = 0; i < parts.size(); ++i) {
    const qrix::host::FormPart& got = (*parsed)[i];
    FUZZ_CHECK(got.name == parts[i].name && got.is_file == parts[i].is_file &&
               got.content == parts[i].content);
  }
  return 0;
}
