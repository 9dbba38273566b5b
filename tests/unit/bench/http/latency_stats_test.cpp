#include "bench/http/latency_stats.h"

#include <gtest/gtest.h>

#include <numeric>

namespace qrix::bench {
namespace {

TEST(PercentileTest, NearestRank) {
  std::vector<int64_t> hundred(100);
  std::iota(hundred.begin(), hundred.end(), 1);  // 1..100
  const struct {
    std::vector<int64_t> sorted;
    double percent;
    int64_t want;
  } rows[] = {
      {{}, 50, 0},        {{7}, 50, 7},          {{7}, 99, 7},          {{1, 2}, 50, 1},
      {{1, 2, 3}, 50, 2}, {{1, 2, 3, 4}, 50, 2}, {{1, 2, 3, 4}, 51, 3}, {hundred, 50, 50},
      {hundred, 99, 99},  {hundred, 100, 100},   {hundred, 0, 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Percentile(row.sorted, row.percent), row.want)
        << row.sorted.size() << " samples, p" << row.percent;
  }
}

TEST(SummarizeTest, SortsBeforeTakingPercentiles) {
  std::vector<int64_t> samples(200);
  std::iota(samples.rbegin(), samples.rend(), 1);  // 200..1, descending
  samples.push_back(10000);                        // one slow outlier
  const LatencySummary s = Summarize(samples);
  EXPECT_EQ(s.count, 201u);
  EXPECT_EQ(s.p50_us, 101);
  EXPECT_EQ(s.p99_us, 199);
  EXPECT_EQ(s.max_us, 10000);
  EXPECT_DOUBLE_EQ(s.mean_us, (200.0 * 201.0 / 2.0 + 10000.0) / 201.0);
}

TEST(SummarizeTest, NothingToSummarize) {
  const LatencySummary s = Summarize({});
  EXPECT_EQ(s.count, 0u);
  EXPECT_EQ(s.p50_us, 0);
  EXPECT_EQ(s.max_us, 0);
}

}  // namespace
}  // namespace qrix::bench
