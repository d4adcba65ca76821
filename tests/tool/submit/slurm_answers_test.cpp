// Parsing the output of Slurm's programs.

#include <gtest/gtest.h>

#include <ostream>

#include "tool/slurm/answers.h"

namespace runlet_tool {

void PrintTo(const TaskEnd& end, std::ostream* out) {
  *out << "'" << describe(end) << "' " << end.number << " " << end.word;
}

namespace {

const TaskEnd succeeded = {Ending::succeeded, 0, ""};
const TaskEnd timedOut = {Ending::timedOut, 0, ""};

TaskEnd failed(int code) {
  return {Ending::failed, code, ""};
}

TaskEnd killed(int signal) {
  return {Ending::killed, signal, ""};
}

TaskEnd word(const std::string& text) {
  return {Ending::other, 0, text};
}

TEST(SlurmAnswers, OfAReplyIsTheId) {
  EXPECT_EQ(readReply("123\n"), (ArrayId{"123", ""}));
  EXPECT_EQ(readReply("123"), (ArrayId{"123", ""}));
  EXPECT_EQ(readReply("4294967294;lab\n"), (ArrayId{"4294967294", "lab"}));
  for (const char* text : {"", "\n", ";lab", "x", "12x", "12 ", " 12", "12\n\n", "12\n13", "-1",
                           "Submitted batch job 12\n", "12;a b", "12;a\nb"}) {
    EXPECT_FALSE(readReply(text)) << text;
  }
}

TEST(SlurmAnswers, OfAConfigurationIsTheGreatestSizeOfAnArray) {
  EXPECT_EQ(readMaxArraySize("Configuration data as of 2031-01-02T03:04:05\n"
                             "MaxArraySizes           = 3\n"
                             "MaxArraySize            = 1001\n"
                             "MaxDBDMsgs              = 20008\n"),
            1001);
  EXPECT_EQ(readMaxArraySize("MaxArraySize = 4000001"), 4000001);
  for (const char* text : {"", "MaxArraySize", "MaxArraySize = ", "MaxArraySize = x",
                           "MaxArraySize : 5", "MaxArraySize = 1 2", "MaxArraySize = -1",
                           "MaxArraySize = 99999999999999999999", "x MaxArraySize = 5"}) {
    EXPECT_FALSE(readMaxArraySize(text)) << text;
  }
}

struct StateCase {
  std::string state;
  int waitStatus;
  std::optional<TaskEnd> end;
};

TEST(SlurmAnswers, OfTheQueueIsTheStateOfEveryElement) {
  const StateCase cases[] = {
      {"COMPLETED", 0, succeeded},
      {"FAILED", 768, failed(3)},
      {"FAILED", 32512, failed(127)},
      {"FAILED", 9, killed(9)},
      {"FAILED", 139, killed(11)},
      {"FAILED", 0, word("failed")},
      {"FAILED", 127, word("failed")},
      {"TIMEOUT", 15, timedOut},
      {"NODE_FAIL", 256, word("node_fail")},
      {"CANCELLED", 15, word("cancelled")},
      {"OUT_OF_MEMORY", 9, word("out_of_memory")},
      {"PREEMPTED", 0, word("preempted")},
      {"BOOT_FAIL", 0, word("boot_fail")},
      {"DEADLINE", 0, word("deadline")},
      {"REVOKED", 0, word("revoked")},
      {"PENDING", 0, std::nullopt},
      {"RUNNING", 0, std::nullopt},
      {"COMPLETING", 0, std::nullopt},
      {"CONFIGURING", 0, std::nullopt},
      {"SUSPENDED", 0, std::nullopt},
      {"REQUEUED", 0, std::nullopt},
      {"SOMETHING_NEW", 256, std::nullopt},
      {"completed", 0, std::nullopt},
  };
  std::string text;
  ElementStates expected;
  for (const StateCase& row : cases) {
    const auto element = static_cast<std::int32_t>(expected.size());
    text += "12                  " + std::to_string(element) + "                   " + row.state +
            "           " + std::to_string(row.waitStatus) + "                   \n";
    expected[{"12", element}] = row.end;
  }
  ElementStates states = {{{"12", 0}, failed(1)}, {{"13", 1}, succeeded}};
  expected[{"13", 1}] = succeeded;
  readQueue(text, &states);
  EXPECT_EQ(states, expected);
}

TEST(SlurmAnswers, OfTheQueueIsIgnoredIfItIsSomethingElse) {
  ElementStates states;
  readQueue(
      "\n   \nCLUSTER: lab\n12 N/A RUNNING 0\n12 1 RUNNING\n12 2 RUNNING 0 x\nx 3 RUNNING 0\n"
      "12 4 RUNNING -1\n12 99999999999 RUNNING 0\n12 5 RUNNING 0:0\n12 -6 RUNNING 0\n"
      "12 7 RUNNING 99999999999\n12_8 8 RUNNING 0",
      &states);
  EXPECT_TRUE(states.empty());
  readQueue("12 9 RUNNING 0", &states);
  EXPECT_EQ(states, (ElementStates{{{"12", 9}, std::nullopt}}));
}

TEST(SlurmAnswers, OfTheAccountsIsTheStateOfEveryElement) {
  ElementStates states = {{{"12", 1}, succeeded}};
  readAccounts(
      "12_1|FAILED|3:0\n12_2|FAILED|3:0\n12_3|FAILED|0:9\n12_4|CANCELLED by 1000|0:15\n"
      "12_5|RUNNING|0:0\n12_6|TIMEOUT|0:0\n12_7|COMPLETED|0:0\n12_8|FAILED|0:0\n"
      "12_9|FAILED|0:127\n12_10|NODE_FAIL|1:0\n",
      &states);
  EXPECT_EQ(states, (ElementStates{{{"12", 1}, succeeded},
                                   {{"12", 2}, failed(3)},
                                   {{"12", 3}, killed(9)},
                                   {{"12", 4}, word("cancelled")},
                                   {{"12", 5}, std::nullopt},
                                   {{"12", 6}, timedOut},
                                   {{"12", 7}, succeeded},
                                   {{"12", 8}, word("failed")},
                                   {{"12", 9}, word("failed")},
                                   {{"12", 10}, word("node_fail")}}));
}

TEST(SlurmAnswers, OfTheAccountsGroupElementsThatWereNotStarted) {
  ElementStates states;
  readAccounts(
      "12_[1,4-6,9-9%2]|PENDING|0:0\n13_[2,3999999-4000000]|CANCELLED by "
      "0|0:0\n14_[3-2,7,x,8-y]|PENDING|0:0",
      &states);
  EXPECT_EQ(states, (ElementStates{{{"12", 1}, std::nullopt},
                                   {{"12", 4}, std::nullopt},
                                   {{"12", 5}, std::nullopt},
                                   {{"12", 6}, std::nullopt},
                                   {{"12", 9}, std::nullopt},
                                   {{"13", 2}, word("cancelled")},
                                   {{"13", 3999999}, word("cancelled")},
                                   {{"13", 4000000}, word("cancelled")},
                                   {{"14", 7}, std::nullopt}}));
}

TEST(SlurmAnswers, OfTheAccountsIsIgnoredIfItIsSomethingElse) {
  ElementStates states;
  readAccounts(
      "\n\n|\n||\n12|FAILED|1:0\n_1|FAILED|1:0\n12_|FAILED|1:0\nx_1|FAILED|1:0\n12_x|FAILED|1:0\n"
      "12_[1|FAILED|x\n12_[0-2147483647]|FAILED|1:0\n12_4000001|FAILED|1:0\n12_1,...|RUNNING|\n"
      "Slurm accounting storage is disabled",
      &states);
  EXPECT_EQ(states, (ElementStates{{{"12", 1}, word("failed")}}));
}

}  // namespace
}  // namespace runlet_tool
