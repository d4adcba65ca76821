// Options allowed for a submission.

#include <gtest/gtest.h>

#include "tool/batch/task_rights.h"
#include "tool/slurm/sbatch.h"

namespace runlet_tool {
namespace {

TEST(SbatchOption, MayBeAnyThatTheProgramDoesNotSetItself) {
  for (const char* option : {"--mem=4G",
                             "-pmain",
                             "-x",
                             "--exclude=n[1-4],a",
                             "--account=w",
                             "-Aa",
                             "-vv",
                             "-H",
                             "-Ja",
                             "-JaW",
                             "-JWa",
                             "-s",
                             "--wait-all-nodes=1",
                             "--wckey=x",
                             "--array-x",
                             "--commentary",
                             "--no-requeue",
                             "-ntest-only",
                             "-=a",
                             "--output=x"}) {
    EXPECT_EQ(complaintAboutSbatchOption(option), "") << option;
  }
}

TEST(SbatchOption, MayNotBeOneThatTheProgramSetsOrDependsOn) {
  for (const std::string option :
       {"--",     "--=x",  "--array", "--array=1", "--arra",     "--a=3",   "-a",          "-a1",
        "-Ha",    "-vHW",  "-W",      "-kW",       "--parsable", "--pars",  "--wrap=x",    "--wr",
        "--wait", "--wai", "--w",     "--comment", "--comment=", "--com=x", "--test-only", "--t"}) {
    EXPECT_EQ(complaintAboutSbatchOption(option),
              option + " is not allowed, since runlet-job sets it or depends on it");
  }
}

TEST(SbatchOption, IsOneWordThatBeginsLikeAnOption) {
  for (const std::string option : {"", "-", "mem=4G", "4G", " --mem", "script.sh"}) {
    EXPECT_EQ(
        complaintAboutSbatchOption(option),
        option + " is not an option; write an option and its value as one word, such as --mem=4G");
  }
}

TEST(KeptVariable, IsAName) {
  for (const char* name : {"A", "a b", "LC_ALL", "1"}) EXPECT_EQ(complaintAboutVariable(name), "");
  EXPECT_EQ(complaintAboutVariable(""), " is not a variable name");
  EXPECT_EQ(complaintAboutVariable("A="), "A= is not a variable name");
}

TEST(ArrayId, IsANumber) {
  for (const char* id : {"1", "12", "4294967295"}) EXPECT_EQ(complaintAboutId(id), "");
  for (const std::string id :
       {"", "0", "012", "12_3", "12;lab", "-1", "+1", " 1", "1,2", "x", "12345678901"}) {
    EXPECT_EQ(complaintAboutId(id), id + " is not an array id");
  }
}

}  // namespace
}  // namespace runlet_tool
