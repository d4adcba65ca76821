// The time axis of charts: the sessions of a batch, without the pauses between them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tool/report/overview.h"
#include "tool/report/slots.h"

namespace runlet_tool {

struct TimeAxis {
  std::size_t first = 0;       // the first session that is on the axis; those after it are, too
  std::vector<Span> times;     // of the sessions on the axis
  std::vector<double> begins;  // where they begin on the axis, from 0
  std::vector<double> ends;    // where they end, to 1
};

// With the last 50 sessions, so that charts stay small.
TimeAxis timeAxis(const Overview& overview);

// Whether the session, by its position in the overview, is on the axis.
bool isOn(const TimeAxis& axis, std::size_t session);

// Where a time of that session is on the axis, from 0 to 1. Times before or after the session are
// moved to its begin or end.
double placeOn(const TimeAxis& axis, std::size_t session, RecordTime time);

// A mark on the axis, labelled with the time that the batch has been running then.
struct Tick {
  double place;
  std::string label;
};

// At most six, at round times.
std::vector<Tick> ticksOf(const TimeAxis& axis);

}  // namespace runlet_tool
