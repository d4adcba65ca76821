#include "tool/report/statistics.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tool/text/units.h"

namespace runlet_tool {
namespace {

// Widths and borders of buckets that are easily read, in seconds.
constexpr double roundDurations[] = {0.001, 0.002, 0.005,  0.01,   0.02,  0.05, 0.1,  0.2,
                                     0.5,   1,     2,      5,      10,    20,   30,   60,
                                     120,   300,   600,    1200,   1800,  3600, 7200, 18000,
                                     36000, 86400, 172800, 432000, 864000};

// If the longest takes this many times as long as half of them, widths are not the same.
constexpr double muchLonger = 10;

using Borders = std::vector<double>;

// The number of buckets of that width for values from `least` to `greatest`.
double countOf(double least, double greatest, double width) {
  return std::floor(greatest / width) - std::floor(least / width) + 1;
}

Borders evenBorders(double least, double greatest, std::size_t most) {
  const auto limit = static_cast<double>(most);
  const double* const end = std::end(roundDurations);
  const double* const found = std::find_if(std::begin(roundDurations), end, [=](double width) {
    return width >= durationStep(greatest) && countOf(least, greatest, width) <= limit;
  });
  double width = found == end ? *(end - 1) : *found;
  while (countOf(least, greatest, width) > limit) width *= 2;
  const double first = std::floor(least / width);
  const auto count = static_cast<std::size_t>(countOf(least, greatest, width));
  Borders borders;
  for (std::size_t i = 0; i <= count; ++i) {
    borders.push_back((first + static_cast<double>(i)) * width);
  }
  return borders;
}

// From the last border that is not above `least` to the first that is above `greatest`, thinned out
// if there are too many.
Borders growingBorders(double least, double greatest, std::size_t most) {
  Borders all = {0};
  for (const double border : roundDurations) {
    if (border <= least) all.clear();
    all.push_back(border);
    if (border > greatest) break;
  }
  while (all.back() <= greatest) all.push_back(all.back() * 2);
  const std::size_t step = (all.size() - 2) / most + 1;
  Borders borders;
  for (std::size_t i = 0; i < all.size() - 1; i += step) borders.push_back(all[i]);
  borders.push_back(all.back());
  return borders;
}

}  // namespace

double quantile(const std::vector<double>& sorted, double share) {
  const double rank = std::ceil(share * static_cast<double>(sorted.size()));
  const auto place = static_cast<std::size_t>(std::max(rank, 1.0)) - 1;
  return sorted[std::min(place, sorted.size() - 1)];
}

double roundStep(double length, std::size_t most) {
  const auto limit = static_cast<double>(most);
  for (const double step : roundDurations) {
    if (length / step < limit + 1) return step;
  }
  double step = *(std::end(roundDurations) - 1);
  while (length / step >= limit + 1) step *= 2;
  return step;
}

std::vector<Bucket> histogram(const std::vector<double>& sorted, std::size_t most) {
  const double least = sorted.front();
  const double greatest = sorted.back();
  const bool isEven = greatest <= muchLonger * quantile(sorted, 0.5);
  const Borders borders =
      isEven ? evenBorders(least, greatest, most) : growingBorders(least, greatest, most);
  std::vector<Bucket> buckets;
  auto begin = sorted.begin();
  for (std::size_t i = 0; i + 1 < borders.size(); ++i) {
    // The last one has the rest: rounding must not lose a value.
    const bool isLast = i + 2 == borders.size();
    const auto end = isLast ? sorted.end() : std::lower_bound(begin, sorted.end(), borders[i + 1]);
    buckets.push_back({borders[i], borders[i + 1], static_cast<std::size_t>(end - begin)});
    begin = end;
  }
  return buckets;
}

}  // namespace runlet_tool
