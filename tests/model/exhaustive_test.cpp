// The adapter compared with the model, on every short text.
//
//   RUNLET_TEST_CASES=n   each test tries lengths up to the greatest with at most n texts
#include "cases.h"
#include "comparison.h"

namespace runlet_model {
namespace {

const std::vector<std::string> templateCharacters = {"%", "t", "n", "p",  "j", "0",
                                                     "2", "9", "x", "\t", " "};
constexpr std::size_t upToSixCharacters = 1'948'717;
constexpr std::size_t upToSevenCharacters = 21'435'888;

void checkEveryTemplate(const Lists& lists, std::int32_t taskIndex, std::size_t usual) {
  const Job job(lists);
  checkEveryText(templateCharacters, usual,
                 [&](const std::string& text) { return sameExpansion(job, text, taskIndex); });
}

std::vector<std::string> copies(std::size_t count, const std::string& text) {
  return std::vector<std::string>(count, text);
}

TEST(EveryTemplate, IsFilledInLikeTheModel) {
  Lists lists;
  lists.taskList = {"1", "", "shot\t101\t\t%tn\t5\t6\t7\t8\t9th", "4"};
  lists.paramNames = copies(9, "name");
  lists.paramValues = {"/jobs/a.scn", "a\t%b", "3", "4", "5", "6", "7", "8", ""};
  checkEveryTemplate(lists, 2, upToSevenCharacters);
}

TEST(EveryTemplate, IsFilledInLikeTheModelIfValuesAreMissing) {
  Lists lists;
  lists.taskList = copies(29, "the field\t");
  lists.paramNames = copies(9, "name");
  lists.paramValues = {"only"};
  checkEveryTemplate(lists, 28, upToSixCharacters);
}

TEST(EveryTemplate, IsFilledInLikeTheModelIfNamesAreMissing) {
  Lists lists;
  lists.taskList = {"\t\t"};
  lists.paramNames = {"", ""};
  lists.paramValues = copies(29, "value");
  checkEveryTemplate(lists, 0, upToSixCharacters);
}

TEST(EveryTemplate, IsFilledInLikeTheModelWithoutATask) {
  checkEveryTemplate(Lists(), -30, upToSixCharacters);
}

// Parts instead of characters, to get several placeholders in one template.
TEST(EveryTemplate, OfPlaceholdersIsFilledInLikeTheModel) {
  const std::vector<std::string> parts = {"%", "2", "0", "9", "tn", "tp", "jp", "x"};
  Lists lists;
  lists.taskList = {"one", "one\t22\tthree", "one"};
  lists.paramNames = {"name", "name", "name"};
  lists.paramValues = {"value", "v"};
  const Job job(lists);
  constexpr std::size_t upToSevenParts = 2'396'745;
  checkEveryText(parts, upToSevenParts,
                 [&](const std::string& text) { return sameExpansion(job, text, 1); });
}

TEST(EveryTemplate, IsFilledInLikeTheModelForEveryTaskAtABorder) {
  const std::vector<std::string> parts = {"%", "4", "40", "4294967293", "tn", "tp1"};
  Lists lists;
  lists.taskList = {"entry"};
  const Job job(lists);
  constexpr std::size_t upToFiveParts = 9'331;
  for (const std::int32_t taskIndex :
       {INT32_MIN, INT32_MIN + 1, -11, -10, -2, -1, 0, 1, 8, 9, INT32_MAX - 1, INT32_MAX}) {
    checkEveryText(parts, upToFiveParts,
                   [&](const std::string& text) { return sameExpansion(job, text, taskIndex); });
  }
}

const std::int32_t listNumbers[] = {
    INT32_MIN, INT32_MIN + 1, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, INT32_MAX - 1, INT32_MAX};

testing::AssertionResult sameTaskFields(const std::string& entry) {
  Lists lists;
  lists.taskList = {"longer than the entry\tto come", entry};
  const Job job(lists);
  for (const std::int32_t fieldNumber : listNumbers) {
    const testing::AssertionResult result = sameTaskField(job, 1, fieldNumber);
    if (!result) return result;
  }
  return testing::AssertionSuccess();
}

TEST(EveryEntry, HasTheSameFields) {
  checkEveryText({"\t", "a", " "}, 9'841, sameTaskFields);
}

TEST(EveryEntry, IsFoundLikeTheModel) {
  Lists lists;
  for (int count = 0; count < 4; ++count) {
    const Job job(lists);
    for (const std::int32_t index : listNumbers) {
      EXPECT_TRUE(sameTaskField(job, index, 1));
      EXPECT_TRUE(sameTaskField(job, index, 2));
    }
    lists.taskList.push_back("entry " + std::to_string(count));
  }
}

TEST(EveryParameter, IsFoundLikeTheModel) {
  for (std::size_t nameCount = 0; nameCount < 8; ++nameCount) {
    for (std::size_t valueCount = 0; valueCount < 8; ++valueCount) {
      Lists lists;
      lists.paramNames = copies(nameCount, "name");
      for (std::size_t i = 0; i < valueCount; ++i) lists.paramValues.emplace_back(8 - i, 'v');
      const Job job(lists);
      for (const std::int32_t number : listNumbers) EXPECT_TRUE(sameJobParam(job, number));
    }
  }
}

TEST(EveryText, IsStrippedOfBracesLikeTheModel) {
  checkEveryText({"{", "}", "a", " "}, 1'398'101, sameStrippedText);
}

TEST(EveryText, IsSplitIntoWordsLikeTheModel) {
  checkEveryText({" ", "\"", "\t", "a", "\\"}, 2'441'406, sameWords);
}

TEST(EveryText, IsReadAsANumberLikeTheModel) {
  checkEveryText({" ", "\n", "+", "-", "0", "1", "9", "a", "\xa0"}, 5'380'840, sameNumber);
}

const std::string bordersOfNumbers[] = {"2147483645",
                                        "2147483646",
                                        "2147483647",
                                        "2147483648",
                                        "2147483649",
                                        "4294967294",
                                        "4294967295",
                                        "4294967296",
                                        "4294967297",
                                        "6442450943",
                                        "6442450944",
                                        "9223372034707292159",
                                        "9223372034707292160",
                                        "9223372036854775806",
                                        "9223372036854775807",
                                        "9223372036854775808",
                                        "9223372036854775809",
                                        "9223372036854775817",
                                        "18446744073709551615",
                                        "18446744073709551616",
                                        "18446744073709551617",
                                        "99999999999999999999",
                                        "9999999999999999999999999999999999999999"};

TEST(EveryNumber, AtABorderIsReadLikeTheModel) {
  for (const std::string& border : bordersOfNumbers) {
    for (const char* front : {"", " ", "\t\n\v\f\r ", "0", "00000000000000000000000000000000"}) {
      for (const char* after : {"", " ", "0", "00", "x", ".5", "-1"}) {
        for (const char* sign : {"", "+", "-", "--", "-+"}) {
          EXPECT_TRUE(sameNumber(sign + (front + border) + after));
          EXPECT_TRUE(sameNumber(front + (sign + border) + after));
        }
      }
    }
  }
}

}  // namespace
}  // namespace runlet_model
