// The parts of the page about a batch: text, the time axis, charts.

#include "tool/report/charts.h"

#include <gtest/gtest.h>

#include <string_view>

#include "batch_record.h"
#include "tool/report/markup.h"
#include "tool/report/time_axis.h"

namespace runlet_tool {
namespace {

using runlet_test::batchBegin;
using runlet_test::endedAttempt;
using runlet_test::finishedSession;

std::size_t countOf(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string_view::npos; ++at) ++count;
  return count;
}

TEST(Markup, EscapesWhatIsSpecial) {
  const struct {
    const char* text;
    const char* markup;
  } rows[] = {
      {"", ""},
      {"plain 'text' \xc3\xa4\n", "plain 'text' \xc3\xa4\n"},
      {"<b>&amp;\"", "&lt;b&gt;&amp;amp;&quot;"},
      {"]]>", "]]&gt;"},
      {"\xef\xbf\xbe-\xef\xbf\xbf", "\\ufffe-\\uffff"},
      {"\xef\xbf\xbd", "\xef\xbf\xbd"},
  };
  for (const auto& row : rows) EXPECT_EQ(markup(row.text), row.markup);
  EXPECT_EQ(attribute("a", "\"><x"), " a=\"&quot;&gt;&lt;x\"");
  EXPECT_EQ(attribute("a", 1.5), " a=\"1.5\"");
  EXPECT_EQ(attribute("a", 20), " a=\"20\"");
  EXPECT_EQ(attribute("a", 0.126), " a=\"0.13\"");
}

Overview overviewWith(std::vector<Session> sessions, std::vector<Attempt> attempts = {}) {
  Record record;
  record.id = "20261122-211530-3f2a";
  record.sessions = std::move(sessions);
  record.attempts = std::move(attempts);
  return overviewOf(std::move(record), false, batchBegin + 9, 10);
}

std::string ticksText(const TimeAxis& axis) {
  std::string text;
  for (const Tick& tick : ticksOf(axis)) {
    char row[64];
    std::snprintf(row, sizeof row, "%.3f: ", tick.place);
    text.append(row).append(tick.label).append("\n");
  }
  return text;
}

TEST(TimeAxis, IsThatOfTheSessionWithoutPauses) {
  const Overview overview = overviewWith(
      {finishedSession(0, 30, 1), finishedSession(1000, 1010, 1), finishedSession(2000, 2010, 1)});
  const TimeAxis axis = timeAxis(overview);
  const struct {
    std::size_t session;
    double time;
    double place;
  } rows[] = {
      {0, 0, 0},        {0, -5, 0},       {0, 15, 0.294},   {0, 30, 0.588}, {0, 99, 0.588},
      {1, 1000, 0.598}, {1, 1010, 0.794}, {2, 2000, 0.804}, {2, 2010, 1},
  };
  for (const auto& row : rows) {
    EXPECT_NEAR(placeOn(axis, row.session, batchBegin + row.time), row.place, 1e-9) << row.time;
  }
  EXPECT_EQ(ticksText(axis),
            "0.000: 0 s\n0.196: 10 s\n0.392: 20 s\n0.588: 30 s\n0.794: 40 s\n1.000: 50 s\n");
}

TEST(TimeAxis, IsEmptyWithoutAnyTime) {
  const TimeAxis one = timeAxis(overviewWith({finishedSession(5, 5, 1)}));
  EXPECT_EQ(placeOn(one, 0, batchBegin + 5), 0);
  EXPECT_EQ(ticksText(one), "0.000: 0 s\n");
  const TimeAxis two = timeAxis(overviewWith({finishedSession(5, 5, 1), finishedSession(9, 9, 1)}));
  EXPECT_NEAR(placeOn(two, 1, batchBegin + 9), 0.51, 1e-9);
}

TEST(TimeAxis, HasTheLastSessions) {
  std::vector<Session> sessions;
  for (int i = 0; i < 53; ++i) sessions.push_back(finishedSession(i * 10, i * 10 + 5, 1));
  const TimeAxis axis = timeAxis(overviewWith(sessions));
  EXPECT_FALSE(isOn(axis, 2));
  EXPECT_TRUE(isOn(axis, 3));
  EXPECT_EQ(placeOn(axis, 3, batchBegin + 30), 0);
}

TEST(Charts, DrawEachAttempt) {
  Attempt second = endedAttempt(2, 105, 5);
  second.session = 1;
  const Overview overview =
      overviewWith({finishedSession(0, 10, 2), finishedSession(100, 110, 2)},
                   {endedAttempt(1, 0, 5), endedAttempt(2, 0, 10, {Ending::other, 0, "<b>\033"}),
                    endedAttempt(1, 5, 5, {Ending::interrupted, 0, ""}), second});
  const TimeAxis axis = timeAxis(overview);
  bool isSummed = true;
  EXPECT_EQ(
      timelineChart(overview, axis, &isSummed),
      "<svg class=\"timeline\" role=\"img\" aria-label=\"When each of 2 slots ran tasks: 4 "
      "attempts, 0 failed tasks\" viewBox=\"0 0 1000 48\" preserveAspectRatio=\"none\" "
      "style=\"height:48px\">\n"
      "<rect class=\"fine\" x=\"0\" y=\"3\" width=\"244\" height=\"18\"><title>task 1: succeeded, "
      "5 s</title></rect>\n"
      "<rect class=\"failed\" x=\"0\" y=\"27\" width=\"489\" height=\"18\"><title>task 2: "
      "&lt;b&gt;\\x1b, 10 s</title></rect>\n"
      "<rect class=\"stopped\" x=\"245\" y=\"3\" width=\"244\" height=\"18\"><title>task 1: "
      "interrupted, 5 s</title></rect>\n"
      "<rect class=\"fine\" x=\"755\" y=\"3\" width=\"244\" height=\"18\"><title>task 2: "
      "succeeded, 5 s</title></rect>\n"
      "<line class=\"resumed\" x1=\"500\" x2=\"500\" y1=\"0\" y2=\"48\"/>\n"
      "</svg>\n");
  EXPECT_FALSE(isSummed);
  double top = 0;
  const std::string load = loadChart(overview, axis, &top);
  EXPECT_EQ(top, 2);
  EXPECT_TRUE(
      load.starts_with("<svg class=\"load\" role=\"img\" aria-label=\"Tasks at a time: 1.2 "
                       "on average, at most 2\" viewBox=\"0 0 1000 120\" "))
      << load;
  // Both at first, then none and one.
  EXPECT_EQ(
      load.substr(load.find('\n')),
      "\n<path class=\"load\" d=\"M0.0 120H0.0V0.0H490.0V120Z\"/>\n"
      "<path class=\"load\" d=\"M510.0 120H510.0V120.0H753.3V90.0H756.7V60.0H1000.0V120Z\"/>\n"
      "<line class=\"resumed\" x1=\"500\" x2=\"500\" y1=\"0\" y2=\"120\"/>\n"
      "</svg>\n");
}

TEST(Charts, SumUpManyAttempts) {
  std::vector<Attempt> attempts;
  for (std::int32_t i = 0; i < 2001; ++i) {
    const bool isFine = i != 1500;
    attempts.push_back(
        endedAttempt(1, i * 0.01, 0.01,
                     isFine ? TaskEnd{Ending::succeeded, 0, ""} : TaskEnd{Ending::killed, 9, ""}));
  }
  const Overview overview = overviewWith({finishedSession(0, 40.02, 1)}, attempts);
  bool isSummed = false;
  const std::string chart = timelineChart(overview, timeAxis(overview), &isSummed);
  EXPECT_TRUE(isSummed);
  // Half of the time, with the failure as one of seven attempts in one of 500 parts.
  EXPECT_EQ(chart.substr(chart.find('\n') + 1),
            "<rect class=\"fine\" x=\"0\" y=\"3\" width=\"502\" height=\"18\"/>\n"
            "<rect class=\"failed\" x=\"374\" y=\"15.6\" width=\"2\" height=\"5.4\"/>\n"
            "</svg>\n");
  // A part with nothing but failures, one with as many failures as successes, and nothing.
  attempts.assign(1000, endedAttempt(1, 0, 1, {Ending::failed, 1, ""}));
  for (int i = 0; i < 2000; ++i) {
    const TaskEnd end =
        i % 2 == 0 ? TaskEnd{Ending::failed, 1, ""} : TaskEnd{Ending::interrupted, 0, ""};
    attempts.push_back(endedAttempt(1, 3.1, 0.1, end));
  }
  const Overview many = overviewWith({finishedSession(0, 4, 1)}, attempts);
  const std::string last = timelineChart(many, timeAxis(many), &isSummed);
  EXPECT_NE(last.find("<rect class=\"failed\" x=\"0\" y=\"1\" width=\"32.26\" height=\"5\"/>"),
            std::string::npos)
      << last;
  EXPECT_EQ(countOf(last, "class=\"stopped\""), 64U) << last;
}

TEST(Charts, StaySmallWithManySlots) {
  for (const std::int32_t slots : {3, 9, 24, 25, 64, 65, 5000}) {
    std::vector<Attempt> attempts;
    for (std::int32_t i = 0; i < 40'000; ++i) {
      attempts.push_back(endedAttempt(
          1, static_cast<double>(i / slots) * 0.1, 0.1,
          i % 3 == 0 ? TaskEnd{Ending::failed, 1, ""} : TaskEnd{Ending::succeeded, 0, ""}));
    }
    const double end = 40'000.0 / slots * 0.1 + 0.2;
    const Overview overview = overviewWith({finishedSession(0, end, 1)}, attempts);
    const TimeAxis axis = timeAxis(overview);
    bool isSummed = false;
    const std::string chart = timelineChart(overview, axis, &isSummed);
    EXPECT_LE(countOf(chart, "<rect"), 4000U) << slots;
    EXPECT_LT(chart.size(), 400'000U) << slots;
    double top = 0;
    EXPECT_LT(loadChart(overview, axis, &top).size(), 20'000U) << slots;
    EXPECT_EQ(top, slots);
  }
}

TEST(Charts, TellStandingsApart) {
  const struct {
    Standing standing;
    const char* look;
  } rows[] = {
      {Standing::succeeded, "fine"},     {Standing::failed, "failed"},
      {Standing::killed, "failed"},      {Standing::timedOut, "failed"},
      {Standing::other, "failed"},       {Standing::interrupted, "stopped"},
      {Standing::notStarted, "stopped"}, {Standing::cutOff, "stopped"},
      {Standing::running, "open"},       {Standing::waiting, "open"},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(lookClass(lookOf(row.standing)), row.look) << standingName(row.standing);
  }
  EXPECT_EQ(barChart(0.25, Look::failed),
            "<svg class=\"bar\" aria-hidden=\"true\" viewBox=\"0 0 1000 10\" "
            "preserveAspectRatio=\"none\"><rect class=\"failed\" x=\"0\" y=\"0\" width=\"250\" "
            "height=\"10\"/></svg>");
}

}  // namespace
}  // namespace runlet_tool
