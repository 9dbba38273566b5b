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
  const auto bad = [&parsed](std::string line) {
    parsed.ok = false;
    parsed.bad_line = std::move(line);
    return parsed;
  };
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty()) {
      continue;
    }
    const size_t eq = line.find('=');
    if (eq == std::string::npos || eq == 0 || line.size() < eq + 3 || line[eq + 1] != '"' ||
        line.back() != '"') {
      return bad(line);
    }
    // Inside the quotes sh ends the text at a bare quote and expands a bare $ or backquote; a
    // backslash before one of these or before a backslash stands for that byte.
    const std::string_view quoted = std::string_view(line).substr(eq + 2, line.size() - eq - 3);
    std::string value;
    for (size_t i = 0; i < quoted.size(); ++i) {
      const char c = quoted[i];
      if (c == '"' || c == '$' || c == '`' || (c == '\\' && i + 1 == quoted.size())) {
        return bad(line);
      }
      if (c == '\\' && std::string_view("\"$`\\").find(quoted[i + 1]) != std::string_view::npos) {
        ++i;
      }
      value.push_back(quoted[i]);
    }
    parsed.values.emplace(line.substr(0, eq), std::move(value));
  }
  if (!text.empty() && text.back() != '\n') {
    return bad("(no newline at the end)");
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
