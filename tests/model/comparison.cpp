#include "comparison.h"

#include <algorithm>
#include <stdexcept>

#include "exec/words.h"
#include "job/fill_in.h"
#include "job/int32.h"
#include "job/strip_brace.h"

namespace runlet_model {

namespace {

using testing::AssertionResult;
using testing::PrintToString;

// The content of an output before an operation: not empty, so that appending to it is not mistaken
// for replacing it.
const char before[] = "as it was";

// A text in its own buffer of the exact size, so that AddressSanitizer detects any access past its
// end.
std::vector<char> areaOf(const std::string& text) {
  return std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

// The result of the adapter's `operation`, which fills a string. If it fails but changes the
// string, the result contains the change.
template <typename Operation>
Result resultOf(Operation operation) {
  std::string out = before;
  try {
    if (operation(&out)) return {Outcome::done, out};
    return {Outcome::failed, out == before ? "" : "changed to " + PrintToString(out)};
  } catch (const std::out_of_range&) {
    return {Outcome::outOfRange, ""};
  } catch (const std::length_error&) {
    return {Outcome::lengthError, ""};
  }
}

// The buffer form, likewise.
std::optional<std::string> strippedIntoArea(const std::string& text) {
  const std::vector<char> untouched(runlet::maxStrippedLength + 1, '#');
  std::vector<char> area = untouched;
  if (!runlet::stripBrace(areaOf(text).data(), area.data())) {
    if (area == untouched) return std::nullopt;
    return "changed in spite of a failure";
  }
  return std::string(area.begin(), std::find(area.begin(), area.end(), '\0'));
}

std::vector<std::string> splitWords(const std::string& line) {
  std::vector<char> area = areaOf(line);
  const std::vector<char*> split = runlet::splitWords(area.data());
  if (split.empty() || split.back() != nullptr) return {"no null pointer at the end"};
  std::vector<std::string> found;
  std::for_each(split.begin(), split.end() - 1, [&](const char* word) {
    found.push_back(word != nullptr ? word : "a null pointer in between");
  });
  return found;
}

// In the order of Outcome.
const char* const outcomeNames[] = {"done", "failed", "out of range", "length error"};

std::string describe(const Result& result) {
  return std::string(outcomeNames[static_cast<int>(result.outcome)]) + ", " +
         PrintToString(result.text);
}

std::string describe(const std::optional<std::string>& text) {
  return text ? PrintToString(*text) : "failed";
}

template <typename Answer>
std::string describe(const Answer& answer) {
  return PrintToString(answer);
}

std::string describe(const Lists& lists) {
  return "\nwith the tasks " + PrintToString(lists.taskList) + "\nthe parameters " +
         PrintToString(lists.paramNames) + "\nand their values " + PrintToString(lists.paramValues);
}

// `question` is called only after a difference: it takes longer than the comparison.
template <typename Answer, typename Question>
AssertionResult same(const Answer& adapter, const Answer& model, Question question) {
  if (adapter == model) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << question() << "\nadapter: " << describe(adapter) << "\nmodel: " << describe(model);
}

}  // namespace

Job::Job(const Lists& listsOfJob) : lists(listsOfJob) {
  context.taskList.assign(lists.taskList.begin(), lists.taskList.end());
  context.paramNames.assign(lists.paramNames.begin(), lists.paramNames.end());
  context.paramValues.assign(lists.paramValues.begin(), lists.paramValues.end());
}

AssertionResult sameExpansion(const Job& job, const std::string& pattern, std::int32_t taskIndex) {
  const Result adapter = resultOf([&](std::string* out) {
    return runlet::fillInArguments(&job.context, out, areaOf(pattern).data(), taskIndex);
  });
  return same(adapter, fillIn(job.lists, pattern, taskIndex), [&] {
    return "the template " + PrintToString(pattern) + "\nfor the index " +
           PrintToString(taskIndex) + describe(job.lists);
  });
}

AssertionResult sameTaskField(const Job& job, std::int32_t taskIndex, std::int32_t fieldNumber) {
  const Result adapter = resultOf([&](std::string* out) {
    runlet::getTaskField(&job.context, out, taskIndex, fieldNumber);
    return true;
  });
  return same(adapter, taskField(job.lists, taskIndex, fieldNumber), [&] {
    return "field " + PrintToString(fieldNumber) + " for the index " + PrintToString(taskIndex) +
           describe(job.lists);
  });
}

AssertionResult sameJobParam(const Job& job, std::int32_t paramNumber) {
  const Result adapter = resultOf([&](std::string* out) {
    runlet::getJobParam(&job.context, out, paramNumber);
    return true;
  });
  return same(adapter, jobParam(job.lists, paramNumber),
              [&] { return "parameter " + PrintToString(paramNumber) + describe(job.lists); });
}

AssertionResult sameStrippedText(const std::string& text) {
  const auto question = [&] { return "the braced text " + PrintToString(text); };
  const Result adapter =
      resultOf([&](std::string* out) { return runlet::stripBrace(areaOf(text).data(), out); });
  const AssertionResult first = same(adapter, stripBrace(text), question);
  if (!first) return first;
  return same(strippedIntoArea(text), stripBraceIntoArea(text),
              [&] { return question() + " into an area"; });
}

AssertionResult sameWords(const std::string& line) {
  return same(splitWords(line), words(line), [&] { return "the line " + PrintToString(line); });
}

AssertionResult sameNumber(const std::string& text) {
  return same(runlet::decimalInt32(areaOf(text).data()), number(text),
              [&] { return "the number " + PrintToString(text); });
}

}  // namespace runlet_model
