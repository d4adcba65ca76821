#include "tool/report/charts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <optional>
#include <vector>

#include "tool/report/markup.h"
#include "tool/report/slots.h"
#include "tool/text/format.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

constexpr double width = 1000;  // of all charts, in units of their own
constexpr double narrowest = 1.5;
constexpr std::size_t mostRows = 64;
constexpr std::size_t mostDrawn = 2000;
constexpr std::size_t mostCells = 2000;
constexpr std::size_t mostColumns = 500;
constexpr double loadHeight = 120;
constexpr std::size_t loadParts = 300;

// In the order of Look.
constexpr const char* lookClasses[lookCount] = {"fine", "failed", "stopped", "open"};

std::string svg(const std::string& name, double height, const std::string& text,
                const std::string& content) {
  return "<svg" + attribute("class", name) + " role=\"img\"" + attribute("aria-label", text) +
         attribute("viewBox", withoutLineEnd("0 0 %.0f %.0f", width, height)) +
         " preserveAspectRatio=\"none\"" +
         attribute("style", withoutLineEnd("height:%.0fpx", height)) + ">\n" + content + "</svg>\n";
}

std::string rect(Look look, const Span& x, double y, double height) {
  return "<rect" + attribute("class", lookClass(look)) + attribute("x", x.begin * width) +
         attribute("y", y) + attribute("width", std::max(x.length() * width, narrowest)) +
         attribute("height", height);
}

std::string boundaries(const TimeAxis& axis, double height) {
  std::string lines;
  for (std::size_t i = 1; i < axis.times.size(); ++i) {
    const double x = (axis.ends[i - 1] + axis.begins[i]) / 2 * width;
    lines += "<line class=\"resumed\"" + attribute("x1", x) + attribute("x2", x) +
             attribute("y1", 0) + attribute("y2", height) + "/>\n";
  }
  return lines;
}

// The rows of the timeline. With very many slots, several share a row.
struct Rows {
  std::size_t slots;
  std::size_t count;
  double pitch;
  double bar;  // the height of what is drawn

  double yOf(std::size_t row) const {
    return static_cast<double>(row) * pitch + (pitch - bar) / 2;
  }

  std::size_t rowOf(std::size_t slot) const {
    return slot * count / slots;
  }

  double height() const {
    return static_cast<double>(count) * pitch;
  }
};

Rows rowsOf(const Overview& overview) {
  const std::size_t slots = std::max<std::size_t>(overview.slots, 1);
  const std::size_t count = std::min(slots, mostRows);
  if (count <= 8) return {slots, count, 24, 18};
  if (count <= 24) return {slots, count, 14, 11};
  return {slots, count, 7, 5};
}

Span placesOf(const Overview& overview, const TimeAxis& axis, std::size_t attempt) {
  const std::size_t session = overview.record.attempts[attempt].session;
  const Span& span = overview.attempts[attempt].span;
  return {placeOn(axis, session, span.begin), placeOn(axis, session, span.end)};
}

std::string titleOf(const Overview& overview, std::size_t attempt) {
  const std::string end = shortened(endText(overview, attempt), 60);
  return attemptTaskText(overview, attempt) + ": " + end + ", " +
         durationText(overview.attempts[attempt].wall);
}

std::string drawnAttempts(const Overview& overview, const TimeAxis& axis, const Rows& rows) {
  std::string text;
  for (std::size_t i = 0; i < overview.attempts.size(); ++i) {
    if (!isOn(axis, overview.record.attempts[i].session)) continue;
    const AttemptState& state = overview.attempts[i];
    // A little shorter than it was, so that the next one is told from it.
    Span places = placesOf(overview, axis, i);
    places.end = std::max(places.begin, places.end - 1 / width);
    text += rect(lookOf(state.standing), places, rows.yOf(rows.rowOf(state.slot)), rows.bar);
    text += "><title>" + markup(titleOf(overview, i)) + "</title></rect>\n";
  }
  return text;
}

// A part of the time in a row: how many attempts of each look ran then.
using Cell = std::array<std::size_t, lookCount>;

std::size_t failuresIn(const Cell& cell) {
  return cell[static_cast<std::size_t>(Look::failed)];
}

// The look of most of them that are no failures, if there are any.
std::optional<Look> usualLook(const Cell& cell) {
  Cell others = cell;
  others[static_cast<std::size_t>(Look::failed)] = 0;
  const auto* const most = std::max_element(others.begin(), others.end());
  if (*most == 0) return {};
  return static_cast<Look>(most - others.begin());
}

// The usual looks; adjacent cells of the same look are one element.
std::string usualCells(const std::vector<Cell>& cells, const Rows& rows, std::size_t row) {
  const auto columns = static_cast<double>(cells.size());
  std::string text;
  std::size_t begin = 0;
  while (begin < cells.size()) {
    const std::optional<Look> look = usualLook(cells[begin]);
    std::size_t end = begin + 1;
    while (end < cells.size() && usualLook(cells[end]) == look) ++end;
    const Span places = {static_cast<double>(begin) / columns, static_cast<double>(end) / columns};
    if (look) text += rect(*look, places, rows.yOf(row), rows.bar) + "/>\n";
    begin = end;
  }
  return text;
}

// On top of them the failures, as high as their share, but high enough to be seen.
std::string failedCells(const std::vector<Cell>& cells, const Rows& rows, std::size_t row) {
  constexpr double lowest = 0.3;
  const auto columns = static_cast<double>(cells.size());
  std::string text;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::size_t count = failuresIn(cells[i]);
    if (count == 0) continue;
    const auto all = std::accumulate(cells[i].begin(), cells[i].end(), std::size_t{0});
    const double share = static_cast<double>(count) / static_cast<double>(all);
    const double height = rows.bar * std::max(share, lowest);
    const Span places = {static_cast<double>(i) / columns, static_cast<double>(i + 1) / columns};
    text += rect(Look::failed, places, rows.yOf(row) + rows.bar - height, height) + "/>\n";
  }
  return text;
}

std::string summedAttempts(const Overview& overview, const TimeAxis& axis, const Rows& rows) {
  const std::size_t columns = std::min(mostColumns, mostCells / rows.count);
  std::vector<std::vector<Cell>> cells(rows.count, std::vector<Cell>(columns));
  const auto columnAt = [=](double place) {
    return std::min(static_cast<std::size_t>(place * static_cast<double>(columns)), columns - 1);
  };
  for (std::size_t i = 0; i < overview.attempts.size(); ++i) {
    if (!isOn(axis, overview.record.attempts[i].session)) continue;
    const AttemptState& state = overview.attempts[i];
    const Span places = placesOf(overview, axis, i);
    std::vector<Cell>& row = cells[rows.rowOf(state.slot)];
    const auto look = static_cast<std::size_t>(lookOf(state.standing));
    for (std::size_t at = columnAt(places.begin); at <= columnAt(places.end); ++at) {
      ++row[at][look];
    }
  }
  std::string text;
  for (std::size_t row = 0; row < rows.count; ++row) {
    text += usualCells(cells[row], rows, row) + failedCells(cells[row], rows, row);
  }
  return text;
}

// How many ran at a time in each part of a session.
std::vector<double> loadOfSession(const Overview& overview, const TimeAxis& axis,
                                  std::size_t session, const std::vector<Span>& spans) {
  const std::size_t at = session - axis.first;
  const double parts = std::ceil((axis.ends[at] - axis.begins[at]) * loadParts);
  return loadOver(spans, overview.sessions[session],
                  static_cast<std::size_t>(std::max(parts, 1.0)));
}

std::vector<std::vector<double>> loads(const Overview& overview, const TimeAxis& axis) {
  std::vector<std::vector<Span>> spans(overview.sessions.size());
  for (std::size_t i = 0; i < overview.attempts.size(); ++i) {
    spans[overview.record.attempts[i].session].push_back(overview.attempts[i].span);
  }
  std::vector<std::vector<double>> all;
  for (std::size_t session = axis.first; session < overview.sessions.size(); ++session) {
    all.push_back(loadOfSession(overview, axis, session, spans[session]));
  }
  return all;
}

// A step for each change.
std::string areaOf(const std::vector<double>& load, const Span& places, double top) {
  const double step = places.length() * width / static_cast<double>(load.size());
  std::string path = withoutLineEnd("M%.1f %.0f", places.begin * width, loadHeight);
  std::string before;
  for (std::size_t i = 0; i < load.size(); ++i) {
    const double x = places.begin * width + static_cast<double>(i) * step;
    const std::string y = withoutLineEnd("V%.1f", loadHeight * (1 - load[i] / top));
    if (y != before) path += withoutLineEnd("H%.1f", x) + y;
    before = y;
  }
  path += withoutLineEnd("H%.1fV%.0fZ", places.end * width, loadHeight);
  return "<path class=\"load\"" + attribute("d", path) + "/>\n";
}

}  // namespace

Look lookOf(Standing standing) {
  if (isFailure(standing)) return Look::failed;
  switch (standing) {
    case Standing::succeeded:
      return Look::fine;
    case Standing::running:
    case Standing::waiting:
      return Look::open;
    default:
      return Look::stopped;
  }
}

const char* lookClass(Look look) {
  return lookClasses[static_cast<std::size_t>(look)];
}

std::string patternDefinitions() {
  return "<svg class=\"definitions\" aria-hidden=\"true\" width=\"0\" height=\"0\"><defs>"
         "<pattern id=\"hatch\" width=\"5\" height=\"5\" patternUnits=\"userSpaceOnUse\" "
         "patternTransform=\"rotate(45)\"><rect class=\"hatched\" width=\"5\" height=\"5\"/>"
         "<rect class=\"stripe\" width=\"2\" height=\"5\"/></pattern></defs></svg>\n";
}

std::string timelineChart(const Overview& overview, const TimeAxis& axis, bool* isSummed) {
  const Rows rows = rowsOf(overview);
  *isSummed = overview.attempts.size() > mostDrawn;
  const std::string content =
      *isSummed ? summedAttempts(overview, axis, rows) : drawnAttempts(overview, axis, rows);
  const std::string text = "When each of " + quantity(rows.slots, "slot") +
                           " ran tasks: " + quantity(overview.attempts.size(), "attempt") + ", " +
                           quantity(overview.failures.size(), "failed task");
  return svg("timeline", rows.height(), text, content + boundaries(axis, rows.height()));
}

std::string loadChart(const Overview& overview, const TimeAxis& axis, double* top) {
  const std::vector<std::vector<double>> all = loads(overview, axis);
  double greatest = 1;
  for (const std::vector<double>& load : all) {
    greatest = std::max(greatest, *std::max_element(load.begin(), load.end()));
  }
  // Rounding must not add one.
  *top = std::ceil(greatest - 0.001);
  std::string content;
  for (std::size_t i = 0; i < all.size(); ++i) {
    content += areaOf(all[i], {axis.begins[i], axis.ends[i]}, *top);
  }
  const std::string text =
      withoutLineEnd("Tasks at a time: %.1f on average, at most %.0f", overview.atATime(), *top);
  return svg("load", loadHeight, text, content + boundaries(axis, loadHeight));
}

std::string barChart(double share, Look look) {
  return "<svg class=\"bar\" aria-hidden=\"true\" viewBox=\"0 0 1000 10\" "
         "preserveAspectRatio=\"none\">" +
         rect(look, {0, share}, 0, 10) + "/></svg>";
}

}  // namespace runlet_tool
