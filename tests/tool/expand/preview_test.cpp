// Previews, beyond what expand shows.

#include "tool/job/preview.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace runlet_tool {
namespace {

runlet::AdapterContext contextFor(const std::string& arguments) {
  runlet::AdapterContext context;
  context.jobFile = "/srv/job.xml";
  context.appPath = "/opt/bin/tool";
  context.arguments = arguments;
  context.uid = 1234;
  context.gid = 99;
  context.taskList.emplace_back("a");
  return context;
}

// The words would still point into the original.
TEST(Preview, CannotBeCopiedOrMoved) {
  static_assert(!std::is_copy_constructible_v<Preview> && !std::is_copy_assignable_v<Preview>);
  static_assert(!std::is_move_constructible_v<Preview> && !std::is_move_assignable_v<Preview>);
}

TEST(Preview, HasNothingOfThePreviousTask) {
  Preview preview;
  for (const char* arguments : {"render %ta", "render", "render %jp1"}) {
    previewTask(contextFor("render %tn"), 0, true, &preview);
    EXPECT_EQ(preview.outcome, Outcome::starts);
    EXPECT_EQ(preview.start.commandLine, "/opt/bin/render 1");
    EXPECT_EQ(preview.start.chmodPath, "/opt/bin/render");
    ASSERT_EQ(preview.words.size(), 2U);
    EXPECT_STREQ(preview.words[1], "1");
    runlet::AdapterContext context = contextFor(arguments);
    context.paramNames.emplace_back("without a value");
    previewTask(context, 0, true, &preview);
    EXPECT_NE(preview.outcome, Outcome::starts) << arguments;
    EXPECT_FALSE(preview.isComposed);
    EXPECT_EQ(preview.start.folder, "/srv");
    EXPECT_EQ(preview.start.commandLine + preview.start.chmodPath, "");
    EXPECT_TRUE(preview.words.empty());
  }
  previewNotReached(3, &preview);
  EXPECT_EQ(preview.outcome, Outcome::notReached);
  EXPECT_EQ(preview.message, "");
  EXPECT_EQ(preview.reason, "task 3 ended the request");
}

}  // namespace
}  // namespace runlet_tool
