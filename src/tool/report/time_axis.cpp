#include "tool/report/time_axis.h"

#include <algorithm>

#include "tool/report/statistics.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

constexpr std::size_t mostSessionsOnAxis = 50;
constexpr double allGaps = 0.02;      // the part of the axis that is between sessions
constexpr std::size_t mostTicks = 5;  // beyond the one at the begin

}  // namespace

TimeAxis timeAxis(const Overview& overview) {
  TimeAxis axis;
  const std::size_t count = std::min(overview.sessions.size(), mostSessionsOnAxis);
  axis.first = overview.sessions.size() - count;
  axis.times.assign(overview.sessions.end() - static_cast<std::ptrdiff_t>(count),
                    overview.sessions.end());
  double length = 0;
  for (const Span& time : axis.times) length += time.length();
  const double gap = count > 1 ? allGaps / static_cast<double>(count - 1) : 0;
  const double scale = count > 1 ? 1 - allGaps : 1;
  double place = 0;
  for (const Span& time : axis.times) {
    axis.begins.push_back(std::min(place, 1.0));
    // Without any time, all sessions have the same width.
    place += scale * (length > 0 ? time.length() / length : 1 / static_cast<double>(count));
    axis.ends.push_back(std::min(place, 1.0));
    place += gap;
  }
  return axis;
}

bool isOn(const TimeAxis& axis, std::size_t session) {
  return session >= axis.first;
}

double placeOn(const TimeAxis& axis, std::size_t session, RecordTime time) {
  const std::size_t at = session - axis.first;
  const Span& span = axis.times[at];
  if (span.length() <= 0) return axis.begins[at];
  const double share = std::clamp((time - span.begin) / span.length(), 0.0, 1.0);
  return axis.begins[at] + share * (axis.ends[at] - axis.begins[at]);
}

std::vector<Tick> ticksOf(const TimeAxis& axis) {
  double length = 0;
  for (const Span& time : axis.times) length += time.length();
  std::vector<Tick> ticks = {{0, "0 s"}};
  if (length <= 0) return ticks;
  const double step = roundStep(length, mostTicks);
  double before = 0;  // running time of the sessions before this one
  for (std::size_t i = 0; i < axis.times.size(); ++i) {
    const double end = before + axis.times[i].length();
    double next = step * static_cast<double>(ticks.size());
    while (next <= end) {
      const RecordTime time = axis.times[i].begin + (next - before);
      ticks.push_back({placeOn(axis, axis.first + i, time), durationText(next)});
      next = step * static_cast<double>(ticks.size());
    }
    before = end;
  }
  return ticks;
}

}  // namespace runlet_tool
