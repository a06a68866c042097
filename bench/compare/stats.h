// Order statistics of the comparison: medians across rounds and latency
// percentiles within a round.
#ifndef ZYR_BENCH_COMPARE_STATS_H
#define ZYR_BENCH_COMPARE_STATS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

// Median of the values; the mean of the two middle ones for an even count.
// NaN for none.
inline double Median(std::vector<double> values) {
  if (values.empty()) return std::nan("");
  std::sort(values.begin(), values.end());
  std::size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The nearest-rank percentile (0 < p <= 100): the smallest value that at
// least p percent of the values do not exceed. Reorders `values`.
inline std::uint32_t Percentile(std::vector<std::uint32_t>& values, double p) {
  if (values.empty()) return 0;
  // The small slack keeps 99.9 % of 1000 at rank 999 despite rounding.
  double rank = std::ceil(p * static_cast<double>(values.size()) / 100.0 - 1e-9);
  std::size_t index = rank < 1 ? 0 : static_cast<std::size_t>(rank) - 1;
  if (index >= values.size()) index = values.size() - 1;
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
  return values[index];
}

#endif
