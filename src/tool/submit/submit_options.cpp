#include "tool/submit/submit_options.h"

#include <algorithm>
#include <string_view>

namespace runlet_tool {
namespace {

// What sbatch is told already, or what would keep it from telling an id.
constexpr std::string_view longNames[] = {"array", "parsable", "wrap",
                                          "wait",  "comment",  "test-only"};
constexpr std::string_view shortNames = "aW";

// Letters of sbatch that take no value, so that another one may stand behind them in one word.
constexpr std::string_view flags = "hHkOQRuvV";

// sbatch takes the beginning of a name for the name.
bool isOurLongName(std::string_view name) {
  return std::any_of(std::begin(longNames), std::end(longNames),
                     [=](std::string_view ours) { return ours.starts_with(name); });
}

bool isOurs(std::string_view option) {
  if (option.starts_with("--")) return isOurLongName(option.substr(2, option.find('=') - 2));
  const std::size_t place = option.find_first_not_of(flags, 1);
  return place != std::string_view::npos &&
         shortNames.find(option[place]) != std::string_view::npos;
}

}  // namespace

std::string complaintAboutSbatchOption(const std::string& option) {
  if (option.size() < 2 || option.front() != '-') {
    return option + " is no option: write an option with its value in one word, as --mem=4G";
  }
  return isOurs(option) ? option + " cannot be given, for runlet-job sets it or depends on it" : "";
}

std::string complaintAboutId(const std::string& id) {
  const bool isNumber = id.find_first_not_of("0123456789") == std::string::npos;
  const bool isId = isNumber && !id.empty() && id.front() != '0' && id.size() <= 10;
  return isId ? "" : id + " is no id of an array";
}

}  // namespace runlet_tool
