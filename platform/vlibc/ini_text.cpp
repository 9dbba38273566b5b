#include "platform/vlibc/ini_text.h"

#include "platform/vlibc/kv_text.h"

namespace qrix::ini {
namespace {

// INI lines may end in a carriage return.
std::string_view Trim(std::string_view s) {
  return kv::Trim(s, " \t\r");
}

// True when `line` is a section header; `name` receives the trimmed text between the brackets.
bool ParseHeader(std::string_view line, std::string_view* name) {
  const std::string_view body = Trim(line);
  if (body.size() < 2 || body.front() != '[' || body.back() != ']') {
    return false;
  }
  *name = Trim(body.substr(1, body.size() - 2));
  return true;
}

// Calls `visit(line)` for each line of `text`, without its newline.
template <typename Visit>
void ForEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const size_t nl = text.find('\n');
    visit(text.substr(0, nl));
    text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
  }
}

}  // namespace

const std::string* Section::Find(std::string_view key) const {
  for (const Entry& e : entries) {
    if (e.key == key) {
      return &e.value;
    }
  }
  return nullptr;
}

std::vector<Section> ParseSections(std::string_view text) {
  std::vector<Section> sections(1);  // the unnamed one, dropped at the end when empty
  size_t current = 0;
  ForEachLine(text, [&](std::string_view line) {
    std::string_view name;
    if (ParseHeader(line, &name)) {
      current = sections.size();
      for (size_t i = 0; i < sections.size(); ++i) {  // "[]" continues the unnamed one
        if (sections[i].name == name) {
          current = i;
        }
      }
      if (current == sections.size()) {
        sections.push_back({std::string(name), {}});
      }
      return;
    }
    std::string value;
    const std::string_view key = kv::ParseLine(line, &value);
    if (!key.empty()) {
      sections[current].entries.push_back({std::string(key), std::move(value)});
    }
  });
  if (sections.front().entries.empty()) {
    sections.erase(sections.begin());
  }
  return sections;
}

const Section* FindSection(const std::vector<Section>& sections, std::string_view name) {
  for (const Section& s : sections) {
    if (s.name == name) {
      return &s;
    }
  }
  return nullptr;
}

bool ReplaceSection(std::string* text, std::string_view name, const std::vector<Entry>& entries) {
  if (!IsStorableSectionName(name)) {
    return false;
  }
  std::string body = "[" + std::string(name) + "]\n";
  for (const Entry& e : entries) {
    std::string line;
    if (!kv::IsStorableKey(e.key) || !kv::IsStorableValue(e.value) ||
        !kv::RenderLine(nullptr, e.key, e.value, &line)) {
      return false;
    }
    body.append(line).push_back('\n');
  }

  std::string out;
  out.reserve(text->size() + body.size() + 1);
  enum { kKeep, kSkip } mode = kKeep;
  bool written = false;
  ForEachLine(*text, [&](std::string_view line) {
    std::string_view header;
    if (ParseHeader(line, &header)) {
      if (header == name) {
        if (!written) {
          out.append(body);
          written = true;
        }
        mode = kSkip;
        return;
      }
      if (mode == kSkip) {
        out.push_back('\n');  // keep sections apart after the replaced body
      }
      mode = kKeep;
    }
    if (mode == kKeep) {
      out.append(line).push_back('\n');
    }
  });
  if (!written) {
    if (!out.empty() && !out.ends_with("\n\n")) {
      out.push_back('\n');  // a blank line before the new section
    }
    out.append(body);
  }
  text->swap(out);
  return true;
}

bool IsStorableSectionName(std::string_view name) {
  return !name.empty() && Trim(name) == name &&
         name.find_first_of(std::string_view("[]\n\r\0", 5)) == std::string_view::npos;
}

}  // namespace qrix::ini
