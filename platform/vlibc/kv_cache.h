// The per-process parse of key/value files that serves reads. Every read sees the file as it is
// on disk: an inotify watch on the file's directory tells which parses went stale, so a read of
// an unchanged file costs one cheap ioctl instead of a path lookup or a reopen.
#ifndef QRIX_PLATFORM_VLIBC_KV_CACHE_H_
#define QRIX_PLATFORM_VLIBC_KV_CACHE_H_

#include <string>
#include <string_view>

#include "platform/qrix_export.h"

namespace qrix::kv {

// Many keys read as one read of a file (a whole settings record): while one lives on this
// thread, the cache asks inotify for changes once, at the first lookup, not at every key. In
// this system's virtual machines a system call costs more than the rest of a lookup.
class QRIX_EXPORT ReadBatch {
 public:
  ReadBatch();
  ~ReadBatch();
  ReadBatch(const ReadBatch&) = delete;
  ReadBatch& operator=(const ReadBatch&) = delete;
};

// Looks `key` up in `path` as it is on disk now: 1 found (`value` set), 0 when the key or the
// file is missing, -1 on error (error state set).
int CachedLookUp(std::string_view path, std::string_view key, std::string* value);

}  // namespace qrix::kv

#endif  // QRIX_PLATFORM_VLIBC_KV_CACHE_H_
