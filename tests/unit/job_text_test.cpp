#include "job/job_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "temp_folder.h"

namespace runlet {
namespace {

using namespace std::string_literals;

const std::string padding(3, '\0');

TEST(JobText, IsPreparedForTheLibrary) {
  const struct {
    std::string bytes;
    std::string text;
  } rows[] = {
      {"", ""},         {"<a/>", "<a/>"},   {"\xf0", "\xf0"},     {"a\nb", "a\nb"},
      {"a\rb", "a\nb"}, {"a\r\nb", "a\nb"}, {"a\n\rb", "a\n\nb"}, {"\r\r\n\r", "\n\n\n"},
      {"a\0b"s, "a"},   {"\0<a/>"s, ""},    {"a\r\0\nb"s, "a\n"}, {"\xf0\0<a>"s, "\xf0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.bytes));
    std::string text = row.bytes;
    prepareText(&text);
    EXPECT_EQ(text, row.text + padding);
  }
}

TEST(JobText, IsReadFromTheFile) {
  const runlet_test::TempFolder folder;
  const std::string path = folder.write("job.xml", "<a>\r\n</a>\0<b/>"s);
  std::string text = "as it was";
  std::string reason;
  EXPECT_TRUE(readJobText(path.c_str(), &text, &reason));
  EXPECT_EQ(text, "<a>\n</a>" + padding);
  EXPECT_EQ(reason, "");
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
