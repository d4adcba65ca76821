#include "job/parameter_file.h"

#include <tinyxml.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "adapter/messages.h"
#include "job/int32.h"
#include "job/strip_brace.h"
#include "xml/document.h"

namespace runlet {
namespace {

// The outcome of reading a part of the document.
enum class Reading { ok, invalidSyntax, stripBraceFailed };

struct TextElement {
  const char* name;
  std::string AdapterContext::*field;
};

constexpr TextElement textElements[] = {
    {"WorkingFolder", &AdapterContext::workingFolder},
    {"LogFolder", &AdapterContext::logFolder},
    {"Outputs", &AdapterContext::outputs},
};

struct NumberElement {
  const char* name;
  std::int32_t AdapterContext::*field;
};

// All of them decimal, the umask too: job files write the mask 022 as 18, and "022" is 22.
constexpr NumberElement numberElements[] = {
    {"TaskNameIdx", &AdapterContext::taskNameIdx},
    {"TaskTimeout", &AdapterContext::taskTimeout},
    {"uid", &AdapterContext::uid},
    {"gid", &AdapterContext::gid},
    {"umask", &AdapterContext::umask},
};

// Null if there is no element or it does not begin with text.
const char* textOf(const TiXmlElement* element) {
  return element == nullptr ? nullptr : element->GetText();
}

Reading readArguments(const TiXmlNode& cmdData, AdapterContext* context) {
  const char* text = textOf(cmdData.FirstChildElement("Arguments"));
  if (text != nullptr && !stripBrace(text, &context->arguments)) return Reading::stripBraceFailed;
  return Reading::ok;
}

Reading readTexts(const TiXmlNode& cmdData, AdapterContext* context) {
  for (const TextElement& row : textElements) {
    const char* text = textOf(cmdData.FirstChildElement(row.name));
    if (text != nullptr) context->*row.field = text;
  }
  return Reading::ok;
}

Reading readNumbers(const TiXmlNode& cmdData, AdapterContext* context) {
  for (const NumberElement& row : numberElements) {
    const TiXmlElement* element = cmdData.FirstChildElement(row.name);
    if (element == nullptr) continue;
    const char* text = textOf(element);
    if (text == nullptr) return Reading::invalidSyntax;
    context->*row.field = decimalInt32(text);
  }
  return Reading::ok;
}

Reading readRedirectStderr(const TiXmlNode& cmdData, AdapterContext* context) {
  const TiXmlElement* element = cmdData.FirstChildElement("redirectStderr");
  if (element == nullptr) return Reading::ok;
  const char* text = textOf(element);
  if (text == nullptr) return Reading::invalidSyntax;
  context->redirectStderr = *text != '\0' && std::strchr("YyTt1", *text) != nullptr;
  return Reading::ok;
}

// False, with the list unchanged, if there is no usable pair of braces.
bool appendTask(const char* text, StringList* list) {
  std::string entry;
  if (!stripBrace(text, &entry)) return false;
  list->push_back(std::move(entry));
  return true;
}

// The task elements are not destroyed while reading: the entries would then be allocated in the
// gaps, and the document's memory could not be returned to the system before the tasks are
// launched.
Reading readTasks(const TiXmlElement& taskList, AdapterContext* context) {
  for (const TiXmlNode* task = taskList.FirstChild("Task"); task != nullptr;
       task = task->NextSibling("Task")) {
    const char* text = textOf(task->FirstChildElement("Params"));
    if (text != nullptr && !appendTask(text, &context->taskList)) return Reading::stripBraceFailed;
  }
  return Reading::ok;
}

// Without braces the entry is empty, but it counts: parameters are identified by their number.
void appendStripped(const char* text, StringList* list) {
  if (text == nullptr) return;
  std::string entry;
  stripBrace(text, &entry);
  list->push_back(std::move(entry));
}

// A value is searched for only after its name.
Reading readParameter(const TiXmlNode& parameter, AdapterContext* context) {
  const TiXmlElement* name = parameter.FirstChildElement("Name");
  if (name == nullptr) return Reading::invalidSyntax;
  appendStripped(textOf(name), &context->paramNames);
  appendStripped(textOf(name->NextSiblingElement("Value")), &context->paramValues);
  return Reading::ok;
}

// The first two parameters are found by their name; from there on every node is the next
// parameter, whatever it is called. Job files in use have parameters under names of their own
// there, and their numbers would change if such nodes were ignored.
Reading readParameters(const TiXmlNode& jobParams, AdapterContext* context) {
  const TiXmlNode* parameter = jobParams.FirstChild("Param");
  for (bool first = true; parameter != nullptr; first = false) {
    if (readParameter(*parameter, context) != Reading::ok) return Reading::invalidSyntax;
    parameter = first ? parameter->NextSibling("Param") : parameter->NextSibling();
  }
  return Reading::ok;
}

Reading readLists(const TiXmlNode& cmdData, AdapterContext* context) {
  const TiXmlElement* taskList = cmdData.FirstChildElement("TaskList");
  if (taskList == nullptr) return Reading::invalidSyntax;
  if (const Reading tasks = readTasks(*taskList, context); tasks != Reading::ok) return tasks;
  // In the format, the parameters come after the tasks; parameters before them are ignored.
  const TiXmlNode* jobParams = taskList->NextSibling("JobParams");
  if (jobParams == nullptr) return Reading::invalidSyntax;
  return readParameters(*jobParams, context);
}

// The order of the steps matters: it decides what is filled when one of them fails, and which
// message a file with several faults gets.
constexpr Reading (*steps[])(const TiXmlNode& cmdData, AdapterContext* context) = {
    readArguments, readTexts, readNumbers, readRedirectStderr, readLists,
};

Reading readJob(const TiXmlDocument& document, AdapterContext* context) {
  // The first node must be the root: with a declaration or a comment before the root, the file is
  // not a job file.
  const TiXmlNode* root = document.FirstChild();
  const TiXmlNode* cmdData = root == nullptr ? nullptr : root->FirstChild("cmdData");
  if (cmdData == nullptr) return Reading::invalidSyntax;
  for (const auto step : steps) {
    if (const Reading reading = step(*cmdData, context); reading != Reading::ok) return reading;
  }
  return Reading::ok;
}

// In the order of Reading; null = no message.
constexpr const char* messages[] = {
    nullptr,
    invalidSyntaxText,
    stripBraceFailedText,
};

}  // namespace

const char* readJobDocument(const TiXmlDocument& document, AdapterContext* context) {
  return messages[static_cast<std::size_t>(readJob(document, context))];
}

bool loadParameterFile(AdapterContext* context) {
  if (context->jobFile.empty()) return false;
  TiXmlDocument document(context->jobFile.c_str());
  document.SetTabSize(0);  // no line and column tracking, which would look at every byte
  std::string reason;
  if (!loadXml(&document, &reason)) {
    std::fprintf(stderr, notLoadedFormat, context->jobFile.c_str(), reason.c_str());
    return false;
  }
  const char* message = readJobDocument(document, context);
  if (message == nullptr) return true;
  std::fputs(message, stderr);
  return false;
}

}  // namespace runlet
