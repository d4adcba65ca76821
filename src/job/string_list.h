// The list type of a job's tasks and parameters.
#pragma once

#include <string>
#include <vector>

namespace runlet {

// An ordered list of strings that owns them by value. Adds only a virtual destructor to the vector;
// since that would suppress the implicit moves, they are declared.
class StringList : public std::vector<std::string> {
 public:
  StringList() = default;
  StringList(const StringList&) = default;
  StringList(StringList&&) = default;
  StringList& operator=(const StringList&) = default;
  StringList& operator=(StringList&&) = default;
  virtual ~StringList() = default;
};

}  // namespace runlet
