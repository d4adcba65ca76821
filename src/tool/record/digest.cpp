#include "tool/record/digest.h"

#include <fcntl.h>
#include <sha2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tool/system/files.h"
#include "xml/limits.h"

namespace runlet_tool {

std::string hexadecimal(const unsigned char* bytes, std::size_t count) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += digits[bytes[i] / 16U];
    text += digits[bytes[i] % 16U];
  }
  return text;
}

std::string digestOf(std::string_view text) {
  char digits[SHA256_DIGEST_STRING_LENGTH];
  SHA256Data(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), digits);
  return digits;
}

std::string digestOfFile(const std::string& path) {
  const OwnDescriptor file(openRegularFile(path, O_RDONLY));
  struct stat status {};
  constexpr auto mostBytes = static_cast<off_t>(runlet::maxFileSize);
  if (fstat(file.number(), &status) != 0 || status.st_size > mostBytes) return "";
  SHA2_CTX context;
  SHA256Init(&context);
  std::uint8_t part[1 << 16];
  ssize_t count = 0;
  off_t size = 0;  // the file may grow while it is read
  while (size <= mostBytes && (count = read(file.number(), part, sizeof part)) > 0) {
    SHA256Update(&context, part, static_cast<std::size_t>(count));
    size += count;
  }
  char digits[SHA256_DIGEST_STRING_LENGTH];
  SHA256End(&context, digits);
  return count == 0 ? digits : "";
}

TaskIdentity taskIdentity(const std::vector<char*>& words, const std::string& folder,
                          std::int32_t uid, std::int32_t gid) {
  SHA2_CTX context;
  SHA256Init(&context);
  const auto add = [&context](const void* bytes, std::size_t size) {
    SHA256Update(&context, static_cast<const std::uint8_t*>(bytes), size);
  };
  const std::int32_t ids[] = {uid, gid, static_cast<std::int32_t>(words.size())};
  add(ids, sizeof ids);
  // With the NULs, no two lists of texts give the same bytes.
  add(folder.c_str(), folder.size() + 1);
  for (const char* word : words) add(word, std::strlen(word) + 1);
  std::uint8_t digest[SHA256_DIGEST_LENGTH];
  SHA256Final(digest, &context);
  TaskIdentity identity;
  std::copy_n(digest, identity.size(), identity.begin());
  return identity;
}

}  // namespace runlet_tool
