#include "tests/support/files.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/vlibc/process.h"

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
  for (std::string line; parsed.ok && std::getline(in, line);) {
    const size_t eq = line.find('=');
    parsed.ok = line.empty() || (eq != std::string::npos && eq > 0 && line.size() >= eq + 3 &&
                                 line[eq + 1] == '"' && line.back() == '"');
    std::string value;
    // Inside the quotes sh ends the text at a bare quote and expands a bare $ or backquote; a
    // backslash before one of these or before a backslash stands for that byte.
    for (size_t i = eq + 2; parsed.ok && !line.empty() && i + 1 < line.size(); ++i) {
      const char c = line[i];
      parsed.ok = c != '"' && c != '$' && c != '`' && (c != '\\' || i + 2 < line.size());
      i += c == '\\' && std::string_view("\"$`\\").find(line[i + 1]) != std::string_view::npos;
      value.push_back(line[i]);
    }
    if (!parsed.ok) {
      parsed.bad_line = line;
    } else if (!line.empty()) {
      parsed.values.emplace(line.substr(0, eq), std::move(value));
    }
  }
  if (parsed.ok && !text.empty() && text.back() != '\n') {
    parsed.ok = false;
    parsed.bad_line = "(no newline at the end)";
  }
  return parsed;
}

std::optional<std::string> SourcedValue(const std::string& path, const std::string& key) {
  std::string out;
  if (RunProcess({"/bin/sh", "-c", ". " + path + " && printf %s \"$" + key + "\""}, &out) != 0) {
    return std::nullopt;
  }
  return out;
}

bool InChildren(int n, const std::function<bool(int)>& body) {
  std::vector<pid_t> pids;
  for (int i = 0; i < n; ++i) {
    pids.push_back(::fork());
    if (pids.back() == 0) {
      ::_exit(body(i) ? 0 : 1);
    }
  }
  bool ok = true;
  for (const pid_t pid : pids) {
    int status = 0;
    ok = pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0 && ok;
  }
  return ok;
}

void WriteSettings(const std::string& content) {
  WriteText(kSettingsConf, content);
}

std::map<std::string, std::string> ReadSettings() {
  return ParseKvStrict(ReadText(kSettingsConf)).values;
}

}  // namespace qrix::test
