// The disk's part of a "set": the platform's atomic publication of a settings-sized file
// (temporary file, fsync, rename, fsync of the directory), timed alone, so that what a set costs
// beyond it can be told apart. Prints one line of key=value figures, as http_load does.
//
//   durable_write DIR [--writes N]    rewrites DIR/settings.conf N times (default 2000, after
//                                     100 unmeasured), and removes it afterwards.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/http/latency_stats.h"
#include "platform/vlibc/atomic_file.h"

namespace {

constexpr int kWarmup = 100;
constexpr std::size_t kFileBytes = 900;  // the demo's settings file

}  // namespace

int main(int argc, char** argv) {
  int writes = 2000;
  if (argc == 4 && std::string(argv[2]) == "--writes") {
    writes = std::atoi(argv[3]);
  }
  if ((argc != 2 && argc != 4) || writes <= 0) {
    std::fprintf(stderr, "usage: durable_write DIR [--writes N]\n");
    return 2;
  }
  const std::string path = std::string(argv[1]) + "/settings.conf";
  std::string content(kFileBytes, 'k');
  std::vector<int64_t> samples;
  samples.reserve(static_cast<std::size_t>(writes));
  for (int i = -kWarmup; i < writes; ++i) {
    content[0] = static_cast<char>('a' + (i & 15));  // each write a change, as a set's is
    const auto start = std::chrono::steady_clock::now();
    if (const int err = qrix::PublishFile(path, content)) {
      std::fprintf(stderr, "durable_write: %s: error %d\n", path.c_str(), err);
      return 1;
    }
    if (i >= 0) {
      samples.push_back(std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::steady_clock::now() - start)
                            .count());
    }
  }
  std::remove(path.c_str());
  const auto s = qrix::bench::Summarize(std::move(samples));
  std::printf("writes=%llu p50_us=%lld p99_us=%lld mean_us=%.0f max_us=%lld\n",
              static_cast<unsigned long long>(s.count), static_cast<long long>(s.p50_us),
              static_cast<long long>(s.p99_us), s.mean_us, static_cast<long long>(s.max_us));
  return 0;
}
