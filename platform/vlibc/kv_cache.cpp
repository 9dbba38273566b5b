#include "platform/vlibc/kv_cache.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/kv_text.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace qrix::kv {
namespace {

// Maps keyed by std::string that can be searched with a string_view.
struct TransparentHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};
template <typename V>
using StringMap = std::unordered_map<std::string, V, TransparentHash, std::equal_to<>>;

struct Identity {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = -1;
  timespec mtime{};
  timespec ctime{};

  static Identity Of(const struct stat& st) {
    return {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
  }
  bool operator==(const Identity& o) const {
    return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
           mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
           ctime.tv_nsec == o.ctime.tv_nsec;
  }
};

struct Entry {
  std::string dir;
  Identity identity;
  bool exists = false;
  // True while the directory's watch vouches that nothing changed since the last check.
  bool trusted = false;
  StringMap<std::string> values;
};

thread_local int t_batch_depth = 0;
thread_local bool t_batch_checked = false;

constexpr uint32_t kWatchMask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM |
                                IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR;

class ReadCache {
 public:
  static ReadCache& Get() {
    static ReadCache* cache = [] {
      auto* c = new ReadCache();  // lives as long as the process; never destroyed mid-read
      pthread_atfork(nullptr, nullptr, [] { Get().ForgetAfterFork(); });
      return c;
    }();
    return *cache;
  }

  int LookUp(std::string_view path, std::string_view key, std::string* value) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!t_batch_checked) {
      DrainEvents();
      t_batch_checked = t_batch_depth > 0;
    }
    auto it = entries_.find(path);
    if (it == entries_.end() || !it->second.trusted) {
      it = entries_.try_emplace(std::string(path)).first;
      if (const int rc = Revalidate(it->first, it->second); rc < 0) {
        entries_.erase(it);
        return rc;
      }
    }
    const Entry& entry = it->second;
    if (!entry.exists) {
      return 0;
    }
    const auto found = entry.values.find(key);
    if (found == entry.values.end()) {
      return 0;
    }
    *value = found->second;
    return 1;
  }

 private:
  ReadCache() { OpenWatcher(); }

  void OpenWatcher() {
    inotify_.Reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));  // without it: stat every read
  }

  // A forked child shares the parent's inotify queue; draining it would steal the parent's
  // events, so the child starts its own.
  void ForgetAfterFork() {
    inotify_.Release();
    watches_.clear();
    watched_dirs_.clear();
    for (auto& [path, entry] : entries_) {
      entry.trusted = false;
    }
    OpenWatcher();
  }

  // True when `dir` is watched from now on.
  bool Watch(const std::string& dir) {
    if (!inotify_.Valid()) {
      return false;
    }
    if (watched_dirs_.count(dir) != 0) {
      return true;
    }
    const int wd = ::inotify_add_watch(inotify_.Get(), dir.c_str(), kWatchMask);
    if (wd < 0) {
      return false;
    }
    watches_[wd] = dir;
    watched_dirs_.emplace(dir, wd);
    return true;
  }

  void Untrust(const std::string& dir) {
    for (auto& [path, entry] : entries_) {
      if (entry.dir == dir) {
        entry.trusted = false;
      }
    }
  }

  void DrainEvents() {
    int pending = 0;
    if (!inotify_.Valid() || ::ioctl(inotify_.Get(), FIONREAD, &pending) != 0 || pending <= 0) {
      return;
    }
    std::vector<char> buf(static_cast<size_t>(pending));
    const ssize_t n = ::read(inotify_.Get(), buf.data(), buf.size());
    for (ssize_t off = 0; off < n;) {
      const auto* ev = reinterpret_cast<const inotify_event*>(buf.data() + off);
      off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
      if ((ev->mask & IN_Q_OVERFLOW) != 0) {
        for (auto& [path, entry] : entries_) {
          entry.trusted = false;
        }
        continue;
      }
      const auto w = watches_.find(ev->wd);
      if (w == watches_.end()) {
        continue;
      }
      Untrust(w->second);
      if ((ev->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0) {
        // The directory went away or moved: the next read watches whatever is there now.
        if ((ev->mask & IN_IGNORED) == 0) {
          ::inotify_rm_watch(inotify_.Get(), ev->wd);
        }
        watched_dirs_.erase(w->second);
        watches_.erase(w);
      }
    }
  }

  // Brings `entry` in line with the file on disk. 0, or -1 with the error state set.
  int Revalidate(const std::string& path, Entry& entry) {
    entry.dir = DirName(path);
    // Watch first: a change after this point is reported even if it races the read below.
    const bool watched = Watch(entry.dir);
    struct stat link {};
    if (::lstat(path.c_str(), &link) != 0) {
      if (errno != ENOENT && errno != ENOTDIR) {
        VLIBCErrSet(ERR_FILE_OPEN);
        return -1;
      }
      entry.exists = false;
      entry.values.clear();
      entry.trusted = watched && errno == ENOENT;
      return 0;
    }
    // A symbolic link's target may live anywhere: such files are checked on every read.
    const bool is_link = S_ISLNK(link.st_mode);
    struct stat st = link;
    if (is_link && ::stat(path.c_str(), &st) != 0) {
      entry.exists = false;
      entry.values.clear();
      entry.trusted = false;
      return errno == ENOENT ? 0 : (VLIBCErrSet(ERR_FILE_OPEN), -1);
    }
    if (!entry.exists || !(entry.identity == Identity::Of(st))) {
      UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
      struct stat opened {};
      std::string text;
      if (!fd.Valid() || ::fstat(fd.Get(), &opened) != 0 || ReadFd(fd.Get(), &text) != 0) {
        if (errno == ENOENT) {
          entry.exists = false;
          entry.trusted = false;
          return 0;
        }
        VLIBCErrSet(ERR_FILE_READ);
        return -1;
      }
      entry.identity = Identity::Of(opened);
      entry.values.clear();
      for (auto& [k, v] : ParseAll(text)) {
        entry.values.emplace(k, std::move(v));
      }
      entry.exists = true;
    }
    entry.trusted = watched && !is_link;
    return 0;
  }

  std::mutex mutex_;
  UniqueFd inotify_;
  std::unordered_map<int, std::string> watches_;  // watch descriptor -> directory
  StringMap<int> watched_dirs_;
  StringMap<Entry> entries_;
};

}  // namespace

ReadBatch::ReadBatch() {
  ++t_batch_depth;
}

ReadBatch::~ReadBatch() {
  if (--t_batch_depth == 0) {
    t_batch_checked = false;
  }
}

int CachedLookUp(std::string_view path, std::string_view key, std::string* value) {
  return ReadCache::Get().LookUp(path, key, value);
}

}  // namespace qrix::kv
