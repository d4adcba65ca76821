// What keeps make from making a job file.
#pragma once

#include <string>

#include "tool/system/exit_status.h"

namespace runlet_tool {

struct Complaint {
  int status = exitFailing;  // of the program
  std::string text;          // one line or more, without the last line end
};

// "WHERE VALUE: REASON", with the value so written that a terminal shows it, and cut if it is long.
// False, for the caller to pass on.
bool complain(const std::string& where, const std::string& value, const std::string& reason,
              Complaint* complaint);

}  // namespace runlet_tool
