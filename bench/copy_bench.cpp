// QRIXFileCopyDirectory against `cp -a` on the same tree, in one run: a download folder of at
// least 1 GiB, many small files and a few large ones, copied within one file system (as a
// volume move copies within the machine's storage). The copiers take turns, five runs each;
// throughput is the tree's bytes over the wall time of the copy, and over the copy followed by
// sync() (the data on the disk), as medians.
//   copy_bench [DIR]    works in a new folder under DIR (default: $TMPDIR, else /var/tmp), which
//                       needs over 2 GiB free, and removes that folder afterwards.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/vlibc/process.h"
#include "platform/volume/file_copy.h"

namespace {

namespace fs = std::filesystem;

constexpr int kDirs = 64;
constexpr int kFilesPerDir = 256;  // 16384 small files, 1 to 31 KiB: ~256 MiB
constexpr int kLargeFiles = 3;     // and three of 256 MiB
constexpr uint64_t kLargeBytes = 256ull << 20;
constexpr int kRounds = 5;

uint64_t MakeTree(const fs::path& root) {
  std::mt19937 random(42);
  std::vector<char> block(1 << 20);
  for (char& c : block) {
    c = static_cast<char>(random());
  }
  uint64_t total = 0;
  for (int d = 0; d < kDirs; ++d) {
    const fs::path dir = root / ("task" + std::to_string(d));
    fs::create_directories(dir);
    for (int f = 0; f < kFilesPerDir; ++f) {
      const size_t size = (1 + random() % 31) * 1024;
      std::ofstream(dir / ("piece" + std::to_string(f)), std::ios::binary)
          .write(block.data() + random() % (block.size() - size), static_cast<long>(size));
      total += size;
    }
    fs::create_symlink("piece0", dir / "latest");
  }
  for (int f = 0; f < kLargeFiles; ++f) {
    std::ofstream out(root / ("large" + std::to_string(f) + ".iso"), std::ios::binary);
    for (uint64_t written = 0; written < kLargeBytes; written += block.size()) {
      out.write(block.data(), static_cast<long>(block.size()));
    }
    total += kLargeBytes;
  }
  return total;
}

struct Timing {
  double copy;  // until the copier returned: the data may still be in the page cache
  double disk;  // until sync() returned too: the data is on the disk
};

Timing Time(const std::function<bool()>& copy) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  if (!copy()) {
    std::fprintf(stderr, "copy_bench: a copy failed\n");
    std::exit(1);
  }
  const auto copied = Clock::now();
  ::sync();
  const auto synced = Clock::now();
  return {std::chrono::duration<double>(copied - start).count(),
          std::chrono::duration<double>(synced - start).count()};
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const char* tmp = std::getenv("TMPDIR");
  const std::string parent = argc > 1 ? argv[1] : tmp != nullptr ? tmp : "/var/tmp";
  // A folder of its own: DIR itself may hold anything and is never removed.
  const fs::path root = fs::path(parent) / ("copy_bench." + std::to_string(::getpid()));
  const fs::path source = root / "source";
  const fs::path target = root / "target";
  fs::create_directories(source);
  std::printf("making the tree in %s ...\n", source.c_str());
  const uint64_t bytes = MakeTree(source);
  ::sync();
  std::printf("tree: %d small files, %d large, %.2f GiB\n", kDirs * kFilesPerDir, kLargeFiles,
              static_cast<double>(bytes) / (1ull << 30));

  const QRIX_COPY_OPTIONS keep_all = {1, 1, 1, 1, {}};
  const std::function<bool()> ours = [&] {
    return QRIXFileCopyDirectory(source.c_str(), target.c_str(), &keep_all) == 0;
  };
  const std::function<bool()> cp = [&] {
    return qrix::RunProcess({"/bin/cp", "-a", source.string(), target.string()}) == 0;
  };
  // Alternating who goes first, so that neither always meets a disk still busy with the
  // other's data; medians, so that one disturbed run (the machine is shared) decides nothing.
  const double mib = static_cast<double>(bytes) / (1 << 20);
  std::vector<double> copy[2], disk[2];  // [0] ours, [1] cp -a
  for (int round = 0; round < kRounds; ++round) {
    for (const int who : {round % 2, 1 - round % 2}) {
      fs::remove_all(target);
      ::sync();
      const Timing t = Time(who == 0 ? ours : cp);
      copy[who].push_back(t.copy);
      disk[who].push_back(t.disk);
      std::printf("round %d %-22s copy %6.2f s %7.1f MiB/s   with sync %6.2f s %7.1f MiB/s\n",
                  round + 1, who == 0 ? "QRIXFileCopyDirectory" : "cp -a", t.copy, mib / t.copy,
                  t.disk, mib / t.disk);
    }
  }
  for (const auto& [name, times] : {std::pair{"copy", copy}, {"with sync", disk}}) {
    const double ours_s = Median(times[0]);
    const double cp_s = Median(times[1]);
    std::printf(
        "median %-9s QRIXFileCopyDirectory %7.1f MiB/s, cp -a %7.1f MiB/s: %.0f%% of cp -a\n", name,
        mib / ours_s, mib / cp_s, 100 * cp_s / ours_s);
  }
  std::printf("(target: at least 90%% of cp -a)\n");
  fs::remove_all(root);
  return 0;
}
