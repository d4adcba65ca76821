// The options of make: the resulting job, and what is refused.

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "tool/make/options.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

MakeOptions plainOptions() {
  MakeOptions options;
  options.command = {"run"};
  return options;
}

runlet::AdapterContext jobOf(const MakeOptions& options) {
  runlet::AdapterContext job;
  Complaint complaint;
  EXPECT_TRUE(readJobOptions(options, &job, &complaint)) << complaint.text;
  return job;
}

std::string complaintOf(const MakeOptions& options) {
  runlet::AdapterContext job;
  Complaint complaint;
  EXPECT_FALSE(readJobOptions(options, &job, &complaint));
  EXPECT_EQ(complaint.status, exitFailing);
  return complaint.text;
}

using Strings = std::vector<std::string>;

TEST(MakeOptions, HaveDefaults) {
  const runlet::AdapterContext job = jobOf(plainOptions());
  EXPECT_EQ(job.arguments, "run");
  EXPECT_EQ(job.workingFolder, "");
  EXPECT_EQ(job.logFolder, "");
  EXPECT_EQ(job.outputs, "");
  EXPECT_EQ(job.taskNameIdx, 1);
  EXPECT_EQ(job.taskTimeout, 35791);
  EXPECT_EQ(job.uid, static_cast<std::int32_t>(geteuid()));
  EXPECT_EQ(job.gid, static_cast<std::int32_t>(getegid()));
  EXPECT_EQ(job.umask, 18);
  EXPECT_TRUE(job.redirectStderr);
  EXPECT_EQ(job.taskList, Strings{"task"});
  EXPECT_TRUE(job.paramNames.empty());
  EXPECT_TRUE(job.paramValues.empty());
}

TEST(MakeOptions, FillTheJob) {
  MakeOptions options = plainOptions();
  options.command = {"run", "%tp2", "", "a b"};
  options.folder = "/srv/wall";
  options.logs = "/srv/log";
  options.outputs = "/srv/out/%d";
  options.timeout = "90";
  options.standardError = "keep";
  options.frames = "1-4";
  options.chunk = "3";
  const runlet::AdapterContext job = jobOf(options);
  EXPECT_EQ(job.arguments, "run %tp2  a b");
  EXPECT_EQ(job.workingFolder, "/srv/wall");
  EXPECT_EQ(job.logFolder, "/srv/log");
  EXPECT_EQ(job.outputs, "/srv/out/%d");
  EXPECT_EQ(job.taskTimeout, 90);
  EXPECT_FALSE(job.redirectStderr);
  EXPECT_EQ(job.taskList, (Strings{"frames 1-3\t1\t3", "frame 4\t4\t4"}));
}

TEST(MakeOptions, FillTheParameters) {
  MakeOptions options = plainOptions();
  options.params = {"b=2", "a=", "c== x=", "A=\t", " =y", "long=" + std::string(1999, 'v')};
  const runlet::AdapterContext job = jobOf(options);
  EXPECT_EQ(job.paramNames, (Strings{"b", "a", "c", "A", " ", "long"}));
  EXPECT_EQ(job.paramValues, (Strings{"2", "", "= x=", "\t", "y", std::string(1999, 'v')}));
}

struct ParamRow {
  Strings params;
  std::string complaint;
};

TEST(MakeOptions, RefuseInvalidParameters) {
  const std::string tooLong(2000, 'v');
  const std::vector<ParamRow> rows = {
      {{"scene"}, "--param scene: expected NAME=VALUE"},
      {{""}, "--param '': expected NAME=VALUE"},
      {{"{}"}, "--param '{}': expected NAME=VALUE"},
      {{"=x"}, "--param '=x': the name is empty"},
      {{"="}, "--param '=': the name is empty"},
      {{"a=1", "b=2", "a=3"}, "--param 'a=3': the name is given twice"},
      {{"a=" + tooLong},
       "--param 'a=" + std::string(58, 'v') + "'...: 2000 bytes; the limit is 1999"},
      {{tooLong + "=a"}, "--param " + std::string(60, 'v') + "...: 2000 bytes; the limit is 1999"},
      {{"a=\x01"}, "--param $'a=\\001': XML has no character U+0001, at byte 1"},
      {{"\xe4=1"}, "--param $'\\344=1': the byte 0xE4 is not UTF-8, at byte 1"},
  };
  for (const ParamRow& row : rows) {
    MakeOptions options = plainOptions();
    options.params = row.params;
    EXPECT_EQ(complaintOf(options), row.complaint);
  }
}

struct UmaskRow {
  const char* text;
  std::int32_t umask;
};

TEST(MakeOptions, HaveAnOctalUmask) {
  constexpr UmaskRow rows[] = {{"0", 0},     {"7", 7},    {"10", 8},    {"22", 18},     {"022", 18},
                               {"0022", 18}, {"077", 63}, {"777", 511}, {"000777", 511}};
  for (const UmaskRow& row : rows) {
    MakeOptions options = plainOptions();
    options.umask = row.text;
    EXPECT_EQ(jobOf(options).umask, row.umask) << row.text;
  }
}

struct ValueRow {
  std::optional<std::string> MakeOptions::*option;
  std::string value;
  std::string complaint;
};

std::string complaintOf(const ValueRow& row) {
  MakeOptions options = plainOptions();
  options.frames = "1";
  options.*row.option = row.value;
  return complaintOf(options);
}

TEST(MakeOptions, RefuseInvalidNumbers) {
  const std::vector<ValueRow> rows = {
      {&MakeOptions::umask, "", "--umask '': expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "8", "--umask 8: expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "018", "--umask 018: expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "1000", "--umask 1000: expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "-1", "--umask -1: expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "0o22", "--umask 0o22: expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "u=rw", "--umask 'u=rw': expected an octal number from 0 to 777"},
      {&MakeOptions::umask, "77777777777",
       "--umask 77777777777: expected an octal number from 0 to 777"},
      {&MakeOptions::timeout, "", "--timeout '': expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, "0", "--timeout 0: expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, "-5", "--timeout -5: expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, "35792",
       "--timeout 35792: expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, "1h", "--timeout 1h: expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, " 1", "--timeout ' 1': expected a number of minutes from 1 to 35791"},
      {&MakeOptions::timeout, "4294967297",
       "--timeout 4294967297: expected a number of minutes from 1 to 35791"},
      {&MakeOptions::chunk, "0", "--chunk 0: expected a number of frames, at least 1"},
      {&MakeOptions::chunk, "-1", "--chunk -1: expected a number of frames, at least 1"},
      {&MakeOptions::chunk, "ten", "--chunk ten: expected a number of frames, at least 1"},
      {&MakeOptions::chunk, "2147483648",
       "--chunk 2147483648: expected a number of frames, at least 1"},
      {&MakeOptions::frames, "3-1", "--frames 3-1: 3-1: the first frame comes after the last"},
      {&MakeOptions::frames, "1,1", "--frames 1,1: frame 1 is given twice"},
      {&MakeOptions::standardError, "yes", "--stderr yes: expected join or keep"},
      {&MakeOptions::standardError, "", "--stderr '': expected join or keep"},
      {&MakeOptions::standardError, "Join", "--stderr Join: expected join or keep"},
  };
  for (const ValueRow& row : rows) EXPECT_EQ(complaintOf(row), row.complaint);
}

TEST(MakeOptions, RefuseInvalidTexts) {
  const std::vector<ValueRow> rows = {
      {&MakeOptions::folder, "", "--folder '': it is empty"},
      {&MakeOptions::logs, "", "--logs '': it is empty"},
      {&MakeOptions::outputs, "", "--outputs '': it is empty"},
      {&MakeOptions::folder, " ", "--folder ' ': white space alone would be read as empty"},
      {&MakeOptions::logs, "\t\n\r ",
       "--logs $'\\011\\012\\015 ': white space alone would be read as empty"},
      {&MakeOptions::folder, "/a\x02",
       "--folder $'/a\\002': XML has no character U+0002, at byte 3"},
      {&MakeOptions::outputs, "/a\xff",
       "--outputs $'/a\\377': the byte 0xFF is not UTF-8, at byte 3"},
  };
  for (const ValueRow& row : rows) EXPECT_EQ(complaintOf(row), row.complaint);
}

TEST(MakeOptions, RefuseInvalidCommands) {
  MakeOptions options;
  options.command = {""};
  EXPECT_EQ(complaintOf(options), "COMMAND '': it is empty");
  options.command = {"run", "a\x1b[0m"};
  EXPECT_EQ(complaintOf(options), "COMMAND $'a\\033[0m': XML has no character U+001B, at byte 2");
}

struct IdRow {
  std::string text;
  std::int32_t id;
};

TEST(MakeOptions, UsersAndGroupsBecomeNumbers) {
  const passwd* user = getpwuid(geteuid());
  ASSERT_NE(user, nullptr);
  const group* ownGroup = getgrgid(getegid());
  ASSERT_NE(ownGroup, nullptr);
  const std::vector<IdRow> both = {
      {"root", 0},       {"0", 0}, {"4711", 4711}, {"007", 7}, {"3000000000", -1294967296},
      {"4294967294", -2}};
  for (const IdRow& row : both) {
    MakeOptions options = plainOptions();
    options.user = row.text;
    options.group = row.text;
    EXPECT_EQ(jobOf(options).uid, row.id) << row.text;
    EXPECT_EQ(jobOf(options).gid, row.id) << row.text;
  }
  MakeOptions options = plainOptions();
  options.user = user->pw_name;
  options.group = ownGroup->gr_name;
  EXPECT_EQ(jobOf(options).uid, static_cast<std::int32_t>(geteuid()));
  EXPECT_EQ(jobOf(options).gid, static_cast<std::int32_t>(getegid()));
}

TEST(MakeOptions, RefuseUnknownUsersAndGroups) {
  const Strings unknown = {"",     "-1",    "+1",         "1x",         " 1",
                           "0x10", "1000 ", "4294967295", "4294967296", "nobody.of.this.name"};
  for (const std::string& text : unknown) {
    MakeOptions options = plainOptions();
    options.user = text;
    const std::string value =
        text.find(' ') == std::string::npos && !text.empty() ? text : "'" + text + "'";
    EXPECT_EQ(complaintOf(options), "--user " + value + ": no such user");
    options.user.reset();
    options.group = text;
    EXPECT_EQ(complaintOf(options), "--group " + value + ": no such group");
  }
}

TEST(MakeOptions, AreShortenedInMessages) {
  EXPECT_EQ(shortShellWord(std::string(60, 'a')), std::string(60, 'a'));
  EXPECT_EQ(shortShellWord(std::string(61, 'a')), std::string(60, 'a') + "...");
  // not cut within a character
  EXPECT_EQ(shortShellWord(std::string(59, 'a') + "\xc3\xa4 b"), std::string(59, 'a') + "...");
  EXPECT_EQ(shortShellWord(std::string(58, 'a') + "\xc3\xa4 b"),
            "'" + std::string(58, 'a') + "\xc3\xa4'...");
}

}  // namespace
}  // namespace runlet_tool
