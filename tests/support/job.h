// Job files for tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace runlet_test {

// Escapes `text` for an XML file.
std::string escapeXml(const std::string& text);

// A job, by default with one task, that the caller may run without privileges.
struct Job {
  Job();

  std::string arguments;  // without braces
  std::vector<std::pair<std::string, std::string>>
      elements;                               // more elements of cmdData, with their texts
  std::vector<std::string> tasks = {"task"};  // the entries, without braces
  std::vector<std::pair<std::string, std::string>> params;  // names and values, likewise

  // Sets the text of the element `name`, adding it if missing.
  Job& set(const std::string& name, const std::string& text);
  Job& remove(const std::string& name);

  // The job file.
  std::string text() const;
};

}  // namespace runlet_test
