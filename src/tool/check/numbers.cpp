// Checking the elements of cmdData that hold numbers, ids and the flag.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "adapter/task_range.h"
#include "job/int32.h"
#include "tool/check/inspection.h"
#include "tool/check/texts.h"
#include "tool/job/danger.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

using runlet::longestTimeout;

constexpr std::int32_t largestMask = 0777;

// A number as written in the file.
struct Number {
  const char* name;  // of the element
  const TiXmlElement* element;
  const TiXmlText* node;
  std::string text;
  std::size_t digits;  // offset of the first digit
  std::size_t end;     // offset after the last digit; equal to `digits` if there are none
  std::int32_t value;  // as the adapter reads it
  bool isBeyond32Bits;
};

bool fits32Bits(const std::string& text) {
  errno = 0;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  return errno == 0 && value >= INT32_MIN && value <= INT32_MAX;
}

Number numberOf(const TiXmlElement& element, const TiXmlText& node) {
  Number number = {element.Value(), &element, &node, node.Value(), 0, 0, 0, false};
  const std::string& text = number.text;
  number.digits = std::min(text.find_first_not_of(whiteSpace), text.size());
  const char sign = number.digits < text.size() ? text[number.digits] : '\0';
  if (sign == '-' || sign == '+') ++number.digits;
  number.end = number.digits;
  while (number.end < text.size() && runlet::isDigit(text[number.end])) ++number.end;
  number.value = runlet::decimalInt32(text.c_str());
  number.isBeyond32Bits = !fits32Bits(text);
  return number;
}

bool hasDigits(const Number& number) {
  return number.end > number.digits;
}

void findNumber(const Number& number, RuleId rule, std::string why, std::string instead,
                Inspection* inspection) {
  find(inspection, rule, placeOf(*number.node), number.text, std::move(why), std::move(instead));
}

bool isId(const Number& number) {
  return std::strcmp(number.name, "uid") == 0 || std::strcmp(number.name, "gid") == 0;
}

void inspectDigits(const Number& number, Inspection* inspection) {
  if (hasDigits(number) || isId(number)) return;
  findNumber(number, RuleId::noDigits, "This is not a number and is read as 0.",
             "Write a decimal number.", inspection);
}

void inspectRest(const Number& number, Inspection* inspection) {
  if (!hasDigits(number)) return;
  const std::string rest = number.text.substr(number.end);
  const std::size_t skipped = rest.find_first_not_of(whiteSpace);
  if (skipped == std::string::npos) return;
  const Source& source = *inspection->source;
  const std::size_t at = source.offsetIn(*number.node, number.end + skipped);
  find(inspection, RuleId::rubbishAfterNumber, source.placeOf(at), rest.substr(skipped),
       "A number ends at the first character that is not a digit: this is dropped, and the value "
       "is " +
           std::to_string(number.value) + ".",
       "Write only the decimal number.");
}

void inspectSize(const Number& number, Inspection* inspection) {
  if (!number.isBeyond32Bits) return;
  findNumber(number, RuleId::beyond32Bits,
             "Only the low 32 bits of a number are kept: the value is " +
                 std::to_string(number.value) + ".",
             "Write a number from -2147483648 to 2147483647.", inspection);
}

// Whether the digits are a usual mask in octal, or have the leading zero of octal numbers.
bool looksOctal(const Number& number) {
  constexpr long usualMasks[] = {022, 027, 077, 037, 0117, 0137, 0177, 0222, 0277, 0777};
  const std::string digits = number.text.substr(number.digits, number.end - number.digits);
  if (digits.size() < 2 || digits.find_first_of("89") != std::string::npos) return false;
  const long asOctal = std::strtol(digits.c_str(), nullptr, 8);
  if (asOctal == number.value) return false;
  return digits.front() == '0' ||
         std::find(std::begin(usualMasks), std::end(usualMasks), asOctal) != std::end(usualMasks);
}

std::string octal(std::int32_t mask) {
  char text[16];
  std::snprintf(text, sizeof text, "0%02o", static_cast<unsigned>(mask) & largestMask);
  return text;
}

void inspectMask(const Number& number, Inspection* inspection) {
  const std::string really = "octal " + octal(number.value);
  if (number.value < 0 || number.value > largestMask) {
    findNumber(number, RuleId::maskOutOfRange,
               "Only the low nine bits of a umask count, which are " + really + ".",
               "Write a decimal number from 0 to 511.", inspection);
  } else if (looksOctal(number)) {
    const long meant = std::strtol(number.text.c_str() + number.digits, nullptr, 8);
    findNumber(number, RuleId::octalMask, "The umask is read as decimal, which is " + really + ".",
               "Write " + std::to_string(meant) + " for octal " +
                   octal(static_cast<std::int32_t>(meant)) + ".",
               inspection);
  }
}

// Returns whether there is a finding.
bool inspectHiddenRoot(const Number& number, const char* whose, Inspection* inspection) {
  if (!isHiddenRoot(*number.node)) return false;
  findNumber(number, RuleId::hiddenRoot,
             hasDigits(number) ? "This is not a plain 0 but is read as 0: root."
                               : "This is not a number and is read as 0: root.",
             std::string("Write the number of the ") + whose + ".", inspection);
  return true;
}

void inspectUser(const Number& number, Inspection* inspection) {
  inspection->uid = placeOf(*number.node);
  if (inspectHiddenRoot(number, "user", inspection) || number.value != 0) return;
  findNumber(number, RuleId::rootUser, "User 0 is root: the tasks have all rights on the machine.",
             "Write the number of a user without such rights.", inspection);
}

void inspectGroup(const Number& number, Inspection* inspection) {
  inspection->gid = placeOf(*number.node);
  inspectHiddenRoot(number, "group", inspection);
}

void inspectTimeLimit(const Number& number, Inspection* inspection) {
  if (!hasDigits(number)) return;
  if (number.value >= -longestTimeout && number.value <= 0) {
    findNumber(number, RuleId::noTimeLimit,
               "Every task that has run for a millisecond is over this limit.",
               "Write the limit in minutes, from 1 to 35791.", inspection);
  } else if (number.value < 0 || number.value > longestTimeout) {
    const std::int32_t limit = runlet::timeLimit(number.value);
    findNumber(number, RuleId::wrappedTimeLimit,
               "The limit is counted in milliseconds, in 32 bits: it is really " +
                   std::to_string(limit) + " milliseconds.",
               "Write at most 35791.", inspection);
  }
}

void inspectNothing(const Number& /*number*/, Inspection* /*inspection*/) {}

struct NumberRow {
  const char* name;
  void (*inspect)(const Number& number, Inspection* inspection);
};

constexpr NumberRow numberRows[] = {
    {"TaskNameIdx", inspectNothing},
    {"TaskTimeout", inspectTimeLimit},
    {"uid", inspectUser},
    {"gid", inspectGroup},
    {"umask", inspectMask},
};

void findEmpty(const TiXmlElement& element, Inspection* inspection) {
  const std::string& name = element.ValueStr();
  find(inspection, RuleId::emptyNumber, placeOf(element), "<" + name + ">",
       "This element has no text; the adapter refuses the file with \"Invalid XML job syntax\".",
       "Write a value, or remove " + name + ".");
}

void inspectNumber(const NumberRow& row, const TiXmlElement& element, Inspection* inspection) {
  const TiXmlText* node = textNodeOf(&element, inspection);
  if (node == nullptr) {
    findEmpty(element, inspection);
    return;
  }
  const Number number = numberOf(element, *node);
  inspectDigits(number, inspection);
  inspectRest(number, inspection);
  inspectSize(number, inspection);
  row.inspect(number, inspection);
}

// What people write for "no", in lower case.
constexpr std::string_view usualNos[] = {"no", "n", "false", "f", "0", "off", "keep"};

bool isUsualNo(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(c < 0x80 ? std::tolower(c) : c); });
  return std::find(std::begin(usualNos), std::end(usualNos), text) != std::end(usualNos);
}

void inspectFlag(const TiXmlElement& element, Inspection* inspection) {
  const TiXmlText* node = textNodeOf(&element, inspection);
  if (node == nullptr) {
    findEmpty(element, inspection);
    return;
  }
  const std::string text = node->Value();
  const bool isYes = !text.empty() && std::strchr("YyTt1", text.front()) != nullptr;
  if (isYes || isUsualNo(text)) return;
  find(inspection, RuleId::unclearFlag, placeOf(*node), text,
       "Only text that begins with Y, y, T, t or 1 means yes; this means no.", "Write Yes or No.");
}

}  // namespace

void inspectNumbers(const TiXmlNode& cmdData, Inspection* inspection) {
  for (const NumberRow& row : numberRows) {
    const TiXmlElement* element = cmdData.FirstChildElement(row.name);
    if (element != nullptr) inspectNumber(row, *element, inspection);
  }
  const TiXmlElement* flag = cmdData.FirstChildElement("redirectStderr");
  if (flag != nullptr) inspectFlag(*flag, inspection);
  if (cmdData.FirstChildElement("TaskTimeout") == nullptr) {
    find(
        inspection, RuleId::noTimeLimit, inspection->cmdData, "",
        "Without TaskTimeout the limit is 0, and every task that has run for a millisecond is over "
        "it.",
        "Write <TaskTimeout> with the limit in minutes, from 1 to 35791.");
  }
}

}  // namespace runlet_tool
