// Becoming the job's group and user.
#pragma once

#include <cstdint>
#include <string>

#include "adapter/context.h"

namespace runlet {

// Whose rights a task has. The defaults are those of AdapterContext.
struct UserRights {
  std::int32_t gid = notGiven;  // -1 = not given, and then there are no rights to take
  std::int32_t uid = notGiven;  // -1 = look `userName` up
  std::string userName;
  std::int32_t umask = 0;
};

// Switches the process to `gid`, then to `uid`, and sets `umask`. A `uid` of -1 is looked up by
// `userName` first and stored in `*rights`. Supplementary groups stay.
//
// Returns false after the first step that fails; the steps before it stay done. Standard error
// then has one of the texts about the user's rights, without a line end.
bool takeUserRights(UserRights* rights);

}  // namespace runlet
