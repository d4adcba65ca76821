// Users and groups by name or number.
#pragma once

#include <cstdint>
#include <string>

namespace runlet_tool {

// The id of the user or group of that name, or else that number, as the job's 32 bits. False when
// it is neither, and for the number that means "none" (4294967295).
bool findUser(const std::string& user, std::int32_t* uid);
bool findGroup(const std::string& group, std::int32_t* gid);

}  // namespace runlet_tool
