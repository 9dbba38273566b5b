#include "bench/http/latency_stats.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace qrix::bench {

int64_t Percentile(const std::vector<int64_t>& sorted, double percent) {
  if (sorted.empty()) {
    return 0;
  }
  const double rank = std::ceil(percent / 100.0 * static_cast<double>(sorted.size()));
  const size_t index = rank < 1 ? 0 : std::min(sorted.size(), static_cast<size_t>(rank)) - 1;
  return sorted[index];
}

LatencySummary Summarize(std::vector<int64_t> samples) {
  std::sort(samples.begin(), samples.end());
  LatencySummary out;
  out.count = samples.size();
  if (samples.empty()) {
    return out;
  }
  out.p50_us = Percentile(samples, 50);
  out.p99_us = Percentile(samples, 99);
  out.max_us = samples.back();
  out.mean_us = static_cast<double>(std::accumulate(samples.begin(), samples.end(), int64_t{0})) /
                static_cast<double>(samples.size());
  return out;
}

}  // namespace qrix::bench
