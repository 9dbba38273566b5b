// Load generator for the HTTP benchmark: N client threads, each request on a connection of its
// own, timed from connect to the server's close. Prints one line of key=value figures.
//
//   http_load --port N [--host 127.0.0.1] [--method GET|POST] [--path /p] [--header 'K: V']...
//             [--body TEXT] [--expect TEXT] [--clients N] [--requests N] [--warmup N]
//             [--timeout-ms N] [--max-seconds N]
//
// Exits 1 when any request failed (the first failure is printed), 2 on a bad command line.
#include <arpa/inet.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/http/http_client.h"
#include "bench/http/latency_stats.h"

namespace {

using Clock = std::chrono::steady_clock;
using qrix::bench::RequestPlan;

struct Options {
  std::string host = "127.0.0.1";
  int port = 0;
  RequestPlan plan;
  std::string expect;
  int clients = 1;
  int requests = 1000;
  int warmup = 100;
  int timeout_ms = 10000;
  int max_seconds = 120;
};

bool ToInt(const char* text, int min, int* out) {
  char* end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || v < min || v > 1000000000) {
    return false;
  }
  *out = static_cast<int>(v);
  return true;
}

bool Parse(int argc, char** argv, Options* o, std::string* error) {
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (i + 1 >= argc) {
      *error = flag + " needs a value";
      return false;
    }
    const char* value = argv[++i];
    bool ok = true;
    if (flag == "--host") {
      o->host = value;
    } else if (flag == "--port") {
      ok = ToInt(value, 1, &o->port) && o->port <= 65535;
    } else if (flag == "--method") {
      o->plan.method = value;
    } else if (flag == "--path") {
      o->plan.path = value;
    } else if (flag == "--header") {
      o->plan.headers.emplace_back(value);
    } else if (flag == "--body") {
      o->plan.body = value;
    } else if (flag == "--expect") {
      o->expect = value;
    } else if (flag == "--clients") {
      ok = ToInt(value, 1, &o->clients) && o->clients <= 1024;
    } else if (flag == "--requests") {
      ok = ToInt(value, 1, &o->requests);
    } else if (flag == "--warmup") {
      ok = ToInt(value, 0, &o->warmup);
    } else if (flag == "--timeout-ms") {
      ok = ToInt(value, 1, &o->timeout_ms);
    } else if (flag == "--max-seconds") {
      ok = ToInt(value, 1, &o->max_seconds);
    } else {
      *error = "unknown option " + flag;
      return false;
    }
    if (!ok) {
      *error = "bad value for " + flag + ": " + value;
      return false;
    }
  }
  if (o->port == 0) {
    *error = "--port is required";
    return false;
  }
  return true;
}

struct Run {
  std::vector<int64_t> samples;
  int failed = 0;
  std::string first_error;
  double seconds = 0;
};

// `count` requests spread over `clients` threads that take them one at a time; stops early
// when `deadline` passes.
Run Load(const sockaddr_in& addr, const std::string& request, const Options& o, int count,
         Clock::time_point deadline) {
  std::atomic<int> next{0};
  std::mutex lock;
  Run run;
  run.samples.reserve(static_cast<size_t>(count));
  const auto start = Clock::now();
  std::vector<std::thread> threads;
  for (int t = 0; t < o.clients; ++t) {
    threads.emplace_back([&] {
      std::vector<int64_t> mine;
      int failed = 0;
      std::string error;
      while (next.fetch_add(1) < count && Clock::now() < deadline) {
        const auto t0 = Clock::now();
        const auto e = qrix::bench::RunExchange(addr, request, o.expect, o.timeout_ms);
        const auto us =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - t0).count();
        if (e.ok) {
          mine.push_back(us);
        } else if (failed++ == 0) {
          error = e.error;
        }
      }
      const std::lock_guard<std::mutex> hold(lock);
      run.samples.insert(run.samples.end(), mine.begin(), mine.end());
      run.failed += failed;
      if (run.first_error.empty()) {
        run.first_error = error;
      }
    });
  }
  for (std::thread& t : threads) {
    t.join();
  }
  run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  std::string error;
  if (!Parse(argc, argv, &o, &error)) {
    std::fprintf(stderr, "http_load: %s\n", error.c_str());
    return 2;
  }
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(o.port));
  if (::inet_pton(AF_INET, o.host.c_str(), &addr.sin_addr) != 1) {
    std::fprintf(stderr, "http_load: --host must be an IPv4 address: %s\n", o.host.c_str());
    return 2;
  }
  o.plan.host_header = o.host + ":" + std::to_string(o.port);
  const std::string request = qrix::bench::BuildRequest(o.plan);
  const auto deadline = Clock::now() + std::chrono::seconds(o.max_seconds);

  if (o.warmup > 0) {
    const Run warm = Load(addr, request, o, o.warmup, deadline);
    if (warm.failed > 0) {
      std::fprintf(stderr, "http_load: warm-up failed: %s\n", warm.first_error.c_str());
      return 1;
    }
  }
  Run run = Load(addr, request, o, o.requests, deadline);
  const size_t ok = run.samples.size();
  const auto s = qrix::bench::Summarize(std::move(run.samples));
  std::printf(
      "clients=%d requests=%d ok=%zu failed=%d seconds=%.3f rps=%.1f p50_us=%lld p99_us=%lld "
      "mean_us=%.0f max_us=%lld\n",
      o.clients, o.requests, ok, run.failed, run.seconds,
      run.seconds > 0 ? static_cast<double>(ok) / run.seconds : 0.0,
      static_cast<long long>(s.p50_us), static_cast<long long>(s.p99_us), s.mean_us,
      static_cast<long long>(s.max_us));
  if (run.failed > 0 || ok < static_cast<size_t>(o.requests)) {
    std::fprintf(stderr, "http_load: %d failed, %zu of %d done; first failure: %s\n", run.failed,
                 ok, o.requests, run.first_error.empty() ? "time limit" : run.first_error.c_str());
    return 1;
  }
  return 0;
}
