// The rules of `check`.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace runlet_tool {

// error: if asked for all tasks, the adapter refuses, ends abnormally or does not start every one;
// or it is dangerous to start them (see isOfDanger).
// warning: the tasks run, but probably not as intended.
// note: worth knowing.
enum class Severity { error, warning, note };

// The value of each is the number of its code, which never changes: RJ001 is 1.
enum class RuleId {
  unreadable = 1,
  notXml = 2,
  beforeRoot = 3,
  cmdDataIsRoot = 4,
  noCmdData = 5,
  noTaskList = 6,
  noJobParams = 7,
  jobParamsBeforeTaskList = 8,
  repeatedElement = 9,
  unknownElement = 10,
  strayText = 11,
  cutOffText = 12,
  takenForElement = 13,
  droppedAmpersand = 14,
  noBraces = 20,
  reversedBraces = 21,
  outsideBraces = 22,
  emptyWithoutBraces = 23,
  typedTab = 24,
  condensedSpace = 25,
  condensedTemplate = 26,
  emptyNumber = 27,
  rubbishAfterNumber = 28,
  noDigits = 29,
  beyond32Bits = 30,
  octalMask = 31,
  maskOutOfRange = 32,
  unclearFlag = 33,
  hiddenRoot = 34,
  rootUser = 35,
  noGroup = 36,
  noUser = 37,
  noTimeLimit = 38,
  wrappedTimeLimit = 39,
  controlCharacter = 40,
  taskWithoutText = 50,
  noTasks = 51,
  unpairedParameter = 52,
  parameterOfOtherName = 53,
  parameterWithoutName = 54,
  duplicateParameter = 55,
  unusedParameter = 56,
  longEntry = 57,
  malformedPlaceholder = 60,
  undefinedValue = 61,
  missingValue = 62,
  carriedWidth = 63,
  cutTaskNumber = 64,
  droppedPercent = 65,
  longExpansion = 66,
  longDigits = 67,
  placeholderBeyond32Bits = 68,
  tasksNotChecked = 69,
  openQuote = 70,
  quoteInWord = 71,
  afterQuote = 72,
  whiteSpaceInWord = 73,
  emptyCommand = 74,
  noSpace = 75,
  shellInChmod = 76,
  folderBeforePath = 77,
  relativeFolder = 78,
  bareJobFile = 79,
  startDependentFolder = 80,
  shellSyntax = 81,
  missingFolder = 90,
  folderClosedToLaterTasks = 91,
  folderClosedToTask = 92,
  noProgram = 93,
  noInterpreter = 94,
  noInterpreterLine = 95,
  unknownUser = 96,
  uidWithoutAccount = 97,
  gidWithoutGroup = 98,
  groupsNotKept = 99,
};

// An entry of rules.txt.
struct Rule {
  RuleId id;
  Severity severity;
  const char* title;        // half a sentence
  const char* explanation;  // several lines: what happens, why, what to write, an example
};

// All rules, sorted by code.
std::span<const Rule> allRules();

const Rule& ruleOf(RuleId id);

// Whether the rule is an error only because of its danger: the adapter starts the tasks anyway.
bool isOfDanger(RuleId id);

// The rule with that code, such as "RJ060"; null if there is none.
const Rule* findRule(std::string_view code);

std::string codeOf(const Rule& rule);

const char* nameOf(Severity severity);

}  // namespace runlet_tool
