// Becoming the job's group and user.
#pragma once

#include <cstdint>
#include <string>

#include "adapter/context.h"

namespace runlet {

// The user and group of a task. The defaults are those of AdapterContext.
struct UserRights {
  std::int32_t gid = notGiven;  // -1 = not given, and then taking the rights fails
  std::int32_t uid = notGiven;  // -1 = look `userName` up
  std::string userName;
  std::int32_t umask = 0;
};

// Switches the process to `gid`, then to `uid`, and sets `umask`. A `uid` of -1 is looked up by
// `userName` first and stored in `*rights`. Supplementary groups stay.
//
// Returns false after the first step that fails; earlier steps are not undone. Standard error then
// has one of the texts about the user's rights, without a newline.
bool takeUserRights(UserRights* rights);

}  // namespace runlet
