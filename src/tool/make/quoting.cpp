#include "tool/make/quoting.h"

#include "job/fill_in.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

// The first task for which a word has some property, and the word in that task.
struct Sample {
  std::int32_t taskNumber = 0;  // 0 = none
  std::string text;

  explicit operator bool() const {
    return taskNumber != 0;
  }
};

// The properties of one word of the command over all tasks.
struct WordForm {
  Sample needsQuotes;
  Sample hasQuote;
  Sample beginsWithQuote;
};

void note(bool matters, std::int32_t taskIndex, const std::string& text, Sample* sample) {
  if (!matters || *sample) return;
  sample->taskNumber = taskIndex + 1;
  sample->text = text;
}

void addToForm(const std::string& text, std::int32_t taskIndex, WordForm* form) {
  const bool needsQuotes = text.empty() || text.find(' ') != std::string::npos;
  note(needsQuotes, taskIndex, text, &form->needsQuotes);
  note(text.find('"') != std::string::npos, taskIndex, text, &form->hasQuote);
  note(text.starts_with('"'), taskIndex, text, &form->beginsWithQuote);
}

std::string described(const Sample& sample) {
  return shortShellWord(sample.text) + " in task " + std::to_string(sample.taskNumber);
}

std::string obstacleOf(const WordForm& form) {
  if (form.beginsWithQuote) {
    return "it begins with a double quote (" + described(form.beginsWithQuote) +
           "), which would start a quoted word";
  }
  if (form.needsQuotes && form.hasQuote) {
    return "it needs double quotes (" + described(form.needsQuotes) +
           ") but contains one itself (" + described(form.hasQuote) + "), which would end the word";
  }
  return {};
}

// Maps the byte at `offset` of a template, outside all placeholders, to its offset in the
// expansion.
std::size_t expandedOffset(const std::vector<runlet::PlaceholderUse>& uses, std::size_t offset) {
  std::size_t expanded = offset;
  for (const runlet::PlaceholderUse& use : uses) {
    if (use.end > offset) break;
    expanded = use.valueEnd + (offset - use.end);
  }
  return expanded;
}

}  // namespace

CommandWords::CommandWords(const std::vector<std::string>& words, const runlet::AdapterContext& job)
    : words_(&words), job_(&job) {}

// All words are expanded together, as in the command: the width of a placeholder may pick up digits
// of the preceding one, even across words.
bool CommandWords::expand(std::int32_t taskIndex, std::vector<std::string>* expanded) const {
  std::string line;
  std::vector<runlet::PlaceholderUse> uses;
  const char* argumentTemplate = job_->arguments.c_str();
  if (!fillInArguments(job_, &line, argumentTemplate, taskIndex, &uses)) return false;
  expanded->clear();
  std::size_t begin = 0;
  for (const std::string& word : *words_) {
    const std::size_t from = expandedOffset(uses, begin);
    const std::size_t to = expandedOffset(uses, begin + word.size());
    expanded->push_back(line.substr(from, to - from));
    begin += word.size() + 1;
  }
  return true;
}

bool CommandWords::quote(std::string* argumentTemplate, Complaint* complaint) const {
  std::vector<WordForm> forms(words_->size());
  std::vector<std::string> expanded;
  const auto taskCount = static_cast<std::int32_t>(job_->taskList.size());
  for (std::int32_t task = 0; task < taskCount && expand(task, &expanded); ++task) {
    for (std::size_t i = 0; i < forms.size(); ++i) addToForm(expanded[i], task, &forms[i]);
  }
  argumentTemplate->clear();
  for (std::size_t i = 0; i < forms.size(); ++i) {
    const std::string& word = (*words_)[i];
    const std::string obstacle = obstacleOf(forms[i]);
    if (!obstacle.empty()) return complain("COMMAND", word, obstacle, complaint);
    const char* mark = forms[i].needsQuotes ? "\"" : "";
    if (i != 0) *argumentTemplate += ' ';
    argumentTemplate->append(mark).append(word).append(mark);
  }
  return true;
}

}  // namespace runlet_tool
