#include "job/fill_in.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <vector>

namespace runlet {
namespace {

constexpr char before[] = "as it was";

// A job of three tasks; the third has four fields, the third of them empty. There are three names
// but two values.
AdapterContext makeContext() {
  AdapterContext context;
  context.taskList.push_back("first");
  context.taskList.push_back("one\ttwo\t");
  context.taskList.push_back("shot_A\t101\t\t250");
  for (const char* name : {"scene", "quality", "extra"}) context.paramNames.push_back(name);
  for (const char* value : {"/jobs/a.scn", "high"}) context.paramValues.push_back(value);
  return context;
}

struct Row {
  std::string argumentTemplate;
  std::string expansion;
};

void expectExpansions(const AdapterContext& context, std::int32_t taskIndex,
                      const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.argumentTemplate);
    std::string out = before;
    EXPECT_TRUE(fillInArguments(&context, &out, row.argumentTemplate.c_str(), taskIndex));
    EXPECT_EQ(out, row.expansion);
  }
}

void expectRefused(const AdapterContext& context, const std::string& argumentTemplate) {
  SCOPED_TRACE(argumentTemplate);
  std::string out = before;
  EXPECT_FALSE(fillInArguments(&context, &out, argumentTemplate.c_str(), 2));
  EXPECT_EQ(out, before);
}

std::string zeros(std::size_t count) {
  return std::string(count, '0');
}

TEST(FillIn, ExpandsPlaceholders) {
  expectExpansions(makeContext(), 2,
                   {
                       {"render -s %tn", "render -s 3"},
                       {"render -s %4tn", "render -s 0003"},
                       {"-f %tp2 -t %tp4", "-f 101 -t 250"},
                       {"-f %6tp2", "-f 000101"},
                       {"[%tp3]", "[]"},
                       {"[%tp5]", "[Undefined]"},
                       {"[%12tp5]", "[000Undefined]"},
                       {"[%tp]", "[Undefined]"},
                       {"[%jp]", "[Undefined]"},
                       {"%jp1 %jp2", "/jobs/a.scn high"},
                       {"%jp4", "Undefined"},
                       {"%jp0", "Undefined"},
                       {"%tp0", "Undefined"},
                       {"%6jp2", "00high"},
                       {"%4jp2", "high"},
                       {"%3jp2", "high"},
                       {"%1tn", "3"},
                       {"%0tn", "3"},
                       {"%00tn", "3"},
                       {"%4tp3", "0000"},
                       {"%tp1%tp2", "shot_A101"},
                       {"%tp2x", "101x"},
                       {"%tp02", "101"},
                   });
}

TEST(FillIn, CopiesEverythingElse) {
  expectExpansions(makeContext(), 2,
                   {
                       {"", ""},
                       {"plain text", "plain text"},
                       {"a \"b\t\n{}\\ $x", "a \"b\t\n{}\\ $x"},
                       {"tn tp1 jp1", "tn tp1 jp1"},
                       {"100%% done", "100% done"},
                       {"%5%", "%"},
                       {"%%tn", "%tn"},
                       {"%%%tn", "%3"},
                       {"%%%%", "%%"},
                       {"50%x", "50x"},
                       {"50%5x", "50x"},
                       {"%T %N %-5 % tn", "T N -5  tn"},
                       {"%Tn%J", "TnJ"},
                       {"%5 tn", " tn"},
                       {"end%", "end"},
                       {"end%12", "end"},
                       {"%", ""},
                   });
}

TEST(FillIn, RefusesMalformedPlaceholders) {
  for (const char* argumentTemplate : {"%ta", "%jx", "%t", "%j", "%4t", "%4j", "%t%", "%tN", "%tP1",
                                       "%jn", "%j1", "%t p1", "%t5n", "ok %tn and %tx", "%jJp1"}) {
    expectRefused(makeContext(), argumentTemplate);
  }
}

TEST(FillIn, CountsTasksFromOne) {
  const AdapterContext context = makeContext();
  expectExpansions(context, 0, {{"%tn %tp1", "1 first"}});
  expectExpansions(context, 1, {{"%tn %tp1", "2 one"}});
  expectExpansions(context, 98, {{"%tn", "99"}});
  expectExpansions(context, -5, {{"%tn", "-4"}, {"%5tn", "-0004"}});
  expectExpansions(context, std::numeric_limits<std::int32_t>::max(), {{"%tn", "-2147483648"}});
}

TEST(FillIn, ReadsDigitsOfEarlierNumbersAsPartOfAWidth) {
  expectExpansions(makeContext(), 2,
                   {
                       // a printed task number, 0003
                       {"%4tn_%2tn", "0003_" + zeros(31)},
                       {"%4tn %2tp2", "0003 " + zeros(2000) + "101"},
                       // a field number of two digits, 12
                       {"%tp12%3tn", "Undefined" + zeros(31)},
                       {"%tp12 %3tp2", "Undefined " + zeros(29) + "101"},
                       {"%jp12 %1jp2", "Undefined 00000000high"},
                       // a field number is NUL-terminated, which terminates the width, too
                       {"%tp2 %3tp2", "101 101"},
                       {"%tp2 %6tp2", "101 000101"},
                       // a longer width, whose rest is after that NUL
                       {"%987tp2", zeros(984) + "101"},
                       {"%012tp2 %12tp2", "000000000101 " + zeros(119) + "101"},
                       // a width without effect
                       {"%19% %2tp2", "% " + zeros(26) + "101"},
                       {"%19x %2tp2", "x " + zeros(26) + "101"},
                       // without a width nothing is read
                       {"%4tn %tn %tp2", "0003 3 101"},
                       {"%4tn%tn%2tp2", "00033101"},
                       // each expansion starts with a clear buffer
                       {"%2tn", "03"},
                   });
}

TEST(FillIn, CutsTheTaskNumberAt31Characters) {
  const AdapterContext context = makeContext();
  expectExpansions(context, 2,
                   {
                       {"%31tn", zeros(30) + "3"},
                       {"%32tn", zeros(31)},
                       {"%33tn", zeros(31)},
                       {"%40tn", zeros(31)},
                       {"%64tn", zeros(31)},
                       {"%65tn", zeros(31)},
                       {"%4000tn", zeros(31)},
                       {"%2147483647tn", zeros(31)},
                       {"%2147483646tn|", zeros(31) + "|"},
                   });
  expectExpansions(context, 12344, {{"%35tn", zeros(30) + "1"}, {"%34tn", zeros(29) + "12"}});
  expectExpansions(context, -12346,
                   {{"%34tn", "-" + zeros(28) + "12"}, {"%99tn", "-" + zeros(30)}});
}

// Digits beyond 32 bits produce such widths. printf takes the minus sign as its flag, which aligns
// to the left and disables zero padding.
TEST(FillIn, FillsTheTaskNumberWithSpacesForANegativeWidth) {
  const std::string spaces(30, ' ');
  expectExpansions(makeContext(), 2,
                   {
                       {"[%2147483648tn]", "[3" + spaces + "]"},  // -2147483648
                       {"[%4294967291tn]", "[3    ]"},            // -5
                       {"[%4294967295tn]", "[3]"},                // -1
                       {"[%4294967232tn]", "[3" + spaces + "]"},  // -64
                       {"[%4294967231tn]", "[3" + spaces + "]"},  // -65
                       {"[%9223372036854775807tn]", "[3]"},       // -1
                       {"[%99999999999999999999tn]", "[3]"},      // saturates, -1
                       {"[%4294967296tn]", "[3]"},                // 0
                       {"[%4294967300tn]", "[0003]"},             // 4
                       {"[%4294967291tp2]", "[101]"},             // no padding below 0
                   });
}

TEST(FillIn, DropsDigitsBeyond31) {
  const std::string digits30(30, '0');
  expectExpansions(makeContext(), 2,
                   {
                       {"%" + digits30 + "6tp2", "000101"},   // 31 digits count
                       {"%" + digits30 + "69tp2", "000101"},  // the 32nd does not
                       {"%" + digits30 + "6" + zeros(5000) + "tp2", "000101"},
                       {"%tp" + digits30 + "2", "101"},
                       {"%tp" + digits30 + "29", "101"},
                       {"%jp" + digits30 + "2" + std::string(5000, '9'), "high"},
                       {"%" + digits30 + "69", ""},
                       // 31 zeros remain, so that this 6 is a number beyond 64 bits: -1
                       {"%" + zeros(40) + "%[%6tp2]", "%[101]"},
                   });
}

TEST(FillIn, NumbersWrapToTheirLow32Bits) {
  expectExpansions(makeContext(), 2,
                   {
                       {"%tp4294967298", "101"},
                       {"%tp4294967295", "Undefined"},
                       {"%tp99999999999999999999", "Undefined"},
                       {"%jp4294967297", "/jobs/a.scn"},
                       {"%jp2147483648", "Undefined"},
                       {"%jp2147483647", "Undefined"},
                   });
}

TEST(FillIn, NeverExpandsAValue) {
  AdapterContext context = makeContext();
  context.paramValues[0] = "%tn 100%% %";
  context.taskList[2] = "%jp1\t%tx";
  expectExpansions(context, 2, {{"%jp1|%tp1|%tp2", "%tn 100%% %|%jp1|%tx"}});
}

TEST(FillIn, TakesTheTemplateUpToItsFirstNul) {
  const AdapterContext context = makeContext();
  std::string out;
  EXPECT_TRUE(fillInArguments(&context, &out, "a%tn\0b%tx", 2));
  EXPECT_EQ(out, "a3");
}

TEST(FillIn, ReturnsUpTo3999Bytes) {
  AdapterContext context = makeContext();
  context.paramValues[0] = std::string(1999, 'v');
  const std::string text(3998, 'x');
  expectExpansions(context, 2,
                   {
                       {text, text},
                       {text + "y", text + "y"},
                       {text + "%tn", text + "3"},
                       {text + "%%", text + "%"},
                       {"%3999tp2", zeros(3996) + "101"},
                       {"%3999tp3", zeros(3999)},
                       {"%jp1%jp1x", std::string(3998, 'v') + "x"},
                   });
}

TEST(FillIn, RefusesLongerExpansions) {
  AdapterContext context = makeContext();
  context.paramValues[0] = std::string(1999, 'v');
  const std::string text(3999, 'x');
  for (const std::string& argumentTemplate : {
           text + "y",
           text + "%tn",
           text + "%%",
           text + "%4tp3",
           text + "%jp2",
           std::string("%4000tp2"),
           std::string("%4000tp3"),
           std::string("%2147483647tp2"),
           std::string("%2147483647jp1"),
           std::string("%jp1%jp1xy"),
           std::string("%jp1%jp1%jp1"),
           std::string(100000, 'x'),
       }) {
    expectRefused(context, argumentTemplate);
  }
}

TEST(FillIn, ThrowsOutOfRangeForAMissingValue) {
  const AdapterContext context = makeContext();
  std::string out = before;
  EXPECT_THROW(fillInArguments(&context, &out, "%jp3", 2), std::out_of_range);
  EXPECT_THROW(fillInArguments(&context, &out, "%tp1", 3), std::out_of_range);
  EXPECT_THROW(fillInArguments(&context, &out, "%tp1", -1), std::out_of_range);
  EXPECT_EQ(out, before);
}

TEST(TaskField, IsFoundByItsNumber) {
  AdapterContext context;
  for (const char* entry : {"shot_A\t101\t\t250", "only", "a\t", "\t\tc", "", "\t"}) {
    context.taskList.push_back(entry);
  }
  const struct {
    std::int32_t taskIndex;
    std::int32_t fieldNumber;
    const char* field;
  } rows[] = {
      {0, 1, "shot_A"},
      {0, 2, "101"},
      {0, 3, ""},
      {0, 4, "250"},
      {0, 5, "Undefined"},
      {0, 6, "Undefined"},
      {0, 0, "Undefined"},
      {0, -1, "Undefined"},
      {1, 1, "only"},
      {1, 2, "Undefined"},
      {2, 1, "a"},
      {2, 2, "Undefined"},
      {2, 3, "Undefined"},
      {3, 1, ""},
      {3, 2, ""},
      {3, 3, "c"},
      {4, 1, "Undefined"},
      {4, 2, "Undefined"},
      {4, 0, "Undefined"},
      {5, 1, ""},
      {5, 2, "Undefined"},
      {0, std::numeric_limits<std::int32_t>::min(), "Undefined"},
      {0, std::numeric_limits<std::int32_t>::max(), "Undefined"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.taskIndex << ", " << row.fieldNumber);
    std::string out = before;
    getTaskField(&context, &out, row.taskIndex, row.fieldNumber);
    EXPECT_EQ(out, row.field);
  }
}

TEST(TaskField, TakesTheFirst2000BytesOfAnEntry) {
  const std::string text(1998, 'x');
  AdapterContext context;
  context.taskList.push_back(text + "y");        // 1999 bytes
  context.taskList.push_back(text + "yz");       // 2000
  context.taskList.push_back(text + "yzw");      // 2001
  context.taskList.push_back(text + "\tab\tc");  // the cut goes through the second field
  context.taskList.push_back(text + "y\tb");     // and here right after the first
  const struct {
    std::int32_t taskIndex;
    std::int32_t fieldNumber;
    std::string field;
  } rows[] = {
      {0, 1, text + "y"}, {1, 1, text + "yz"}, {2, 1, text + "yz"}, {3, 1, text},
      {3, 2, "a"},        {3, 3, "Undefined"}, {4, 1, text + "y"},  {4, 2, "Undefined"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.taskIndex << ", " << row.fieldNumber);
    std::string out;
    getTaskField(&context, &out, row.taskIndex, row.fieldNumber);
    EXPECT_EQ(out, row.field);
  }
}

TEST(TaskField, KeepsNothingOfALongerEarlierEntry) {
  AdapterContext context;
  context.taskList.push_back("long entry\twith two");
  context.taskList.push_back("s");
  std::string out;
  getTaskField(&context, &out, 0, 2);
  EXPECT_EQ(out, "with two");
  getTaskField(&context, &out, 1, 2);
  EXPECT_EQ(out, "Undefined");
}

std::string whatOf(void (*lookUp)(const AdapterContext&)) {
  try {
    lookUp(makeContext());
  } catch (const std::out_of_range& error) {
    return error.what();
  }
  return "nothing raised";
}

TEST(TaskField, ThrowsOutOfRangeForAMissingEntry) {
  EXPECT_EQ(whatOf([](const AdapterContext& context) {
              std::string out;
              getTaskField(&context, &out, 3, 1);
            }),
            "vector::_M_range_check: __n (which is 3) >= this->size() (which is 3)");
  EXPECT_EQ(whatOf([](const AdapterContext& context) {
              std::string out;
              getTaskField(&context, &out, -1, 0);
            }),
            "vector::_M_range_check: __n (which is 18446744073709551615) >= this->size() "
            "(which is 3)");
}

TEST(JobParam, IsFoundByItsNumber) {
  AdapterContext context = makeContext();
  context.paramValues[1] = "with\tTAB";
  const struct {
    std::int32_t number;
    const char* value;
  } rows[] = {
      {1, "/jobs/a.scn"},
      {2, "with\tTAB"},
      {4, "Undefined"},
      {0, "Undefined"},
      {-1, "Undefined"},
      {std::numeric_limits<std::int32_t>::max(), "Undefined"},
      {std::numeric_limits<std::int32_t>::min(), "Undefined"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.number);
    std::string out = before;
    getJobParam(&context, &out, row.number);
    EXPECT_EQ(out, row.value);
  }
}

TEST(JobParam, IsBoundedByTheNamesAlone) {
  AdapterContext context = makeContext();
  context.paramNames.resize(1);
  std::string out;
  getJobParam(&context, &out, 2);
  EXPECT_EQ(out, "Undefined");
  EXPECT_EQ(whatOf([](const AdapterContext& job) {
              std::string value;
              getJobParam(&job, &value, 3);
            }),
            "vector::_M_range_check: __n (which is 2) >= this->size() (which is 2)");
}

// The uses as texts: form, width and number, then the places in the template and in the expansion.
std::string describe(const std::vector<PlaceholderUse>& uses) {
  constexpr const char* forms[] = {"tn", "tp", "jp", "percent", "dropped", "malformed"};
  std::string text;
  for (const PlaceholderUse& use : uses) {
    text += forms[static_cast<std::size_t>(use.form)];
    for (const std::int32_t value : {use.width, use.number}) text += " " + std::to_string(value);
    for (const std::size_t place : {use.begin, use.end, use.valueBegin, use.valueEnd}) {
      text += " " + std::to_string(place);
    }
    text += "; ";
  }
  return text;
}

TEST(PlaceholderUses, HaveTheirPlaces) {
  const AdapterContext context = makeContext();
  std::string out;
  std::vector<PlaceholderUse> uses;
  EXPECT_TRUE(fillInArguments(&context, &out, "a%tn %6tp2 %jp2%%%z", 2, &uses));
  EXPECT_EQ(out, "a3 000101 high%z");
  EXPECT_EQ(describe(uses),
            "tn 0 0 1 4 1 2; tp 6 2 5 10 3 9; jp 0 2 11 15 10 14; percent 0 0 15 17 14 15; "
            "dropped 0 0 17 18 15 15; ");
  uses.clear();
  EXPECT_FALSE(fillInArguments(&context, &out, "x%3ty", 2, &uses));
  EXPECT_EQ(describe(uses), "malformed 3 0 1 3 1 1; ");
}

TEST(JobParam, TakesTheFirst2000BytesOfAValue) {
  AdapterContext context;
  context.paramNames.resize(3);
  for (const std::size_t length : {1999U, 2000U, 2001U}) {
    context.paramValues.push_back(std::string(length, 'v'));
  }
  for (const std::int32_t number : {1, 2, 3}) {
    std::string out;
    getJobParam(&context, &out, number);
    EXPECT_EQ(out, std::string(number == 1 ? 1999 : 2000, 'v'));
  }
}

TEST(JobParam, MayBeEmpty) {
  AdapterContext context;
  context.paramNames.resize(1);
  context.paramValues.resize(1);
  std::string out = before;
  getJobParam(&context, &out, 1);
  EXPECT_EQ(out, "");
}

}  // namespace
}  // namespace runlet
