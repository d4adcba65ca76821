// Files that must exist when a task ends.

#include "tool/batch/expected.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "adapter_test.h"
#include "temp_folder.h"

namespace runlet_tool {
namespace {

Batch batchIn(const std::string& folder) {
  Batch batch;
  for (const char* task : {"dawn\t7", "dusk"}) batch.context.taskList.push_back(task);
  for (const char* name : {"scene", "without a value"}) batch.context.paramNames.push_back(name);
  batch.context.paramValues.push_back("orbit");
  batch.context.uid = static_cast<std::int32_t>(geteuid());
  batch.context.gid = static_cast<std::int32_t>(getegid());
  batch.folder = folder;
  return batch;
}

TEST(ExpectedFile, MustBeFilledInForEveryTask) {
  const struct {
    const char* pattern;
    const char* complaint;
  } rows[] = {
      {"%jp1_%4tn.png", ""},
      {"%2tp1", ""},
      {"/tmp/%tp2", "/tmp/%tp2 cannot be filled in for task 2"},
      {"%tn%tp9", "%tn%tp9 cannot be filled in for task 1"},
      {"%tp", "%tp cannot be filled in for task 1"},
      {"%jp3", "%jp3 cannot be filled in for task 1"},
      {"%jp2", "%jp2 cannot be filled in for task 1"},
      {"%t", "%t cannot be filled in for task 1"},
      {"%tp1%4000tp2", "%tp1%4000tp2 cannot be filled in for task 1"},
      {"", "'' cannot be filled in for task 1"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(complaintAboutPattern(batchIn("/").context, row.pattern), row.complaint);
  }
}

TEST(ExpectedFile, IsRelativeToTheRunFolder) {
  const runlet_test::TempFolder folder;
  const Batch batch = batchIn(folder.path());
  folder.write("orbit_1.png", "");
  EXPECT_EQ(complaintAboutFiles(batch, 1, {"%jp1_%tn.png", folder.file("orbit_%tn.png")}), "");
  EXPECT_EQ(complaintAboutFiles(batch, 2, {"/", "%jp1_%tn.png", "none"}),
            "no file orbit_2.png at its end");
  EXPECT_EQ(complaintAboutFiles(batch, 1, {}), "");
}

// Otherwise, a task could ask whether files exist that only root may see.
TEST(ExpectedFile, IsLookedForWithTheRightsOfTheTasks) {
  REQUIRE_ROOT();
  const runlet_test::TempFolder folder;
  folder.makeFolder("secret", 0700);
  folder.write("secret/key", "");
  folder.write("open", "");
  Batch batch = batchIn(folder.path());
  EXPECT_EQ(complaintAboutFiles(batch, 1, {"open", "secret/key"}), "");
  batch.context.uid = batch.context.gid = static_cast<std::int32_t>(runlet_test::otherId);
  EXPECT_EQ(complaintAboutFiles(batch, 1, {"open", "secret/key"}), "no file secret/key at its end");
  EXPECT_EQ(complaintAboutFiles(batch, 1, {"open", "secret"}), "");
  batch.context.uid = -1;
  EXPECT_EQ(complaintAboutFiles(batch, 1, {"%tn.png", "open"}),
            std::string("could not look for 1.png (") + std::strerror(EINVAL) + ")");
}

}  // namespace
}  // namespace runlet_tool
