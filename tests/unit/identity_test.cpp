#include "adapter/identity.h"

#include <gtest/gtest.h>

namespace runlet {
namespace {

constexpr char genericName[] = "Command Line Tool";

// Restores the two strings to their initial values.
class Identity : public testing::Test {
 protected:
  void TearDown() override {
    adapterName = genericName;
    adapterDescription.clear();
  }
};

TEST_F(Identity, IsGenericBeforeMainSetsIt) {
  EXPECT_EQ(adapterName, genericName);
  EXPECT_EQ(adapterDescription, "");
}

TEST_F(Identity, ComesFromTheBaseNameOfTheProgram) {
  const struct {
    const char* programPath;
    const char* name;
  } rows[] = {
      {"UserRunletAdapter", "Command Line Tool"},
      {"/opt/adapters/UserRunletAdapter", "Command Line Tool"},
      {"./UserRunletAdapter", "Command Line Tool"},
      {"/opt/adapters/MyAdapter", "MyAdapter"},
      {"./bin/adapter2", "adapter2"},
      {"adapter2", "adapter2"},
      {"userrunletadapter", "userrunletadapter"},
      {"UserRunletAdapter2", "UserRunletAdapter2"},
      {"xUserRunletAdapter", "xUserRunletAdapter"},
      {"UserRunletAdapter/", "Command Line Tool"},
      {"dir/", "dir"},
      {"a/dir///", "dir"},
      {"my adapter", "my adapter"},
      {"<&>", "<&>"},
      {"/", "/"},
      {"", "."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.programPath);
    adapterName = genericName;
    setIdentity(row.programPath);
    EXPECT_EQ(adapterName, row.name);
    EXPECT_EQ(adapterDescription, std::string(row.name) + " v2023 with user rights");
  }
}

TEST_F(Identity, LeavesTheProgramPathAsItIs) {
  char programPath[] = "a/dir//";
  setIdentity(programPath);
  EXPECT_STREQ(programPath, "a/dir//");
}

}  // namespace
}  // namespace runlet
