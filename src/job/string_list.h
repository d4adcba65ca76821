// The list type of a job's tasks and parameters.
#pragma once

#include <string>
#include <vector>

namespace runlet {

// An ordered list of strings that owns them by value. Adds nothing to the vector but the
// virtual destructor.
class StringList : public std::vector<std::string> {
 public:
  virtual ~StringList() = default;
};

}  // namespace runlet
