// The comments of arrays.

#include <gtest/gtest.h>

#include "tool/slurm/arrays.h"

namespace runlet_tool {
namespace {

TEST(ArrayComment, HasADigestOfTheJobFilesPath) {
  EXPECT_EQ(jobHash(""), "cbf29ce484222325");
  EXPECT_EQ(jobHash("a"), "af63dc4c8601ec8c");
  EXPECT_EQ(jobHash("foobar"), "85944171f73967e8");
  EXPECT_EQ(jobHash("\xff").size(), 16U);
}

TEST(ArrayComment, IsReadAsItWasWritten) {
  const ArrayOrigin origin = {{1000, 5, 2147483647}, 17, "0123456789abcdef"};
  EXPECT_EQ(commentText(origin), "runlet-job:1000:5:2147483647:17:0123456789abcdef");
  EXPECT_EQ(readComment(commentText(origin)), origin);
  EXPECT_EQ(readComment(commentText(origin) + "   \nmore"), origin);
}

TEST(ArrayComment, IsRecognisedOnlyInItsForm) {
  for (const char* text :
       {"", "runlet-job", "runlet-job:", "runlet-job:0:1:3:3", "runlet-job:0:1:3:3:",
        "runlet-job:0:1:3:3:0123456789abcde", "Runlet-job:0:1:3:3:0123456789abcdef",
        " runlet-job:0:1:3:3:0123456789abcdef", "runlet-job:0:1:3:0123456789abcdef",
        "runlet-job::1:3:3:0123456789abcdef", "runlet-job:-1:1:3:3:0123456789abcdef",
        "runlet-job:0:0:3:3:0123456789abcdef", "runlet-job:0:-1:3:3:0123456789abcdef",
        "runlet-job:0:1:x:3:0123456789abcdef", "runlet-job:0:1:3x:3:0123456789abcdef",
        "runlet-job:0:1:3:3x0123456789abcdef", "runlet-job:2147483648:1:3:3:0123456789abcdef",
        "runlet-job:0:1:3:99999999999999999999:0123456789abcdef", "(null)"}) {
    EXPECT_FALSE(readComment(text)) << text;
  }
}

}  // namespace
}  // namespace runlet_tool
