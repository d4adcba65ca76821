// An inspection at work: what its parts share. See inspect.h for what it is for.
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

// A text in braces, of which only what is between them counts.
struct BracedText {
  const TiXmlText* node = nullptr;  // gone once the tasks have been read
  std::size_t begin = 0;            // of what counts, in the text of the node
  std::vector<TextMark> marks;      // of the node
};

struct Inspection {
  const Question* question;
  const Source* source;
  runlet::AdapterContext context;  // filled once the document has been read
  Report report;

  Place cmdData;          // where what is missing would belong
  Place templateElement;  // the element Arguments, or where it would belong
  std::optional<BracedText> arguments;
  std::vector<Place> values;  // of the parameters' values, in the order of paramValues
  std::vector<Place> names;   // likewise
  std::set<std::string> seenNames;
  std::optional<Place> uid, gid, workingFolder;

  std::map<RuleId, std::size_t> kept;  // how many findings of each rule

  // What is found for several tasks is one finding: by its rule, and where in the template it is.
  // `leftOutFinding` where it is only counted.
  std::map<std::pair<RuleId, std::size_t>, std::size_t> ofTasks;

  WorkLimit limit;  // of the work for all tasks
};

// Where a finding of tasks is not about a place in the template.
inline constexpr std::size_t noOffset = static_cast<std::size_t>(-1);

// Of a finding that is counted alone.
inline constexpr std::size_t leftOutFinding = static_cast<std::size_t>(-1);

// True when there are enough findings of that rule: one more is then counted. For callers whose
// text is costly to make; `find` calls it too.
bool leaveOut(Inspection* inspection, RuleId rule);

// Adds a finding and yields true, or only counts it.
bool find(Inspection* inspection, RuleId rule, Place place, std::string_view text, std::string why,
          std::string instead);

// Adds a task to the finding of that rule at that place of the template, also where there are
// enough of the rule and it is only counted. False when there is none yet: the caller makes one
// with `findForTask`.
bool addTaskToFinding(Inspection* inspection, RuleId rule, std::size_t offset, std::int32_t number);
void findForTask(Inspection* inspection, RuleId rule, std::size_t offset, std::int32_t number,
                 Place place, std::string_view text, std::string why, std::string instead);

// Says that the tasks after `number` are not looked at.
void findTasksNotChecked(Inspection* inspection, std::int32_t number);

// The place of byte `offset` of the template; that of cmdData where there is no template.
Place placeInTemplate(const Inspection& inspection, std::size_t offset);

// The parts. The first is for the document as it was loaded; the second for the job read from it;
// the third for the machine.
void inspectDocument(const TiXmlDocument& document, Inspection* inspection);
void inspectTasks(Inspection* inspection);
void inspectHost(Inspection* inspection);

}  // namespace runlet_tool
