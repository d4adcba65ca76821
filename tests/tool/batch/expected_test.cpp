// Files that tasks must make.

#include "tool/batch/expected.h"

#include <gtest/gtest.h>

#include "temp_folder.h"

namespace runlet_tool {
namespace {

Batch batchIn(const std::string& folder) {
  Batch batch;
  for (const char* task : {"dawn\t7", "dusk"}) batch.context.taskList.push_back(task);
  for (const char* name : {"scene", "without a value"}) batch.context.paramNames.push_back(name);
  batch.context.paramValues.push_back("orbit");
  batch.folder = folder;
  return batch;
}

TEST(ExpectedFile, MustBeFilledInForEveryTask) {
  const struct {
    const char* pattern;
    const char* complaint;
  } rows[] = {
      {"%jp1_%4tn.png", ""},
      {"/tmp/%tp2", ""},  // "Undefined" for the second task
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
  EXPECT_EQ(missingFile(batch, 1, {"%jp1_%tn.png", folder.file("orbit_%tn.png")}), "");
  EXPECT_EQ(missingFile(batch, 2, {"/", "%jp1_%tn.png", "none"}), "orbit_2.png");
  EXPECT_EQ(missingFile(batch, 1, {}), "");
}

}  // namespace
}  // namespace runlet_tool
