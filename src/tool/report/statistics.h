// Statistics of durations.
#pragma once

#include <cstddef>
#include <vector>

namespace runlet_tool {

// The least of the values, which ascend and are not empty, that at least the part `share` of them
// does not exceed: 0.5 gives the median, 0 the minimum and 1 the maximum.
double quantile(const std::vector<double>& sorted, double share);

// The number of values that are at least `from` and less than `to`.
struct Bucket {
  double from;
  double to;
  std::size_t count;
};

// A round number of seconds, so that at most `most` such steps, at least 1, fit into `length`
// seconds.
double roundStep(double length, std::size_t most);

// Adjacent buckets, at most `most`, which is at least 2, for all of the values, which are durations
// in seconds that ascend and are not empty. The borders are round numbers. The buckets have the
// same width, unless the values differ so much that most of them would be in the first one.
std::vector<Bucket> histogram(const std::vector<double>& sorted, std::size_t most);

}  // namespace runlet_tool
