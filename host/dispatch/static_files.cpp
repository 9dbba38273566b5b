#include "host/dispatch/static_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/http/form.h"
#include "platform/vlibc/atomic_file.h"

namespace qrix::host {
namespace {

struct ContentTypeRow {
  std::string_view extension;
  std::string_view type;
};

constexpr ContentTypeRow kContentTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".htm", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".json", "application/json"},
    {".map", "application/json"},
    {".txt", "text/plain; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
    {".jpeg", "image/jpeg"},
    {".gif", "image/gif"},
    {".webp", "image/webp"},
    {".ico", "image/x-icon"},
    {".woff", "font/woff"},
    {".woff2", "font/woff2"},
};

constexpr std::string_view kIndex = "index.html";

std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? std::string(real.get()) : std::string();
}

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool IsRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::string_view ContentTypeOf(std::string_view file_name) {
  const size_t dot = file_name.rfind('.');
  if (dot != std::string_view::npos) {
    std::string extension(file_name.substr(dot));
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const ContentTypeRow& row : kContentTypes) {
      if (row.extension == extension) {
        return row.type;
      }
    }
  }
  return "application/octet-stream";
}

StaticFiles::StaticFiles(std::string root) : root_(std::move(root)), enabled_(!root_.empty()) {}

bool StaticFiles::Prepare(std::string* error) {
  if (!enabled_) {
    return true;
  }
  const std::string real = RealPath(root_);
  if (real.empty() || !IsDirectory(real)) {
    *error = "cannot serve web page directory " + root_ + ": " +
             (real.empty() ? std::strerror(errno) : "not a directory");
    return false;
  }
  root_ = real == "/" ? std::string() : real;  // paths are joined as root_ + "/..."
  return true;
}

std::string StaticFiles::Resolve(std::string_view request_path) const {
  const std::string decoded = PercentDecode(request_path, false);
  if (decoded.empty() || decoded.front() != '/' || decoded.find('\0') != std::string::npos ||
      decoded.find('\\') != std::string::npos) {
    return {};
  }
  // Dot segments ("..", ".") and dot files are refused outright, before any resolving.
  std::string relative;
  size_t start = 1;
  while (start <= decoded.size()) {
    size_t end = decoded.find('/', start);
    if (end == std::string::npos) {
      end = decoded.size();
    }
    const std::string_view segment(decoded.data() + start, end - start);
    if (!segment.empty()) {
      if (segment.front() == '.') {
        return {};
      }
      relative += "/";
      relative += segment;
    }
    start = end + 1;
  }
  std::string candidate = root_ + relative;
  if (IsDirectory(candidate)) {
    candidate += "/";
    candidate += kIndex;
  }
  const std::string real = RealPath(candidate);
  if (real.size() <= root_.size() + 1 || real.compare(0, root_.size(), root_) != 0 ||
      real[root_.size()] != '/' || !IsRegularFile(real)) {
    return {};
  }
  return real;
}

HttpResponse StaticFiles::Serve(std::string_view method, std::string_view path) const {
  if (method != "GET" && method != "HEAD") {
    HttpResponse out = TextResponse(405, "method not allowed");
    out.Add("Allow", "GET, HEAD");
    return out;
  }
  const std::string file = enabled_ ? Resolve(path) : std::string();
  std::string content;
  if (file.empty() || ReadFile(file, &content) != 0) {
    return TextResponse(404, "not found");
  }
  HttpResponse out;
  out.Add("Content-Type", std::string(ContentTypeOf(file)));
  out.Add("Cache-Control", "no-cache");
  out.Add("X-Content-Type-Options", "nosniff");
  out.Add("X-Frame-Options", "DENY");
  out.Add("Referrer-Policy", "no-referrer");
  out.body = std::move(content);
  out.head_only = method == "HEAD";
  return out;
}

}  // namespace qrix::host
