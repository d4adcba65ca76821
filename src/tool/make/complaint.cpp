#include "tool/make/complaint.h"

#include <cstddef>

#include "tool/text/quoting.h"

namespace runlet_tool {
bool complain(const std::string& where, const std::string& value, const std::string& reason,
              Complaint* complaint) {
  complaint->text = where + " " + shortShellWord(value) + ": " + reason;
  return false;
}

}  // namespace runlet_tool
