#include "adapter/command_line.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "adapter/messages.h"
#include "job/int32.h"

namespace runlet {
namespace {

// One option and the field that it sets: exactly one of the two pointers is not null.
struct Option {
  char letter;
  std::string AdapterContext::*text;
  std::int32_t AdapterContext::*number;
};

constexpr Option options[] = {
    {'o', &AdapterContext::opcode, nullptr},    {'l', &AdapterContext::logPath, nullptr},
    {'j', &AdapterContext::jobFile, nullptr},   {'a', &AdapterContext::appPath, nullptr},
    {'e', nullptr, &AdapterContext::elapsedMs}, {'s', nullptr, &AdapterContext::firstTask},
    {'n', nullptr, &AdapterContext::taskCount}, {'u', &AdapterContext::userName, nullptr},
    {'d', &AdapterContext::dataPath, nullptr},
};

// The same letters, each with a value, as getopt wants them.
constexpr char optionString[] = "o:l:j:a:e:s:n:u:d:";

void storeOption(AdapterContext* context, int letter, const char* value) {
  for (const Option& option : options) {
    if (option.letter != letter) continue;
    if (option.text != nullptr) {
      context->*option.text = value;
    } else {
      context->*option.number = decimalInt32(value);
    }
  }
}

}  // namespace

std::int32_t parseArguments(AdapterContext* context, int argc, char* argv[]) {
  // For an unknown letter or a missing value getopt writes its own diagnostic and returns '?',
  // which is not an option. A server newer than the adapter must still be answered, so the loop
  // continues.
  for (int letter = 0; (letter = getopt(argc, argv, optionString)) != -1;) {
    storeOption(context, letter, optarg);
  }
  if (context->opcode.empty()) {
    std::fputs(noOpcodeText, stderr);
    return -1;
  }
  return 0;
}

}  // namespace runlet
