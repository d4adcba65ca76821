#include "adapter/command_line.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace runlet {
namespace {

struct Parsed {
  AdapterContext context;
  std::int32_t result;
  std::string standardError;
};

void parse(const std::vector<std::string>& words, Parsed* parsed) {
  std::vector<std::string> copies = words;
  copies.insert(copies.begin(), "adapter");
  std::vector<char*> argv;
  for (std::string& word : copies) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;
  testing::internal::CaptureStderr();
  parsed->result = parseArguments(&parsed->context, static_cast<int>(copies.size()), argv.data());
  parsed->standardError = testing::internal::GetCapturedStderr();
}

// All fields set by options, as one text.
std::string describe(const AdapterContext& context) {
  std::string text;
  for (const std::string* field : {&context.opcode, &context.logPath, &context.jobFile,
                                   &context.appPath, &context.userName, &context.dataPath}) {
    text += *field + "|";
  }
  for (const std::int32_t field : {context.elapsedMs, context.firstTask, context.taskCount}) {
    text += std::to_string(field) + "|";
  }
  return text;
}

constexpr char noOpcode[] = "Runlet adapter: No opcode at all.\n";

TEST(CommandLine, OptionsSetTheirFields) {
  const struct {
    std::vector<std::string> words;
    const char* fields;  // opcode, log, job file, application, user, data; elapsed, first, count
  } rows[] = {
      {{"-o", "X"}, "X||||||0|0|1|"},
      {{"-o", "X", "-l", "L", "-j", "J", "-a", "A", "-u", "U", "-d", "D", "-e", "1", "-s", "2",
        "-n", "3"},
       "X|L|J|A|U|D|1|2|3|"},
      {{"-oX", "-lL", "-jJ", "-aA", "-uU", "-dD", "-e1", "-s2", "-n3"}, "X|L|J|A|U|D|1|2|3|"},
      {{"-o", "GetInfo", "-o", "NewTask"}, "NewTask||||||0|0|1|"},
      {{"-j", "long first value", "-o", "X", "-j", "b"}, "X||b||||0|0|1|"},
      {{"-s", "5", "-o", "X", "-s", "abc"}, "X||||||0|0|1|"},
      {{"-o", "X", "-n", "0"}, "X||||||0|0|0|"},
      {{"-o", "X", "-n", "-3"}, "X||||||0|0|-3|"},
      {{"-o", "X", "-s", " 7x"}, "X||||||0|7|1|"},
      {{"-o", "X", "-e", "4294967296"}, "X||||||0|0|1|"},
      {{"-o", "X", "-e", "2147483648"}, "X||||||-2147483648|0|1|"},
      {{"-o", "X", "-e", "99999999999999999999"}, "X||||||-1|0|1|"},
      {{"-o", "X", "-e", "-99999999999999999999"}, "X||||||0|0|1|"},
      {{"-o", "-s", "-n", "2"}, "-s||||||0|0|2|"},
      {{"stray", "-o", "X", "more", "-s", "2", "words"}, "X||||||0|2|1|"},
      {{"-o", "X", "--", "-s", "2"}, "X||||||0|0|1|"},
      {{"-o", "X", "-"}, "X||||||0|0|1|"},
      {{"-o", "X", "-j", ""}, "X||||||0|0|1|"},
      {{"-o", "X Y\tZ"}, "X Y\tZ||||||0|0|1|"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fields);
    Parsed parsed;
    parse(row.words, &parsed);
    EXPECT_EQ(describe(parsed.context), row.fields);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.standardError, "");
  }
}

TEST(CommandLine, WhatGetoptRefusesIsReportedByItAndIgnored) {
  const struct {
    std::vector<std::string> words;
    const char* fields;
    const char* standardError;
  } rows[] = {
      {{"-x", "5", "-o", "X"}, "X||||||0|0|1|", "adapter: invalid option -- 'x'\n"},
      {{"-o", "X", "-s"}, "X||||||0|0|1|", "adapter: option requires an argument -- 's'\n"},
      {{"-xq", "-o", "X", "-n"},
       "X||||||0|0|1|",
       "adapter: invalid option -- 'x'\nadapter: invalid option -- 'q'\n"
       "adapter: option requires an argument -- 'n'\n"},
      {{"-?", "-o", "X"}, "X||||||0|0|1|", "adapter: invalid option -- '?'\n"},
      {{"-:", "-o", "X"}, "X||||||0|0|1|", "adapter: invalid option -- ':'\n"},
      {{"--help", "-o", "X"},
       "X||||||0|0|1|",
       // and "lp" is the elapsed time, 0
       "adapter: invalid option -- '-'\nadapter: invalid option -- 'h'\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.standardError);
    Parsed parsed;
    parse(row.words, &parsed);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(describe(parsed.context), row.fields);
    EXPECT_EQ(parsed.standardError, row.standardError);
  }
}

TEST(CommandLine, FailsWithoutAnOpcode) {
  const struct {
    std::vector<std::string> words;
    const char* fields;
    std::string standardError;
  } rows[] = {
      {{}, "||||||0|0|1|", noOpcode},
      {{"NewTask"}, "||||||0|0|1|", noOpcode},
      {{"-o", ""}, "||||||0|0|1|", noOpcode},
      {{"-o", "X", "-o", ""}, "||||||0|0|1|", noOpcode},
      {{"-s", "4", "-j", "J"}, "||J||||0|4|1|", noOpcode},
      {{"-o"},
       "||||||0|0|1|",
       std::string("adapter: option requires an argument -- 'o'\n") + noOpcode},
  };
  for (const auto& row : rows) {
    Parsed parsed;
    parse(row.words, &parsed);
    EXPECT_EQ(parsed.result, -1);
    EXPECT_EQ(describe(parsed.context), row.fields);
    EXPECT_EQ(parsed.standardError, row.standardError);
  }
}

}  // namespace
}  // namespace runlet
