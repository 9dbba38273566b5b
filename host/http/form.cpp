#include "host/http/form.h"

#include "host/common/json_text.h"

namespace qrix::host {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

}  // namespace

std::string PercentDecode(std::string_view text, bool plus_is_space) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+' && plus_is_space) {
      out.push_back(' ');
      continue;
    }
    if (c == '%' && i + 2 < text.size()) {
      const int hi = HexDigit(text[i + 1]);
      const int lo = HexDigit(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(c);
  }
  return out;
}

std::vector<std::pair<std::string, std::string>> ParseForm(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> fields;
  while (!text.empty()) {
    const size_t amp = text.find('&');
    const std::string_view field = text.substr(0, amp);
    text = amp == std::string_view::npos ? std::string_view() : text.substr(amp + 1);
    const size_t eq = field.find('=');
    std::string name = PercentDecode(field.substr(0, eq), true);
    if (name.empty()) {
      continue;
    }
    std::string value =
        eq == std::string_view::npos ? std::string() : PercentDecode(field.substr(eq + 1), true);
    fields.emplace_back(std::move(name), std::move(value));
  }
  return fields;
}

Json::Value FieldValue(std::string_view text) {
  Json::Value value;
  if (ParseStrictJson(text, &value)) {
    return value;
  }
  return Json::Value(std::string(text));
}

}  // namespace qrix::host
