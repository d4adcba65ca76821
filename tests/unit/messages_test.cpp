#include "adapter/messages.h"

#include <gtest/gtest.h>

namespace runlet {
namespace {

TEST(Messages, EveryNumberHasItsText) {
  const char* const texts[] = {
      "Application is Starting",
      "Application received new task: %d",
      "cmd application shutdown",
      "Received request to terminate task execution",
      "Unknown",
      "Job exit successful",
      "Job exit failed",
      "Cannot start",
      ("Make sure the batch file or executable name has its full name and path (or configure "
       "server accordingly)"),
      "Failed to create job object",
      "Process cannot be added to job group",
      "Process exited with error code (%d) on '%s'",
      "Task Not Found",
      "Failed to create log file : ",
      "Can't start communication pipe",
      "Task %d",
      "Command Line Tool Settings",
      "cmd arguments",
      "Working path",
      "Log path",
      "Task timeout (minutes)",
      "Server count limit",
      "Output files",
      "Custom Parameters",
      "Could not set working folder : ",
  };
  ASSERT_EQ(std::size(texts), 25U);
  ASSERT_EQ(std::size(messageTable), std::size(texts));
  for (std::int32_t index = 0; index < 25; ++index) {
    EXPECT_STREQ(getMessage(index), texts[index]) << index;
    EXPECT_EQ(getMessage(index), messageTable[index]) << index;
  }
}

TEST(Messages, TheLaunchersTextsHaveNames) {
  EXPECT_EQ(cannotStartMessage, 7);
  EXPECT_EQ(checkExecutableMessage, 8);
  EXPECT_EQ(workingFolderMessage, 24);
}

}  // namespace
}  // namespace runlet
