// The words of a command as a job's template carries them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// The words of a command, placeholders and all, and what they are for each task.
class CommandWords {
 public:
  // `words` are what the `arguments` of `job` are made of, with a space in between. Both live
  // longer.
  CommandWords(const std::vector<std::string>& words, const runlet::AdapterContext& job);

  // Puts the words of the task at `taskIndex` into `*expanded`. False where the fill-in fails.
  bool expand(std::int32_t taskIndex, std::vector<std::string>* expanded) const;

  // The template that carries each word to the splitter as one word, for every task: a word is put
  // into double quotes where it is empty or has a space for some task. Where the fill-in fails, the
  // words are left as they are: no task of such a job can be started anyway.
  //
  // False, with the word and the reason, if there is no such template: the splitter has no way to
  // write a double quote where a word begins, or inside of quotes.
  bool quote(std::string* argumentTemplate, Complaint* complaint) const;

 private:
  const std::vector<std::string>* words_;
  const runlet::AdapterContext* job_;
};

}  // namespace runlet_tool
