// The options of a request: the input is the arguments, separated by NULs.

#include <unistd.h>

#include <algorithm>

#include "adapter/command_line.h"
#include "fuzz.h"

namespace {

constexpr std::size_t maxArguments = 24;

std::vector<std::string> argumentsOf(const std::uint8_t* data, std::size_t size) {
  const auto nuls = static_cast<std::size_t>(std::count(data, data + size, std::uint8_t{0}));
  const std::size_t count = size == 0 ? 0 : std::min(nuls + 1, maxArguments);
  std::vector<std::string> arguments = runlet_fuzz::texts(data, size, count);
  arguments.insert(arguments.begin(), "UserRunletAdapter");
  return arguments;
}

std::vector<std::string> sorted(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  return texts;
}

}  // namespace

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> arguments = argumentsOf(data, size);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  runlet::AdapterContext context;
  std::int32_t result = 1;
  optind = 0;  // resets getopt
  const std::string report = runlet_fuzz::standardErrorOf(
      [&] { result = parseArguments(&context, static_cast<int>(argv.size()) - 1, argv.data()); });
  require(result == (context.opcode.empty() ? -1 : 0), "an opcode is all it takes");
  require(report.ends_with("Runlet adapter: No opcode at all.\n") == (result == -1),
          "a line for a missing opcode");
  const std::vector<std::string> left(argv.begin(), argv.end() - 1);
  require(sorted(left) == sorted(arguments), "the arguments stay as they are");
}
