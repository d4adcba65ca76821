#include "tool/record/digest.h"

#include <sha2.h>

#include <algorithm>
#include <cstring>

#include "tool/system/files.h"

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
  std::string text;
  return readRegularFile(path, &text) ? digestOf(text) : "";
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
