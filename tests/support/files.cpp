#include "tests/support/files.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace qrix::test {

void WriteText(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void Remove(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

ParsedKv ParseKvStrict(const std::string& text) {
  ParsedKv parsed;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty()) {
      continue;
    }
    const size_t eq = line.find('=');
    if (eq == std::string::npos || eq == 0 || line.size() < eq + 3 || line[eq + 1] != '"' ||
        line.back() != '"') {
      parsed.ok = false;
      parsed.bad_line = line;
      return parsed;
    }
    parsed.values.emplace(line.substr(0, eq), line.substr(eq + 2, line.size() - eq - 3));
  }
  if (!text.empty() && text.back() != '\n') {
    parsed.ok = false;
    parsed.bad_line = "(no newline at the end)";
  }
  return parsed;
}

void WriteSettings(const std::string& content) { WriteText(kSettingsConf, content); }

std::map<std::string, std::string> ReadSettings() {
  return ParseKvStrict(ReadText(kSettingsConf)).values;
}

}  // namespace qrix::test
