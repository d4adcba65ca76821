// The loader of the job file: the input is the file.

#include <stdexcept>

#include "fuzz.h"
#include "job/parameter_file.h"

namespace {

bool isReport(const std::string& text, const std::string& path) {
  const std::string notLoaded =
      "Runlet adapter: Could not load parameter file " + path + ". Error='";
  return text == "Runlet adapter: Invalid XML job syntax.\n" ||
         text == "Runlet adapter: Strip brace failed.\n" ||
         (text.starts_with(notLoaded) && text.ends_with("'.Exiting.\n") &&
          text.find('\n') == text.size() - 1);
}

}  // namespace

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  static const runlet_fuzz::MemoryFile file("job.xml");
  file.write(data, size);
  runlet::AdapterContext context;
  context.jobFile = file.path();
  bool loaded = false;
  std::string report;
  try {
    report = runlet_fuzz::standardErrorOf([&] { loaded = loadParameterFile(&context); });
  } catch (const std::length_error&) {
    return;  // reversed braces
  }
  require(loaded ? report.empty() : isReport(report, context.jobFile), "one line for a failure");
  for (const std::string& entry : context.taskList) require(!entry.empty(), "no empty entry");
  for (const runlet::StringList* list :
       {&context.taskList, &context.paramNames, &context.paramValues}) {
    // So that every byte is read.
    for (const std::string& text : *list) {
      require(text.find('\0') == std::string::npos && *(text.data() + text.size()) == '\0',
              "texts that end with their only NUL");
    }
  }
}
