// Checking the elements of the job file: missing, misplaced and ignored ones.

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <numeric>
#include <set>
#include <string>

#include "job/fill_in.h"
#include "tool/check/inspection.h"
#include "tool/check/texts.h"

namespace runlet_tool {
namespace {

using Names = std::vector<std::string_view>;

const Names cmdDataNames = {"Arguments",   "WorkingFolder",  "LogFolder", "Outputs",
                            "TaskNameIdx", "TaskTimeout",    "uid",       "gid",
                            "umask",       "redirectStderr", "TaskList",  "JobParams"};

// The number of characters to change, add or remove to turn one word into the other, ignoring case.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (const char c : a) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(c)) ==
                        std::tolower(static_cast<unsigned char>(b[j]));
      const std::size_t best = std::min({row[j] + 1, row[j + 1] + 1, diagonal + (same ? 0 : 1)});
      diagonal = row[j + 1];
      row[j + 1] = best;
    }
  }
  return row[b.size()];
}

// Longer names are similar to none.
constexpr std::size_t longestName = 40;

// The name most similar to `name`; empty if none is similar.
std::string_view nearest(std::string_view name, const Names& names) {
  if (name.size() > longestName) return {};
  const auto closer = [=](std::string_view a, std::string_view b) {
    return distance(name, a) < distance(name, b);
  };
  const std::string_view found = *std::min_element(names.begin(), names.end(), closer);
  return distance(name, found) <= (found.size() + 1) / 2 ? found : std::string_view();
}

std::string tag(std::string_view name) {
  std::string text = "<";
  return text.append(name).append(">");
}

void findUnknown(const TiXmlNode& node, const std::string& parent, const Names& names,
                 Inspection* inspection) {
  if (leaveOut(inspection, RuleId::unknownElement)) return;
  const std::string_view like = nearest(node.ValueStr(), names);
  const std::string instead = like.empty()
                                  ? "Remove it, or move it to where it belongs."
                                  : "Write " + tag(like) + " if that is meant, or remove it.";
  find(inspection, RuleId::unknownElement, placeOf(node), tag(node.ValueStr()),
       parent + " has no element of this name; it is ignored.", instead);
}

void findRepeated(const TiXmlNode& node, Inspection* inspection) {
  find(inspection, RuleId::repeatedElement, placeOf(node), tag(node.ValueStr()),
       "Another element of this name counts; this one is ignored.", "Keep only one of them.");
}

void findStray(const TiXmlNode& node, const std::string& parent, Inspection* inspection) {
  if (leaveOut(inspection, RuleId::strayText)) return;
  const Source& source = *inspection->source;
  find(inspection, RuleId::strayText, placeOf(node), source.excerpt(node),
       "Text directly in " + parent + " is ignored.",
       "Put it into the element that it belongs to, or remove it.");
}

void findTaken(const TiXmlNode& node, Inspection* inspection) {
  if (leaveOut(inspection, RuleId::takenForElement)) return;
  const Source& source = *inspection->source;
  find(inspection, RuleId::takenForElement, placeOf(node), source.excerpt(node),
       "This consists of the name " + node.ValueStr() + " alone, and is taken for that element.",
       "Write something more into it, or remove it.");
}

// The loader looks these up by name, whatever kind of node it is, so a text may be taken for one.
bool isTakenForElement(const std::string& text) {
  return text == "Task" || text == "JobParams";
}

// Checks the children of an element that holds other elements: those not in `names` are ignored.
void inspectChildren(const TiXmlNode& parent, const Names& names, Inspection* inspection) {
  const std::string& name = parent.ValueStr();
  for (const TiXmlNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
    const bool isKnown = std::find(names.begin(), names.end(), node->ValueStr()) != names.end();
    const bool isTaken = isKnown && isTakenForElement(node->ValueStr());
    if (node->ToText() != nullptr && !isTaken) findStray(*node, name, inspection);
    if (node->ToElement() != nullptr && !isKnown) findUnknown(*node, name, names, inspection);
  }
}

// The root, and cmdData in it.

// Returns the root; null, with a finding, if there is none.
const TiXmlElement* inspectRoot(const TiXmlDocument& document, Inspection* inspection) {
  const TiXmlNode* first = document.FirstChild();
  if (first->ToElement() == nullptr) {
    const Source& source = *inspection->source;
    find(inspection, RuleId::beforeRoot, placeOf(*first), source.excerpt(*first),
         "The file must begin with the root element; the adapter refuses it with \"Invalid XML job "
         "syntax\".",
         "Remove this, or move it into the root element.");
  }
  return document.FirstChildElement();
}

void findNoCmdData(const TiXmlElement& root, const TiXmlNode* taken, Inspection* inspection) {
  const Place place = placeOf(taken == nullptr ? root : *taken);
  if (taken != nullptr) {
    find(inspection, RuleId::noCmdData, place, taken->ValueStr(),
         "This is not an element, but is taken for cmdData because it consists of that name alone.",
         "Write something more into it, or remove it.");
  } else if (root.ValueStr() == "cmdData") {
    find(inspection, RuleId::cmdDataIsRoot, place, "<cmdData>",
         "cmdData must be in the root element, not the root itself; the adapter refuses the file "
         "with \"Invalid XML job syntax\".",
         "Put another element around it, such as <Job>.");
  } else {
    find(inspection, RuleId::noCmdData, place, tag(root.ValueStr()),
         "The root element has no cmdData; the adapter refuses the file with \"Invalid XML job "
         "syntax\".",
         "Put all elements of the job into one <cmdData>.");
  }
}

// The root may have elements other than cmdData, but not those that belong in cmdData.
void inspectRootChildren(const TiXmlElement& root, const TiXmlElement& cmdData,
                         Inspection* inspection) {
  for (const TiXmlElement* element = root.FirstChildElement(); element != nullptr;
       element = element->NextSiblingElement()) {
    const std::string& name = element->ValueStr();
    if (name == "cmdData" && element != &cmdData) findRepeated(*element, inspection);
    if (std::find(cmdDataNames.begin(), cmdDataNames.end(), name) != cmdDataNames.end()) {
      find(inspection, RuleId::unknownElement, placeOf(*element), tag(name),
           "This element is read only in cmdData; here it is ignored.", "Move it into <cmdData>.");
    }
  }
}

// cmdData and what is directly in it.

void inspectRepeated(const TiXmlNode& cmdData, Inspection* inspection) {
  std::set<std::string> seen;
  for (const TiXmlElement* element = cmdData.FirstChildElement(); element != nullptr;
       element = element->NextSiblingElement()) {
    const std::string& name = element->ValueStr();
    const bool isKnown =
        std::find(cmdDataNames.begin(), cmdDataNames.end(), name) != cmdDataNames.end();
    if (!isKnown || name == "JobParams") continue;  // the place of JobParams matters
    if (!seen.insert(name).second) findRepeated(*element, inspection);
  }
}

// Every JobParams but the one that counts.
void inspectOtherJobParams(const TiXmlNode& cmdData, const TiXmlNode& jobParams,
                           Inspection* inspection) {
  for (const TiXmlElement* element = cmdData.FirstChildElement("JobParams"); element != nullptr;
       element = element->NextSiblingElement("JobParams")) {
    if (element != &jobParams) findRepeated(*element, inspection);
  }
}

void findNoJobParams(const TiXmlNode& cmdData, Inspection* inspection) {
  const TiXmlElement* early = cmdData.FirstChildElement("JobParams");
  if (early != nullptr && cmdData.FirstChildElement("TaskList") != nullptr) {
    find(inspection, RuleId::jobParamsBeforeTaskList, placeOf(*early), "<JobParams>",
         "JobParams is looked for only after TaskList; the adapter refuses the file with \"Invalid "
         "XML job syntax\".",
         "Move it after </TaskList>.");
  } else if (early == nullptr) {
    find(inspection, RuleId::noJobParams, inspection->cmdData, "",
         "There is no JobParams; the adapter refuses the file with \"Invalid XML job syntax\".",
         "Write <JobParams/> after </TaskList>.");
  }
}

void inspectArguments(const TiXmlNode& cmdData, Inspection* inspection) {
  const TiXmlElement* element = cmdData.FirstChildElement("Arguments");
  inspection->templateElement = element == nullptr ? inspection->cmdData : placeOf(*element);
  const TiXmlText* node = textNodeOf(element, inspection);
  if (node == nullptr) return;
  inspectBraces(*node, TextKind::arguments, 0, inspection);
  const std::size_t brace = node->ValueStr().find('{');
  if (brace == std::string::npos) return;
  inspection->arguments = BracedText{node, brace + 1, inspection->source->marksIn(*node)};
}

void inspectFolders(const TiXmlNode& cmdData, Inspection* inspection) {
  for (const char* name : {"WorkingFolder", "LogFolder", "Outputs"}) {
    const TiXmlText* node = textNodeOf(cmdData.FirstChildElement(name), inspection);
    if (node == nullptr) continue;
    inspectWriting(*node, TextKind::plain, 0, inspection);
    if (!inspection->workingFolder.has_value() && std::string_view(name) == "WorkingFolder") {
      inspection->workingFolder = placeOf(*node);
    }
  }
}

// Tasks

void inspectEntry(const TiXmlText& params, std::int32_t number, Inspection* inspection) {
  const std::string entry = inspectBraces(params, TextKind::fields, number, inspection);
  if (entry.size() < runlet::maxLookupLength ||
      addTaskToFinding(inspection, RuleId::longEntry, noOffset, number)) {
    return;
  }
  findForTask(inspection, RuleId::longEntry, noOffset, number, placeOf(params),
              std::to_string(entry.size()) + " bytes",
              "Only the first 2000 bytes of a task's fields, all together, count.",
              "Keep them below 2000 bytes.");
}

void findTaskWithoutText(const TiXmlNode& task, Inspection* inspection) {
  find(inspection, RuleId::taskWithoutText, placeOf(task), "<Task>",
       "A Task without text in its Params is ignored; the tasks after it move up by one.",
       "Write any text into its Params, or remove the Task.");
}

// All elements of that name after `first`.
void inspectLater(const TiXmlElement* first, Inspection* inspection) {
  if (first == nullptr) return;
  const char* name = first->Value();
  for (const TiXmlElement* next = first->NextSiblingElement(name); next != nullptr;
       next = next->NextSiblingElement(name)) {
    findRepeated(*next, inspection);
  }
}

// Returns whether the node is read as a task, which then has this number.
bool inspectTaskElement(const TiXmlNode& task, std::int32_t number, Inspection* inspection) {
  static const Names names = {"Params"};
  const TiXmlElement* params = task.FirstChildElement("Params");
  const TiXmlText* node = textNodeOf(params, inspection);
  inspectChildren(task, names, inspection);
  inspectLater(params, inspection);
  if (node != nullptr) {
    inspectEntry(*node, number, inspection);
  } else if (task.ToElement() != nullptr) {
    findTaskWithoutText(task, inspection);
  } else {
    findTaken(task, inspection);
  }
  return node != nullptr;
}

void inspectTaskList(const TiXmlElement& taskList, Inspection* inspection) {
  static const Names names = {"Task"};
  std::int32_t count = 0;
  for (const TiXmlNode* task = taskList.FirstChild("Task"); task != nullptr;
       task = task->NextSibling("Task")) {
    if (inspectTaskElement(*task, count + 1, inspection)) ++count;
  }
  inspectChildren(taskList, names, inspection);
  if (count > 0) return;
  find(inspection, RuleId::noTasks, placeOf(taskList), "<TaskList>",
       "The job has no tasks: every request succeeds and runs nothing.",
       "Write at least one <Task><Params>{...}</Params></Task>.");
}

// Parameters

std::string nodeText(const TiXmlNode& node, const Source& source) {
  return node.ToElement() != nullptr ? tag(node.ValueStr()) : source.excerpt(node);
}

void findNoName(const TiXmlNode& parameter, Inspection* inspection) {
  if (leaveOut(inspection, RuleId::parameterWithoutName)) return;
  find(inspection, RuleId::parameterWithoutName, placeOf(parameter),
       nodeText(parameter, *inspection->source),
       "This is read as a parameter but has no Name; the adapter refuses the file with \"Invalid "
       "XML job syntax\".",
       parameter.ValueStr() == "Param" && parameter.ToElement() != nullptr
           ? "Write <Name>{...}</Name> and then <Value>{...}</Value> into it."
           : "Remove it, or move it before the first Param.");
}

void inspectName(const TiXmlElement& name, Inspection* inspection) {
  const TiXmlText* node = textNodeOf(&name, inspection);
  if (node == nullptr) {
    find(inspection, RuleId::unpairedParameter, placeOf(name), "<Name>",
         "A parameter with an empty Name adds only a value, which is paired with another name.",
         "Write {the name}.");
    return;
  }
  const std::string text = inspectBraces(*node, TextKind::parameter, 0, inspection);
  const std::size_t begin = text.empty() ? 0 : node->ValueStr().find('{') + 1;
  const Place place = inspection->source->placeOf(inspection->source->offsetIn(*node, begin));
  inspection->names.push_back(place);
  std::set<std::string>& seen = inspection->seenNames;
  if (text.empty() || seen.insert(text).second) return;
  find(inspection, RuleId::duplicateParameter, place, text,
       "An earlier parameter has the same name; both are kept, under their numbers.",
       "Give each its own name, or remove one and correct the numbers after it.");
}

void inspectValue(const TiXmlElement& name, Inspection* inspection) {
  const TiXmlElement* value = name.NextSiblingElement("Value");
  const TiXmlText* node = textNodeOf(value, inspection);
  if (node == nullptr) {
    find(inspection, RuleId::unpairedParameter, placeOf(*name.Parent()),
         tag(name.Parent()->ValueStr()),
         "There is no Value with text after the Name; the values after it move up by one.",
         "Write <Value>{...}</Value> after the Name; an empty value is {}.");
    return;
  }
  inspectBraces(*node, TextKind::parameter, 0, inspection);
  inspection->values.push_back(placeOf(*node));
  inspectLater(value, inspection);
}

// A Value before the Name is ignored. If there is none after it, inspectValue reports that.
void inspectValueBeforeName(const TiXmlElement& name, Inspection* inspection) {
  const TiXmlElement* first = name.Parent()->FirstChildElement("Value");
  const TiXmlElement* after = name.NextSiblingElement("Value");
  for (const TiXmlElement* value = first; value != nullptr && after != nullptr && value != after;
       value = value->NextSiblingElement("Value")) {
    findRepeated(*value, inspection);
  }
}

void inspectParameter(const TiXmlNode& parameter, Inspection* inspection) {
  static const Names names = {"Name", "Value"};
  const TiXmlElement* name = parameter.FirstChildElement("Name");
  if (name == nullptr) {
    findNoName(parameter, inspection);
    return;
  }
  if (parameter.ValueStr() != "Param") {
    find(inspection, RuleId::parameterOfOtherName, placeOf(parameter), tag(parameter.ValueStr()),
         "Everything after the second Param is read as a parameter, whatever its name.",
         "Rename it to Param, or remove it.");
  }
  inspectName(*name, inspection);
  inspectValue(*name, inspection);
  inspectLater(name, inspection);
  inspectValueBeforeName(*name, inspection);
  inspectChildren(parameter, names, inspection);
}

// Checks the nodes in [begin, end), which are ignored: those before the second Param.
void inspectIgnored(const TiXmlNode* begin, const TiXmlNode* end, Inspection* inspection) {
  static const Names names = {"Param"};
  for (const TiXmlNode* node = begin; node != nullptr && node != end; node = node->NextSibling()) {
    if (node->ToElement() != nullptr) findUnknown(*node, "JobParams", names, inspection);
    if (node->ToText() != nullptr) findStray(*node, "JobParams", inspection);
  }
}

// In the loader's order: the first two by name, after them every node.
void inspectJobParams(const TiXmlNode& jobParams, Inspection* inspection) {
  const TiXmlNode* first = jobParams.FirstChild("Param");
  inspectIgnored(jobParams.FirstChild(), first, inspection);
  if (first == nullptr) return;
  inspectParameter(*first, inspection);
  const TiXmlNode* parameter = first->NextSibling("Param");
  inspectIgnored(first->NextSibling(), parameter, inspection);
  for (; parameter != nullptr; parameter = parameter->NextSibling()) {
    inspectParameter(*parameter, inspection);
  }
}

void inspectLists(const TiXmlNode& cmdData, Inspection* inspection) {
  const TiXmlElement* taskList = cmdData.FirstChildElement("TaskList");
  if (taskList == nullptr) {
    find(inspection, RuleId::noTaskList, inspection->cmdData, "",
         "There is no TaskList; the adapter refuses the file with \"Invalid XML job syntax\".",
         "Write <TaskList> with the tasks, before <JobParams>.");
  } else {
    inspectTaskList(*taskList, inspection);
  }
  const TiXmlNode* jobParams = taskList == nullptr ? nullptr : taskList->NextSibling("JobParams");
  if (jobParams == nullptr) {
    findNoJobParams(cmdData, inspection);
    return;
  }
  if (jobParams->ToElement() == nullptr) {
    findTaken(*jobParams, inspection);
  } else {
    inspectOtherJobParams(cmdData, *jobParams, inspection);
  }
  inspectJobParams(*jobParams, inspection);
}

}  // namespace

void inspectDocument(const TiXmlDocument& document, Inspection* inspection) {
  const TiXmlElement* root = inspectRoot(document, inspection);
  if (root == nullptr) return;
  const TiXmlNode* node = root->FirstChild("cmdData");
  if (node == nullptr || node->ToElement() == nullptr) {
    findNoCmdData(*root, node, inspection);
    return;
  }
  const TiXmlElement& cmdData = *node->ToElement();
  inspection->cmdData = placeOf(cmdData);
  inspectRootChildren(*root, cmdData, inspection);
  inspectChildren(cmdData, cmdDataNames, inspection);
  inspectRepeated(cmdData, inspection);
  inspectArguments(cmdData, inspection);
  inspectFolders(cmdData, inspection);
  inspectNumbers(cmdData, inspection);
  inspectLists(cmdData, inspection);
}

}  // namespace runlet_tool
