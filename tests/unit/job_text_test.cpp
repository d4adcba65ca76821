#include "job/job_text.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "temp_folder.h"

namespace runlet {
namespace {

// The library may move up to 3 bytes past the last byte of the file.
TEST(JobText, EndsInNulsForTheLibrary) {
  const runlet_test::TempFolder folder;
  std::string reason;
  for (const std::string bytes : {"", "<a/>", "\xf0"}) {
    const std::string path = folder.write("job.xml", bytes);
    std::string text = "as it was";
    EXPECT_TRUE(readJobText(path.c_str(), &text, &reason));
    EXPECT_EQ(text, bytes + std::string(3, '\0'));
  }
}

TEST(JobText, IsReadFromTheStreamAsItStands) {
  const std::string text("ab\0c", 4);
  std::FILE* stream = openText(text);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fseek(stream, 0, SEEK_END), 0);
  EXPECT_EQ(std::ftell(stream), 4);
  EXPECT_NE(std::fseek(stream, 1, SEEK_END), 0);
  EXPECT_NE(std::fseek(stream, -5, SEEK_END), 0);
  EXPECT_EQ(std::fseek(stream, 1, SEEK_SET), 0);
  char buffer[8] = {};
  EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, stream), 3U);
  EXPECT_EQ(std::string(buffer, 3), text.substr(1));
  EXPECT_EQ(std::fclose(stream), 0);
}

}  // namespace
}  // namespace runlet
