// The state that the parts of an inspection share. See inspect.h for its purpose.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "adapter/context.h"
#include "tool/check/inspect.h"
#include "tool/check/report.h"
#include "tool/check/rules.h"
#include "tool/check/source.h"
#include "tool/job/work_limit.h"

namespace runlet_tool {

// A text in braces. Only what is between them counts.
struct BracedText {
  const TiXmlText* node = nullptr;
  std::size_t begin = 0;        // of the part that counts, in the text of the node
  std::vector<TextMark> marks;  // of the node
};

struct Inspection {
  const Question* question;
  const Source* source;
  runlet::AdapterContext context;  // filled once the document has been read
  Report report;

  Place cmdData;          // the place for findings about missing elements
  Place templateElement;  // of the element Arguments, or of cmdData without it
  std::optional<BracedText> arguments;
  std::vector<Place> values;  // of the parameters' values, in the order of paramValues
  std::vector<Place> names;   // likewise
  std::set<std::string> seenNames;
  std::optional<Place> uid, gid, workingFolder;

  std::map<RuleId, std::size_t> kept;  // number of findings of each rule

  // Several tasks share one finding, identified by its rule and its offset in the template. The
  // value is its index in the report, or `leftOutFinding` if it is only counted.
  std::map<std::pair<RuleId, std::size_t>, std::size_t> ofTasks;

  WorkLimit limit;  // of the work for all tasks
};

// The offset of a finding for tasks that is not about a place in the template.
inline constexpr std::size_t noOffset = static_cast<std::size_t>(-1);

// The index of a finding that is only counted.
inline constexpr std::size_t leftOutFinding = static_cast<std::size_t>(-1);

// Returns true, after counting one more, if enough findings of that rule are kept. For callers
// whose text is costly to compose; `find` calls it, too.
bool leaveOut(Inspection* inspection, RuleId rule);

// Adds a finding and returns true, or only counts it and returns false.
bool find(Inspection* inspection, RuleId rule, Place place, std::string_view text, std::string why,
          std::string instead);

// Adds a task to the finding of that rule at that offset in the template, or to none if the finding
// is only counted. Returns false if there is no such finding yet; the caller then adds one with
// `findForTask`.
bool addTaskToFinding(Inspection* inspection, RuleId rule, std::size_t offset, std::int32_t number);
void findForTask(Inspection* inspection, RuleId rule, std::size_t offset, std::int32_t number,
                 Place place, std::string_view text, std::string why, std::string instead);

// Adds a finding that the tasks after `number` are not checked, unless there is one.
void findTasksNotChecked(Inspection* inspection, std::int32_t number);

// The place of byte `offset` of the template; `templateElement` if there is no template.
Place placeInTemplate(const Inspection& inspection, std::size_t offset);

// The parts of an inspection: of the document as it was loaded, of the job read from it, and of
// this machine.
void inspectDocument(const TiXmlDocument& document, Inspection* inspection);
void inspectTasks(Inspection* inspection);
void inspectHost(Inspection* inspection);

}  // namespace runlet_tool
