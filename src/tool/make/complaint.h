// Why make refuses to write a job file.
#pragma once

#include <string>

#include "tool/system/exit_status.h"

namespace runlet_tool {

struct Complaint {
  int status = exitFailing;  // of the program
  std::string text;          // one or more lines, without the last newline
};

// Sets "WHERE VALUE: REASON", with the value quoted for a terminal and shortened if it is long.
// Returns false, for the caller to return.
bool complain(const std::string& where, const std::string& value, const std::string& reason,
              Complaint* complaint);

}  // namespace runlet_tool
