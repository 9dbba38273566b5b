#include "host/http/multipart.h"

#include <algorithm>
#include <cctype>

namespace qrix::host {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

// The value of parameter `key` in a header value such as `form-data; name="a"; filename="b"`:
// quoted or a bare token. nullopt when absent or malformed.
std::optional<std::string> HeaderParameter(std::string_view value, std::string_view key) {
  size_t pos = value.find(';');
  while (pos != std::string_view::npos) {
    std::string_view rest = Trim(value.substr(pos + 1));
    const size_t eq = rest.find('=');
    if (eq == std::string_view::npos) {
      return std::nullopt;
    }
    const bool wanted = Lower(Trim(rest.substr(0, eq))) == key;
    rest = Trim(rest.substr(eq + 1));
    std::string parsed;
    size_t used = 0;
    if (!rest.empty() && rest.front() == '"') {
      // Browsers write a quote, CR and LF in a name as %22, %0D and %0A and leave a backslash
      // as it is, so a quoted value runs to the next quote.
      for (used = 1; used < rest.size() && rest[used] != '"'; ++used) {
        parsed += rest[used];
      }
      if (used >= rest.size()) {
        return std::nullopt;  // unterminated quote
      }
      ++used;
    } else {
      used = std::min(rest.find(';'), rest.size());
      parsed = std::string(Trim(rest.substr(0, used)));
    }
    if (wanted) {
      return parsed;
    }
    const size_t next = rest.find(';', used);
    pos = next == std::string_view::npos ? std::string_view::npos
                                         : static_cast<size_t>(rest.data() + next - value.data());
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> MultipartBoundary(std::string_view content_type) {
  const std::string type = Lower(Trim(content_type.substr(0, content_type.find(';'))));
  if (type != "multipart/form-data") {
    return std::nullopt;
  }
  std::optional<std::string> boundary = HeaderParameter(content_type, "boundary");
  // RFC 2046: 1 to 70 characters.
  if (!boundary || boundary->empty() || boundary->size() > 70) {
    return std::nullopt;
  }
  return boundary;
}

std::optional<std::vector<FormPart>> ParseMultipart(std::string_view body,
                                                    std::string_view boundary) {
  const std::string delimiter = "--" + std::string(boundary);
  // The body opens with the first delimiter (a preamble before it is allowed and ignored).
  size_t pos = body.find(delimiter);
  if (pos == std::string_view::npos) {
    return std::nullopt;
  }
  std::vector<FormPart> parts;
  const std::string next_delimiter = "\r\n" + delimiter;
  for (;;) {
    pos += delimiter.size();
    if (body.substr(pos, 2) == "--") {
      return parts;  // the closing delimiter; an epilogue after it is ignored
    }
    if (body.substr(pos, 2) != "\r\n") {
      return std::nullopt;
    }
    pos += 2;
    const size_t head_end = body.find("\r\n\r\n", pos);
    const size_t end =
        head_end == std::string_view::npos ? head_end : body.find(next_delimiter, head_end + 4);
    if (end == std::string_view::npos) {
      return std::nullopt;  // a part without its end: the body was cut
    }
    FormPart part;
    bool named = false;
    std::string_view headers = body.substr(pos, head_end - pos);
    while (!headers.empty()) {
      const size_t eol = std::min(headers.find("\r\n"), headers.size());
      const std::string_view line = headers.substr(0, eol);
      headers.remove_prefix(std::min(eol + 2, headers.size()));
      const size_t colon = line.find(':');
      if (colon == std::string_view::npos) {
        return std::nullopt;
      }
      if (Lower(Trim(line.substr(0, colon))) != "content-disposition") {
        continue;
      }
      const std::string_view value = Trim(line.substr(colon + 1));
      if (Lower(value.substr(0, value.find(';'))) != "form-data") {
        return std::nullopt;
      }
      if (std::optional<std::string> name = HeaderParameter(value, "name")) {
        part.name = std::move(*name);
        named = !part.name.empty();
      }
      part.is_file = HeaderParameter(value, "filename").has_value();
    }
    if (!named) {
      return std::nullopt;
    }
    part.content = std::string(body.substr(head_end + 4, end - head_end - 4));
    parts.push_back(std::move(part));
    pos = end + 2;
  }
}

}  // namespace qrix::host
