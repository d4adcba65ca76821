#include "tool/job/work_limit.h"

#include <algorithm>
#include <string>

namespace runlet_tool {
namespace {

using runlet::PlaceholderForm;
using runlet::PlaceholderUse;

constexpr std::size_t forTask = 2000;  // for any task
constexpr std::size_t forByteOfLine = 6;
constexpr std::size_t forWord = 15;
constexpr std::size_t forByteOfOutput = 25;
constexpr std::size_t forWordOfOutput = 60;

// How much of the template the preview has processed; all of it if that is unknown.
std::size_t templateLength(const Preview& preview, const runlet::AdapterContext& context) {
  if (preview.outcome == Outcome::notReached) return 0;
  const std::size_t all = context.arguments.size();
  const bool hasFailed = preview.outcome == Outcome::refused && !preview.uses.empty();
  return hasFailed ? std::min(all, preview.uses.back().end + runlet::maxExpansionLength) : all;
}

// A look-up copies the entry or value and scans it up to the field.
std::size_t workOf(const PlaceholderUse& use, std::size_t entryLength) {
  switch (use.form) {
    case PlaceholderForm::taskField:
      return 100 + entryLength;
    case PlaceholderForm::jobParam:
      return 100;
    default:
      return 50;
  }
}

}  // namespace

void WorkLimit::addPreview(const Preview& preview, const runlet::AdapterContext& context,
                           std::int32_t index) {
  const std::string& entry = context.taskList[static_cast<std::size_t>(index)];
  const std::size_t entryLength = std::min(entry.size(), runlet::maxLookupLength);
  std::size_t work = forTask + preview.start.folder.size() + templateLength(preview, context) +
                     forByteOfLine * preview.start.commandLine.size() +
                     forWord * preview.words.size();
  for (const PlaceholderUse& use : preview.uses) work += workOf(use, entryLength);
  add(work);
}

void WorkLimit::addOutput(const Preview& preview) {
  const std::size_t length = preview.start.folder.size() + preview.start.commandLine.size() +
                             preview.message.size() + preview.reason.size();
  add(forByteOfOutput * length + forWordOfOutput * preview.words.size());
}

}  // namespace runlet_tool
