#include "adapter/context.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace runlet {
namespace {

TEST(Context, EveryFieldHasItsDefault) {
  const AdapterContext context;
  EXPECT_EQ(context.jobFile, "");
  EXPECT_EQ(context.appPath, "");
  EXPECT_EQ(context.opcode, "");
  EXPECT_EQ(context.logPath, "");
  EXPECT_EQ(context.firstTask, 0);
  EXPECT_EQ(context.taskCount, 1);
  EXPECT_EQ(context.elapsedMs, 0);
  EXPECT_EQ(context.userName, "");
  EXPECT_EQ(context.dataPath, "");
  EXPECT_EQ(context.arguments, "");
  EXPECT_EQ(context.workingFolder, "");
  EXPECT_EQ(context.logFolder, "");
  EXPECT_EQ(context.outputs, "");
  EXPECT_EQ(context.taskNameIdx, 0);
  EXPECT_EQ(context.taskTimeout, 0);
  EXPECT_EQ(context.uid, -1);
  EXPECT_EQ(context.gid, -1);
  EXPECT_EQ(context.umask, 0);
  EXPECT_TRUE(context.redirectStderr);
  EXPECT_TRUE(context.taskList.empty());
  EXPECT_TRUE(context.paramNames.empty());
  EXPECT_TRUE(context.paramValues.empty());
}

TEST(StringList, IsAVectorOfStringsWithAVirtualDestructor) {
  static_assert(std::is_base_of_v<std::vector<std::string>, StringList>);
  static_assert(std::is_polymorphic_v<StringList>);
  static_assert(std::has_virtual_destructor_v<StringList>);
  static_assert(std::is_copy_constructible_v<StringList> && std::is_copy_assignable_v<StringList>);
  static_assert(std::is_nothrow_move_constructible_v<StringList>);
  static_assert(std::is_nothrow_move_assignable_v<StringList>);
  StringList list;
  list.push_back("b");
  list.push_back("a");
  EXPECT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0], "b");
  EXPECT_EQ(list[1], "a");
}

}  // namespace
}  // namespace runlet
