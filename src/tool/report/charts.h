// The charts of the page about a batch, as elements of SVG.
//
// They are as wide as the page allows, which would distort text. So their labels are not part of
// them. The classes of their elements are defined in page.css.
#pragma once

#include <cstddef>
#include <string>

#include "tool/report/overview.h"
#include "tool/report/time_axis.h"

namespace runlet_tool {

// How the standing of an attempt is drawn.
enum class Look { fine, failed, stopped, open };
inline constexpr std::size_t lookCount = 4;
Look lookOf(Standing standing);

// The class of elements with that look.
const char* lookClass(Look look);

// The pattern that makes failures recognisable without colours. Once in a page with charts.
std::string patternDefinitions();

// When which slot ran what, a row for each slot. With up to 2,000 attempts each of them is drawn,
// with its text; with more, `*isSummed` becomes true: the time is cut into parts, in which failures
// are as high as their share. Never more than 4,000 elements.
std::string timelineChart(const Overview& overview, const TimeAxis& axis, bool* isSummed);

// How many tasks ran at a time, from 0 to `*top`.
std::string loadChart(const Overview& overview, const TimeAxis& axis, double* top);

// A bar of that part, from 0 to 1, of the width.
std::string barChart(double share, Look look);

}  // namespace runlet_tool
