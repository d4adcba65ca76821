#include "job/job_text.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "temp_folder.h"

namespace runlet {
namespace {

using namespace std::string_literals;

const std::string padding(paddingLength, '\0');

struct CloseFile {
  void operator()(std::FILE* stream) const {
    EXPECT_EQ(std::fclose(stream), 0);
  }
};

using Stream = std::unique_ptr<std::FILE, CloseFile>;

// An opened text, and what is found out about it.
struct Text {
  std::string reason;
  std::size_t length = 0;
  Stream stream;

  explicit Text(const std::string& path) : stream(openJobText(path.c_str(), &length, &reason)) {}

  // What is left to read, at most `size` bytes.
  std::string read(std::size_t size) const {
    std::string bytes(size, '?');
    bytes.resize(std::fread(bytes.data(), 1, size, stream.get()));
    return bytes;
  }
};

class JobText : public testing::Test {
 protected:
  std::string write(const std::string& bytes) const {
    return folder_.write("job.xml", bytes);
  }

 private:
  runlet_test::TempFolder folder_;
};

TEST_F(JobText, IsTheBytesOfTheFileAndItsPadding) {
  // no byte, few, and more than the stream reads at a time
  for (const std::string& bytes : {""s, "<a>\r\n</a>\0<b/>"s, std::string(100000, 'x') + "y"}) {
    const Text text(write(bytes));
    ASSERT_NE(text.stream, nullptr);
    EXPECT_EQ(text.length, bytes.size() + paddingLength);
    EXPECT_EQ(text.read(bytes.size() + 10), bytes + padding);
    EXPECT_EQ(text.reason, "");
  }
}

TEST_F(JobText, CanBeMovedIn) {
  const Text text(write("ab\0c"s));
  std::FILE* stream = text.stream.get();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fseek(stream, 0, SEEK_END), 0);
  EXPECT_EQ(std::ftell(stream), 7);
  EXPECT_NE(std::fseek(stream, 1, SEEK_END), 0);
  EXPECT_NE(std::fseek(stream, -8, SEEK_END), 0);
  EXPECT_EQ(std::fseek(stream, 1, SEEK_SET), 0);
  EXPECT_EQ(text.read(10), "b\0c"s + padding);
}

TEST_F(JobText, OfAFileThatBecomesShorterEndsInNuls) {
  const std::string path = write("0123456789");
  const Text text(path);
  ASSERT_NE(text.stream, nullptr);
  ASSERT_EQ(truncate(path.c_str(), 4), 0);
  EXPECT_EQ(text.read(20), "0123" + std::string(6, '\0') + padding);
}

TEST_F(JobText, OfAFileThatBecomesLongerEndsWhereItDid) {
  const std::string path = write("0123456789");
  const Text text(path);
  ASSERT_NE(text.stream, nullptr);
  write("0123456789abcdef");
  EXPECT_EQ(text.read(20), "0123456789" + padding);
}

// The library is given the bytes of a file in one piece, and leaves some of them behind its text.
TEST_F(JobText, IsPaddedBehindItsEnd) {
  const struct {
    std::string bytes;
    std::string padded;
  } rows[] = {
      {"\0abc"s, "\0\0\0\0"s},
      {"a\0bcdef"s, "a\0\0\0\0ef"s},
      {"abc\0\0\0\0"s, "abc\0\0\0\0"s},
  };
  for (const auto& row : rows) {
    std::string text = row.bytes;
    padText(text.data());
    EXPECT_EQ(text, row.padded);
  }
}

}  // namespace
}  // namespace runlet
