// How key/value writes and the file lock meet: while the process holds a lock, writes are
// staged and published together when it lets go.
#ifndef QRIX_PLATFORM_VLIBC_KV_STAGING_H_
#define QRIX_PLATFORM_VLIBC_KV_STAGING_H_

namespace qrix::kv {

// True while this process holds a file lock (file_lock.cpp).
bool StagingActive();

// Publishes every staged write, one atomic rewrite per file, in the order the files were first
// written (kv_file.cpp). Returns 0, or -1 with the error state set when a file could not be
// published; the other files are published all the same.
int PublishStaged();

// -1 when a publish failed since the last call (and forgets it), else 0. The outermost unlock
// reports it, also for writes published early because the process signalled another one.
int TakePublishFailure();

}  // namespace qrix::kv

#endif  // QRIX_PLATFORM_VLIBC_KV_STAGING_H_
