#include "tool/job/expansion.h"

#include <algorithm>
#include <cstdio>

#include "adapter/messages.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/json.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

// The "Calling" line without its line end.
std::string callingText(const Preview& preview) {
  return withoutLineEnd(runlet::callingFormat, preview.start.commandLine.c_str(),
                        preview.start.folder.c_str());
}

struct OutcomeName {
  const char* inText;  // null = not printed
  const char* inJson;
};

// In the order of Outcome.
constexpr OutcomeName outcomeNames[] = {
    {nullptr, "starts"},
    {"refused", "refused"},
    {"ends", "ends"},
    {"not executed", "cannotExecute"},
    {"not reached", "notReached"},
};

const OutcomeName& outcomeName(Outcome outcome) {
  return outcomeNames[static_cast<std::size_t>(outcome)];
}

// In the order of Loading.
constexpr const char* loadingNames[] = {"loaded", "refused", "ends", "refused"};

void appendRow(const char* label, const std::string& value, std::string* text) {
  text->append("  ").append(label);
  text->append(std::max<std::size_t>(8 - std::string_view(label).size(), 1), ' ');
  text->append(value).append("\n");
}

// The text of the adapter, or of the C++ library, which has several lines.
std::string messageOf(const Preview& preview) {
  if (preview.outcome != Outcome::ends) return visible(preview.message);
  std::string out;
  for (const char c : preview.message) {
    out += c;
    if (c == '\n') out += "    ";
  }
  return out;
}

// The words and the program's path are parts of these strings.
bool isUtf8Throughout(const Preview& preview) {
  return isUtf8(preview.start.commandLine) && isUtf8(preview.start.folder) &&
         isUtf8(preview.message) && isUtf8(preview.reason);
}

Json argumentVector(const Preview& preview, const JsonStrings& string) {
  if (!preview.isComposed) return {};
  Json words = Json::array();
  for (const char* word : preview.words) words.push_back(string(word));
  return words;
}

void reportSkipped(std::int32_t number, std::int32_t leftOut) {
  std::fprintf(stderr,
               "runlet-job: expand: skipped %s after task %d, since all of them would take too "
               "long; show the rest with -s and -n\n",
               quantity(static_cast<std::size_t>(leftOut), "task").c_str(),
               static_cast<int>(number));
}

}  // namespace

void TextExpandReport::begin(const std::string& /*job*/, const LoadResult& result) {
  if (result.loading == Loading::loaded) return;
  std::fprintf(stderr, "%s\n", shownMessage(result).c_str());
}

void TextExpandReport::task(std::int32_t number, const Preview& preview) {
  text_ = isFirst_ ? "" : "\n";
  isFirst_ = false;
  text_ += coloured("task " + std::to_string(number), Colour::cyan, hasColour_) + "\n";
  const bool isReached = preview.outcome != Outcome::notReached;
  if (isReached) appendRow("folder", visible(preview.start.folder), &text_);
  if (preview.isComposed && !preview.start.chmodPath.empty()) {
    appendRow("chmod", visible(preview.start.chmodPath), &text_);
  }
  if (preview.isComposed) text_ += "  " + visible(callingText(preview)) + "\n";
  if (preview.outcome == Outcome::starts) {
    appendRow("run", shellCommand(preview.words), &text_);
  } else {
    const std::string name = coloured(outcomeName(preview.outcome).inText, Colour::red, hasColour_);
    text_ += "  " + name + ": " + (isReached ? messageOf(preview) : preview.reason) + "\n";
    if (isReached) text_ += "  reason: " + visible(preview.reason) + "\n";
  }
  put(text_);
}

void TextExpandReport::cut(std::int32_t number, std::int32_t leftOut) {
  reportSkipped(number, leftOut);
}

void JsonExpandReport::begin(const std::string& job, const LoadResult& result) {
  const bool inBytes = !isUtf8(job) || !isUtf8(result.message);
  const JsonStrings string(inBytes);
  Json head;
  head["format"] = "runlet-job expand";
  head["version"] = 1;
  head["job"] = string(job);
  head["outcome"] = loadingNames[static_cast<std::size_t>(result.loading)];
  head["message"] = string.orNull(!result.message.empty(), result.message);
  head["bytes"] = inBytes;
  std::string text = head.dump();
  text.pop_back();  // the closing brace, since the tasks follow
  put(text + ", \"tasks\": [");
}

void JsonExpandReport::task(std::int32_t number, const Preview& preview) {
  const bool isReached = preview.outcome != Outcome::notReached;
  const bool inBytes = !isUtf8Throughout(preview);
  const JsonStrings string(inBytes);
  const std::string& program = preview.start.chmodPath;
  Json row;
  row["task"] = number;
  row["outcome"] = outcomeName(preview.outcome).inJson;
  row["folder"] = string.orNull(isReached, preview.start.folder);
  row["chmod"] = string.orNull(preview.isComposed && !program.empty(), program);
  row["calling"] = string.orNull(preview.isComposed, callingText(preview));
  row["commandLine"] = string.orNull(preview.isComposed, preview.start.commandLine);
  row["argv"] = argumentVector(preview, string);
  row["message"] = string.orNull(!preview.message.empty(), preview.message);
  row["reason"] = string.orNull(!preview.reason.empty(), preview.reason);
  row["bytes"] = inBytes;
  put((isFirst_ ? "\n " : ",\n ") + row.dump());
  isFirst_ = false;
}

void JsonExpandReport::cut(std::int32_t number, std::int32_t leftOut) {
  leftOut_ = leftOut;
  reportSkipped(number, leftOut);  // in a pipe, the exit status may be lost
}

void JsonExpandReport::end() {
  put("\n], \"leftOut\": " + std::to_string(leftOut_) + "}\n");
}

}  // namespace runlet_tool
