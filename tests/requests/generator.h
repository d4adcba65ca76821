// Requests for the adapter: valid, nearly valid and broken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "machine.h"
#include "random.h"

namespace runlet_model {

// How often, in percent, something differs from a valid request.
struct Oddness {
  unsigned opcode = 3;
  unsigned options = 3;
  unsigned structure = 1;
  unsigned markup = 2;
  unsigned braces = 1;
  unsigned numbers = 2;
  unsigned parameters = 3;
  unsigned bytes = 0;
  unsigned placeholders = 40;
  unsigned wrongPlaceholders = 1;
  unsigned programs = 8;
  unsigned appPaths = 20;
  unsigned folders = 20;
  unsigned jobPaths = 8;
  unsigned rights = 5;
  unsigned ranges = 20;
  unsigned pings = 10;
  std::string foreignFolder = "/tmp";  // one that the request does not create
};

struct Case {
  std::vector<std::string> arguments;  // the program's own name first
  std::string jobPath;                 // of the job file, which has this content and mode
  std::string jobText;
  unsigned jobMode = 0644;
  unsigned recorderMode = 0755;
  bool isUnprivileged = false;  // started as another user, if possible
};

class Generator {
 public:
  // For the files in `folder`, which the test creates.
  Generator(Random* random, const Oddness& odd, std::string folder, Identity caller,
            bool isUnprivileged);

  Case make();

 private:
  // The command line.
  std::string opcode();
  std::string oddNumber();
  std::string firstTask();
  std::string taskCount();
  std::string elapsed();
  std::string appPath();
  std::string jobFileName();
  void addOption(char letter, const std::string& value);
  void disturbOptions();
  std::vector<std::string> optionWords();

  // Texts of the job file.
  std::string spelled(const std::string& text);
  std::string braced(const std::string& text);
  std::string element(const std::string& name, const std::string& content);
  std::string noise();

  // The job file.
  std::string jobText();
  std::vector<std::string> elements();
  std::string setting(const std::string& name, const std::vector<std::string>& odd,
                      const std::vector<std::string>& usual, unsigned oddPercent,
                      unsigned absentPercent);
  std::string numberSetting(const std::string& name, const std::vector<std::string>& usual);
  std::string idSetting(const std::string& name, std::uint32_t own, unsigned absentPercent);
  std::string workingFolder();
  std::string taskList();
  std::string taskEntry();
  std::string value();
  std::string jobParams();
  std::string parameter(bool isLate);
  std::string argumentTemplate();
  std::string program();
  std::string argument();
  std::string placeholder();
  void disturbStructure(std::vector<std::string>* parts);
  void disturbBytes(std::string* text);

  std::string in(const std::string& name) const {
    return folder_ + "/" + name;
  }

  Random& random_;
  const Oddness odd_;
  const std::string folder_;
  const Identity caller_;
  Case case_;
  std::string appPath_;
  std::vector<std::string> options_;
};

}  // namespace runlet_model
