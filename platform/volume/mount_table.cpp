#include "platform/volume/mount_table.h"

#include <charconv>

#include "platform/vlibc/atomic_file.h"

namespace qrix::volume {
namespace {

// mountinfo writes blanks, tabs, newlines and backslashes in paths as \ooo.
std::string Unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && field.size() - i >= 4) {
      int value = 0;
      const auto [end, ec] = std::from_chars(field.data() + i + 1, field.data() + i + 4, value, 8);
      if (ec == std::errc() && end == field.data() + i + 4) {
        out.push_back(static_cast<char>(value));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<std::string_view> Split(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  while (start < line.size()) {
    const size_t end = std::min(line.find(' ', start), line.size());
    if (end > start) {
      fields.push_back(line.substr(start, end - start));
    }
    start = end + 1;
  }
  return fields;
}

bool HasOption(std::string_view options, std::string_view option) {
  size_t start = 0;
  while (start <= options.size()) {
    const size_t end = std::min(options.find(',', start), options.size());
    if (options.substr(start, end - start) == option) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

// The number that makes up all of `digits`, or -1.
int Number(std::string_view digits) {
  int n = -1;
  const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
  return ec == std::errc() && end == digits.data() + digits.size() && !digits.empty() &&
                 digits[0] != '0' && n > 0
             ? n
             : -1;
}

}  // namespace

std::vector<Mount> ParseMountInfo(std::string_view text) {
  std::vector<Mount> mounts;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find('\n', start), text.size());
    const std::vector<std::string_view> f = Split(text.substr(start, end - start));
    start = end + 1;
    // id parent major:minor root mount-point options [optional...] - type source super-options
    size_t dash = 6;
    while (dash < f.size() && f[dash] != "-") {
      ++dash;
    }
    if (dash + 2 >= f.size()) {
      continue;
    }
    Mount m;
    m.mount_point = Unescape(f[4]);
    m.read_only = HasOption(f[5], "ro");
    m.fs_type = std::string(f[dash + 1]);
    m.source = Unescape(f[dash + 2]);
    m.super_read_only = dash + 3 < f.size() && HasOption(f[dash + 3], "ro");
    mounts.push_back(std::move(m));
  }
  return mounts;
}

std::vector<Mount> ReadMounts() {
  std::string text;
  if (ReadFile("/proc/self/mountinfo", &text) != 0) {
    return {};
  }
  return ParseMountInfo(text);
}

Kind VolumeKind(std::string_view mount_point, int* number) {
  struct Prefix {
    std::string_view text;
    Kind kind;
  };
  // Longest first: "/volumeUSB1" must not read as /volume followed by "USB1".
  static constexpr Prefix kPrefixes[] = {
      {"/volumeSATA", Kind::kSata}, {"/volumeUSB", Kind::kUsb}, {"/volume", Kind::kInternal}};
  for (const Prefix& p : kPrefixes) {
    if (mount_point.substr(0, p.text.size()) != p.text) {
      continue;
    }
    std::string_view rest = mount_point.substr(p.text.size());
    const size_t slash = rest.find('/');
    const int n = Number(rest.substr(0, slash));
    if (n < 0) {
      return Kind::kNone;
    }
    // An internal volume is its own mount point; an external disk's volumes are its shares.
    const bool ok = p.kind == Kind::kInternal
                        ? slash == std::string_view::npos
                        : slash != std::string_view::npos && slash + 1 < rest.size() &&
                              rest.find('/', slash + 1) == std::string_view::npos;
    if (!ok) {
      return Kind::kNone;
    }
    if (number != nullptr) {
      *number = n;
    }
    return p.kind;
  }
  return Kind::kNone;
}

std::vector<Mount> VolumeMounts() {
  std::vector<Mount> volumes;
  for (Mount& m : ReadMounts()) {
    if (VolumeKind(m.mount_point) == Kind::kNone) {
      continue;
    }
    std::erase_if(volumes, [&](const Mount& v) { return v.mount_point == m.mount_point; });
    volumes.push_back(std::move(m));
  }
  return volumes;
}

bool VolumeOf(const std::vector<Mount>& volumes, std::string_view path, Mount* out) {
  const Mount* best = nullptr;
  for (const Mount& v : volumes) {
    const std::string_view mp = v.mount_point;
    const bool inside =
        path.substr(0, mp.size()) == mp && (path.size() == mp.size() || path[mp.size()] == '/');
    if (inside && (best == nullptr || mp.size() > best->mount_point.size())) {
      best = &v;
    }
  }
  if (best == nullptr) {
    return false;
  }
  *out = *best;
  return true;
}

}  // namespace qrix::volume
