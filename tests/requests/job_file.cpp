#include "job_file.h"

#include <tinyxml.h>

#include <fstream>
#include <optional>
#include <stdexcept>
#include <vector>

namespace runlet_model {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";
constexpr char stripBraceFailed[] = "Runlet adapter: Strip brace failed.\n";

// A document without the library: element names, texts and comments are its values.
struct Node {
  std::string value;
  bool isElement;
  bool isText;
  std::vector<Node> children;
};

Node copyOf(const TiXmlNode& node) {
  Node copy{node.Value(), node.ToElement() != nullptr, node.ToText() != nullptr, {}};
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    copy.children.push_back(copyOf(*child));
  }
  return copy;
}

// The library reads some bytes past the end of a text that ends within a character; after the end
// of the scratch file these are zeros.
Node read(const std::string& text, const std::string& name, const std::string& scratchFile) {
  const std::string padding(8, '\0');
  std::ofstream(scratchFile, std::ios::binary) << text.substr(0, text.find('\0')) << padding;
  TiXmlDocument document(scratchFile.c_str());
  if (!document.LoadFile(TIXML_ENCODING_UTF8)) {
    throw Refused{couldNotLoad(name, document.ErrorDesc())};
  }
  return copyOf(document);
}

// The first child from `start` on with that name: of any kind, or only elements.
std::size_t findNode(const Node& parent, const std::string& name, std::size_t start = 0) {
  while (start < parent.children.size() && parent.children[start].value != name) ++start;
  return start;
}

std::size_t findElement(const Node& parent, const std::string& name, std::size_t start = 0) {
  start = findNode(parent, name, start);
  while (start < parent.children.size() && !parent.children[start].isElement) {
    start = findNode(parent, name, start + 1);
  }
  return start;
}

bool has(const Node& parent, std::size_t index) {
  return index < parent.children.size();
}

std::optional<std::string> textOf(const Node& parent, std::size_t index) {
  if (!has(parent, index)) return std::nullopt;
  const Node& element = parent.children[index];
  if (element.children.empty() || !element.children[0].isText) return std::nullopt;
  return element.children[0].value;
}

std::optional<std::string> textOf(const Node& parent, const std::string& name) {
  return textOf(parent, findElement(parent, name));
}

std::string lengthErrorText() {
  try {
    return std::string().assign("", std::string::npos);
  } catch (const std::length_error& error) {
    return terminateText("std::length_error", error.what());
  }
}

std::optional<std::string> withoutBraces(const std::string& text) {
  const Result result = stripBrace(text);
  if (result.outcome == Outcome::lengthError) throw Ended{lengthErrorText()};
  if (result.outcome == Outcome::failed) return std::nullopt;
  return result.text;
}

std::string withoutRequiredBraces(const std::string& text) {
  const std::optional<std::string> result = withoutBraces(text);
  if (!result) throw Refused{stripBraceFailed};
  return *result;
}

// The text of an optional element, which must have text if it is present.
std::optional<std::string> setting(const Node& data, const std::string& name) {
  const std::optional<std::string> text = textOf(data, name);
  if (!text && has(data, findElement(data, name))) throw Refused{invalidSyntax};
  return text;
}

void takeNumber(const Node& data, const std::string& name, std::int32_t* field) {
  if (const auto text = setting(data, name)) *field = number(*text);
}

void takeSettings(const Node& data, LoadedJob* job) {
  if (const auto text = textOf(data, "Arguments")) job->arguments = withoutRequiredBraces(*text);
  if (const auto text = textOf(data, "WorkingFolder")) job->workingFolder = *text;
  std::int32_t unused = 0;
  takeNumber(data, "TaskNameIdx", &unused);
  takeNumber(data, "TaskTimeout", &job->taskTimeout);
  takeNumber(data, "uid", &job->uid);
  takeNumber(data, "gid", &job->gid);
  takeNumber(data, "umask", &job->umask);
  if (const auto text = setting(data, "redirectStderr")) {
    job->redirectStderr = !text->empty() && std::string("YyTt1").find((*text)[0]) < 5;
  }
}

void takeTasks(const Node& list, Lists* lists) {
  for (std::size_t i = findNode(list, "Task"); has(list, i); i = findNode(list, "Task", i + 1)) {
    if (const auto text = textOf(list.children[i], "Params")) {
      lists->taskList.push_back(withoutRequiredBraces(*text));
    }
  }
}

void takeParameter(const Node& parameter, Lists* lists) {
  const std::size_t name = findElement(parameter, "Name");
  if (!has(parameter, name)) throw Refused{invalidSyntax};
  if (const auto text = textOf(parameter, name)) {
    lists->paramNames.push_back(withoutBraces(*text).value_or(""));
  }
  if (const auto text = textOf(parameter, findElement(parameter, "Value", name + 1))) {
    lists->paramValues.push_back(withoutBraces(*text).value_or(""));
  }
}

// The first two parameters are identified by name; after the second one everything is a parameter.
void takeParameters(const Node& list, Lists* lists) {
  const std::size_t first = findNode(list, "Param");
  if (!has(list, first)) return;
  takeParameter(list.children[first], lists);
  for (std::size_t i = findNode(list, "Param", first + 1); has(list, i); ++i) {
    takeParameter(list.children[i], lists);
  }
}

const Node& required(const Node& parent, std::size_t index) {
  if (!has(parent, index)) throw Refused{invalidSyntax};
  return parent.children[index];
}

}  // namespace

std::string terminateText(const std::string& type, const std::string& what) {
  return "terminate called after throwing an instance of '" + type + "'\n  what():  " + what + "\n";
}

std::string couldNotLoad(const std::string& name, const std::string& reason) {
  return "Runlet adapter: Could not load parameter file " + name + ". Error='" + reason +
         "'.Exiting.\n";
}

LoadedJob loadJob(const std::string& text, const std::string& name,
                  const std::string& scratchFile) {
  const Node document = read(text, name, scratchFile);
  const Node& root = required(document, 0);
  const Node& data = required(root, findNode(root, "cmdData"));
  LoadedJob job;
  takeSettings(data, &job);
  const std::size_t tasks = findElement(data, "TaskList");
  takeTasks(required(data, tasks), &job.lists);
  takeParameters(required(data, findNode(data, "JobParams", tasks + 1)), &job.lists);
  return job;
}

}  // namespace runlet_model
