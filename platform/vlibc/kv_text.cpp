#include "platform/vlibc/kv_text.h"

#include <algorithm>
#include <utility>

namespace qrix::kv {
namespace {

// The bytes a backslash escapes inside sh's double quotes (a newline too, but no value holds
// one).
constexpr std::string_view kShellQuoted = "\"$`\\";

}  // namespace

std::string_view Trim(std::string_view s, std::string_view blanks) {
  const size_t first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

std::string EscapeQuoted(std::string_view value) {
  std::string out;
  out.reserve(value.size() + 8);
  for (const char c : value) {
    if (kShellQuoted.find(c) != std::string_view::npos) {
      out.push_back('\\');
    }
    out.push_back(c);
  }
  return out;
}

std::string UnescapeQuoted(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() &&
        kShellQuoted.find(text[i + 1]) != std::string_view::npos) {
      ++i;
    }
    out.push_back(text[i]);
  }
  return out;
}

std::string_view ParseLine(std::string_view line, std::string* value) {
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  const std::string_view body = Trim(line);
  if (body.empty() || body[0] == '#' || body[0] == ';' || body[0] == '[') {
    return {};
  }
  const size_t eq = body.find('=');
  if (eq == std::string_view::npos) {
    return {};
  }
  const std::string_view key = Trim(body.substr(0, eq));
  const std::string_view rest = Trim(body.substr(eq + 1));
  if (value != nullptr) {
    if (rest.size() >= 2 && rest.front() == '"' && rest.back() == '"') {
      *value = UnescapeQuoted(rest.substr(1, rest.size() - 2));
    } else {
      value->assign(rest);
    }
  }
  return key;
}

std::unordered_map<std::string, std::string> ParseAll(std::string_view text) {
  std::unordered_map<std::string, std::string> values;
  while (!text.empty()) {
    const size_t nl = text.find('\n');
    const std::string_view line = text.substr(0, nl);
    text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
    std::string value;
    const std::string_view key = ParseLine(line, &value);
    if (!key.empty()) {
      values.emplace(key, std::move(value));  // the first line of a key wins
    }
  }
  return values;
}

void ReplaceKey(std::string* text, std::string_view key, std::string_view line) {
  std::string out;
  out.reserve(text->size() + line.size() + 2);
  bool replaced = false;
  std::string_view rest(*text);
  while (!rest.empty()) {
    const size_t nl = rest.find('\n');
    const std::string_view current = rest.substr(0, nl);
    rest = nl == std::string_view::npos ? std::string_view() : rest.substr(nl + 1);
    if (ParseLine(current, nullptr) == key) {
      if (replaced) {
        continue;  // a later duplicate would only shadow nothing and confuse readers
      }
      out.append(line);
      replaced = true;
    } else {
      out.append(current);
    }
    out.push_back('\n');
  }
  if (!replaced) {
    out.append(line);
    out.push_back('\n');
  }
  text->swap(out);
}

bool RenderLine(const char* format, std::string_view key, std::string_view value,
                std::string* line) {
  if (format == nullptr) {
    format = "%s=\"%s\"\n";
  }
  line->clear();
  int used = 0;
  bool quoted = false;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') {
      if (*p != '\n' && *p != '\r') {  // the file supplies its own line breaks
        line->push_back(*p);
      }
      quoted ^= *p == '"';
      continue;
    }
    ++p;
    if (*p == '%') {
      line->push_back('%');
    } else if (*p == 's' && used == 0) {
      line->append(key);
      ++used;
    } else if (*p == 's' && used == 1 && quoted) {
      line->append(EscapeQuoted(value));
      ++used;
    } else {
      return false;
    }
  }
  return used == 2;
}

bool IsStorableValue(std::string_view value) {
  return value.find_first_of(std::string_view("\n\r\0", 3)) == std::string_view::npos;
}

bool IsStorableKey(std::string_view key) {
  return !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-';
  });
}

}  // namespace qrix::kv
