// Users and groups by name or number.
#pragma once

#include <cstdint>
#include <string>

namespace runlet_tool {

// Looks up a user or group by name, or else reads it as a number, as the 32 bits of a job. False if
// it is neither, and for the number that means "none" (4294967295).
bool findUser(const std::string& user, std::int32_t* uid);
bool findGroup(const std::string& group, std::int32_t* gid);

}  // namespace runlet_tool
