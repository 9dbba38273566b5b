// The settings store's costs, measured inside the sandbox on the real settings path:
//  - QRIXDLInfoGet against 45 open+read+close of the same file (the work a reader without the
//    platform's parse cache would do);
//  - a 12-key CommitQueue::Flush against twelve single-key writes, with the fsync count.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "module/common/api_utils.h"
#include "module/dlcommon/download_info.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/vlibc_file.h"
#include "platform/webapi/api_validator.h"

namespace {

std::atomic<long> g_fsyncs{0};

// A settings file as a device has it after a while: the 45 record keys and some others.
void SeedSettings() {
  std::string text;
  DownloadInfo info{};
  QRIXDLInfoGet(&info);
  qrix::PublishFile(QRIXDL_SETTINGS_CONF, "");
  QRIXDLInfoSet(&info);
  for (int i = 0; i < 40; ++i) {
    VLIBCFileSetKeyValue(QRIXDL_SETTINGS_CONF, ("download_extra_" + std::to_string(i)).c_str(),
                         "some value of a typical length", nullptr);
  }
}

void BM_QRIXDLInfoGet(benchmark::State& state) {
  SeedSettings();
  DownloadInfo info;
  for (auto _ : state) {
    benchmark::DoNotOptimize(QRIXDLInfoGet(&info));
  }
}
BENCHMARK(BM_QRIXDLInfoGet);

void BM_45OpenReadClose(benchmark::State& state) {
  SeedSettings();
  char buf[8192];
  for (auto _ : state) {
    for (int i = 0; i < 45; ++i) {
      const int fd = ::open(QRIXDL_SETTINGS_CONF, O_RDONLY | O_CLOEXEC);
      benchmark::DoNotOptimize(::read(fd, buf, sizeof buf));
      ::close(fd);
    }
  }
}
BENCHMARK(BM_45OpenReadClose);

const char* kKeys[12] = {"download_k0", "download_k1", "download_k2",  "download_k3",
                         "download_k4", "download_k5", "download_k6",  "download_k7",
                         "download_k8", "download_k9", "download_k10", "download_k11"};

void BM_CommitQueueFlush12(benchmark::State& state) {
  SeedSettings();
  QRIX::APIRequest request("api", 1, "set", Json::Value(Json::objectValue));
  QRIXDL::CommitQueue queue(&request);
  for (const char* key : kKeys) {
    queue.Add(key, 12345);
  }
  const long before = g_fsyncs.load();
  for (auto _ : state) {
    benchmark::DoNotOptimize(queue.Flush());
  }
  state.counters["fsyncs_per_flush"] =
      static_cast<double>(g_fsyncs.load() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_CommitQueueFlush12);

void BM_TwelveSingleWrites(benchmark::State& state) {
  SeedSettings();
  const long before = g_fsyncs.load();
  for (auto _ : state) {
    for (const char* key : kKeys) {
      benchmark::DoNotOptimize(VLIBCFileSetKeyValue(QRIXDL_SETTINGS_CONF, key, "12345", nullptr));
    }
  }
  state.counters["fsyncs_per_12_keys"] =
      static_cast<double>(g_fsyncs.load() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_TwelveSingleWrites);

}  // namespace

// Counts the fsyncs of the platform library (this executable exports its own fsync).
extern "C" __attribute__((visibility("default"))) int fsync(int fd) {
  using Fn = int (*)(int);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "fsync"));
  ++g_fsyncs;
  return real(fd);
}

BENCHMARK_MAIN();
