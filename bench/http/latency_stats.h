// Latency figures of one load run: percentiles by nearest rank and requests per second.
#ifndef HAULPORT_BENCH_HTTP_LATENCY_STATS_H_
#define HAULPORT_BENCH_HTTP_LATENCY_STATS_H_

#include <cstdint>
#include <vector>

namespace qrix::bench {

struct LatencySummary {
  uint64_t count = 0;
  int64_t p50_us = 0;
  int64_t p99_us = 0;
  int64_t max_us = 0;
  double mean_us = 0;
};

// The smallest sample with at least `percent` of the samples at or below it; 0 when empty.
// `sorted` must be in ascending order.
int64_t Percentile(const std::vector<int64_t>& sorted, double percent);

// Sorts `samples` and summarises them.
LatencySummary Summarize(std::vector<int64_t> samples);

}  // namespace qrix::bench

#endif  // HAULPORT_BENCH_HTTP_LATENCY_STATS_H_
