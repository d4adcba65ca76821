#include "job/parameter_file.h"

#include <tinyxml.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "job/arena.h"
#include "job/int32.h"
#include "job/job_text.h"
#include "job/strip_brace.h"
#include "job/xml_extent.h"

namespace runlet {
namespace {

// What reading a piece of the document came to.
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

// Null when there is no element or it does not begin with text.
const char* textOf(const TiXmlElement* element) {
  return element == nullptr ? nullptr : element->GetText();
}

// How many bytes of memory a byte of the file may come to in the document and in the lists, before
// the heap has to help out. In a usual job it is about 9 and 1.
constexpr std::size_t documentFactor = 16;
constexpr std::size_t listFactor = 8;

// A document that looks at a text before it parses it, so that what the library cannot take never
// reaches it. It is looked at where it is parsed: no byte can change in between, and a large file
// is in memory once.
class JobDocument : public TiXmlDocument {
 public:
  using TiXmlDocument::TiXmlDocument;

  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) override {
    padText(const_cast<char*>(text));  // NOLINT(*-const-cast): the buffer that LoadFile has read to
    refusal_ = refusalOf(text);
    return refusal_ == nullptr ? TiXmlDocument::Parse(text, data, encoding) : nullptr;
  }

  // Why it did not parse the text; null when it did.
  const char* refusal() const {
    return refusal_;
  }

 private:
  const char* refusal_ = nullptr;
};

// Reads the file that `document` is named after. `*length` is how many bytes of text that was.
bool loadDocument(JobDocument* document, std::size_t* length, std::string* reason) {
  std::FILE* stream = openJobText(document->Value(), length, reason);
  if (stream == nullptr) return false;
  bool loaded = false;
  {
    const ArenaScope scope(&documentArena, *length * documentFactor);
    loaded = document->LoadFile(stream, TIXML_ENCODING_UTF8);
  }
  std::fclose(stream);
  if (document->refusal() != nullptr) *reason = document->refusal();
  if (!loaded && reason->empty()) *reason = document->ErrorDesc();
  return reason->empty();
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

// False, with the list as it was, without a usable pair of braces.
bool appendTask(const char* text, StringList* list) {
  std::string entry;
  if (!stripBrace(text, &entry)) return false;
  list->push_back(std::move(entry));
  return true;
}

// Each task of the document is destroyed once it has been read, while it is still in the
// processor's cache.
Reading readTasks(TiXmlElement* taskList, AdapterContext* context) {
  for (TiXmlNode* task = taskList->FirstChild("Task"); task != nullptr;) {
    const char* text = textOf(task->FirstChildElement("Params"));
    if (text != nullptr && !appendTask(text, &context->taskList)) return Reading::stripBraceFailed;
    TiXmlNode* next = task->NextSibling("Task");
    taskList->RemoveChild(task);
    task = next;
  }
  return Reading::ok;
}

// Without braces the entry is empty, but it counts: parameters are known by their number.
void appendStripped(const char* text, StringList* list) {
  if (text == nullptr) return;
  std::string entry;
  stripBrace(text, &entry);
  list->push_back(std::move(entry));
}

// A value is looked for behind its name only.
Reading readParameter(const TiXmlNode& parameter, AdapterContext* context) {
  const TiXmlElement* name = parameter.FirstChildElement("Name");
  if (name == nullptr) return Reading::invalidSyntax;
  appendStripped(textOf(name), &context->paramNames);
  appendStripped(textOf(name->NextSiblingElement("Value")), &context->paramValues);
  return Reading::ok;
}

// The first two parameters are found by their name; from there on every node is the next
// parameter, whatever it is called. Job files in use have parameters under names of their own
// there, and their numbers would change if such nodes were passed over.
Reading readParameters(const TiXmlNode& jobParams, AdapterContext* context) {
  const TiXmlNode* parameter = jobParams.FirstChild("Param");
  for (bool first = true; parameter != nullptr; first = false) {
    if (readParameter(*parameter, context) != Reading::ok) return Reading::invalidSyntax;
    parameter = first ? parameter->NextSibling("Param") : parameter->NextSibling();
  }
  return Reading::ok;
}

Reading readLists(TiXmlNode* cmdData, AdapterContext* context) {
  TiXmlElement* taskList = cmdData->FirstChildElement("TaskList");
  if (taskList == nullptr) return Reading::invalidSyntax;
  if (const Reading tasks = readTasks(taskList, context); tasks != Reading::ok) return tasks;
  // The format has the parameters behind the tasks; in front of them they do not count.
  const TiXmlNode* jobParams = taskList->NextSibling("JobParams");
  if (jobParams == nullptr) return Reading::invalidSyntax;
  return readParameters(*jobParams, context);
}

// In the order of the steps, which shows in what is filled when one of them fails, and in the
// message of a file with several faults.
constexpr Reading (*steps[])(const TiXmlNode& cmdData, AdapterContext* context) = {
    readArguments,
    readTexts,
    readNumbers,
    readRedirectStderr,
};

// Nothing is rolled back after a failure: the request ends then, and nothing looks at the fields.
Reading readJob(TiXmlDocument* document, std::size_t length, AdapterContext* context) {
  // The first node has to be the root, even if it is not an element: with a declaration or a
  // comment in front of the root the file is not a job file.
  TiXmlNode* root = document->FirstChild();
  TiXmlNode* cmdData = root == nullptr ? nullptr : root->FirstChild("cmdData");
  if (cmdData == nullptr) return Reading::invalidSyntax;
  for (const auto step : steps) {
    if (const Reading reading = step(*cmdData, context); reading != Reading::ok) return reading;
  }
  const ArenaScope scope(&listArena, length * listFactor);
  return readLists(cmdData, context);
}

// In the order of Reading; null where there is nothing to say.
constexpr const char* messages[] = {
    nullptr,
    "Runlet adapter: Invalid XML job syntax.\n",
    "Runlet adapter: Strip brace failed.\n",
};

bool report(Reading reading) {
  const char* message = messages[static_cast<std::size_t>(reading)];
  if (message == nullptr) return true;
  std::fputs(message, stderr);
  return false;
}

}  // namespace

bool loadParameterFile(AdapterContext* context) {
  if (context->jobFile.empty()) return false;
  JobDocument document(context->jobFile.c_str());
  document.SetTabSize(0);  // or every byte would be looked at for the line and column it is in
  std::string reason;
  std::size_t length = 0;
  if (!loadDocument(&document, &length, &reason)) {
    std::fprintf(stderr, "Runlet adapter: Could not load parameter file %s. Error='%s'.Exiting.\n",
                 context->jobFile.c_str(), reason.c_str());
    return false;
  }
  return report(readJob(&document, length, context));
}

}  // namespace runlet
