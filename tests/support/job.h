// Job files for tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace runlet_test {

// The text of an XML file that has `text` for its content.
std::string escapeXml(const std::string& text);

// A job, by default of one task, that the caller may run without any rights.
struct Job {
  Job();

  std::string arguments;                                      // without braces
  std::vector<std::pair<std::string, std::string>> elements;  // others of cmdData, text and all
  std::vector<std::string> tasks = {"task"};                  // the entries, without braces
  std::vector<std::pair<std::string, std::string>> params;    // names and values, likewise

  // Sets the text of the element `name`, and adds it if the job has none yet.
  Job& set(const std::string& name, const std::string& text);
  Job& remove(const std::string& name);

  // The job file.
  std::string text() const;
};

}  // namespace runlet_test
