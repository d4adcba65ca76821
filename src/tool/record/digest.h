// SHA-256 digests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

// In 64 hexadecimal digits.
std::string digestOf(std::string_view text);

// That of the file's content; empty if it cannot be read, is not a regular file, or has more bytes
// than a job file may have (runlet::maxFileSize). Holds only a small part of it in memory.
std::string digestOfFile(const std::string& path);

// Of a task with that argument vector, folder, user and group.
TaskIdentity taskIdentity(const std::vector<char*>& words, const std::string& folder,
                          std::int32_t uid, std::int32_t gid);

std::string hexadecimal(const unsigned char* bytes, std::size_t count);

}  // namespace runlet_tool
