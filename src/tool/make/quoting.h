// Quoting the words of a command in a job's template.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// The words of a command, including placeholders, and their expansion for each task.
class CommandWords {
 public:
  // The `arguments` of `job` are `words`, separated by spaces. Both must outlive this object.
  CommandWords(const std::vector<std::string>& words, const runlet::AdapterContext& job);

  // Stores the words of the task at `taskIndex` in `*expanded`. False if the fill-in fails.
  bool expand(std::int32_t taskIndex, std::vector<std::string>* expanded) const;

  // Stores the template that the splitter splits into exactly these words for every task: a word is
  // put in double quotes if it is empty or contains a space in some task. If the fill-in fails, the
  // words are left as they are: no task of such a job can be started anyway.
  //
  // False, with the word and the reason, if there is no such template: a double quote cannot be
  // written at the start of a word or inside quotes.
  bool quote(std::string* argumentTemplate, Complaint* complaint) const;

 private:
  const std::vector<std::string>* words_;
  const runlet::AdapterContext* job_;
};

}  // namespace runlet_tool
