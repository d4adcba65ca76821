#include "job/fill_in.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "job/int32.h"

namespace runlet {
namespace {

// Shared by both lookups; one byte more than counts, so that it always ends in a NUL.
char lookupScratch[maxLookupLength + 1];

void copyToLookupScratch(const std::string& text) {
  std::strncpy(lookupScratch, text.c_str(), maxLookupLength);  // fills the rest with NUL
}

// The state of an expansion: its input, and the buffers for the result.
struct Expansion {
  const AdapterContext* context;
  std::int32_t taskIndex;
  const char* next;    // the rest of the template
  std::size_t length;  // bytes of `area` in use
  char area[maxExpansionLength + 1];
  // Receives every number of the expansion in turn and is never cleared in between: see
  // readWidth. Its last byte is always NUL.
  char number[maxNumberLength + 1];
  PlaceholderUse use;  // the current "%"
};

// Room for `count` more bytes at the end of the expansion; null if less is left.
char* extend(Expansion* expansion, std::size_t count) {
  if (count > maxExpansionLength - expansion->length) return nullptr;
  char* room = expansion->area + expansion->length;
  expansion->length += count;
  return room;
}

bool append(Expansion* expansion, const char* text, std::size_t length) {
  char* room = extend(expansion, length);
  if (room == nullptr) return false;
  std::memcpy(room, text, length);
  return true;
}

// Copies the digits at the current position of the template to the start of the number scratch, as
// many as fit, and skips them all. Returns the number of digits copied.
std::size_t takeDigits(Expansion* expansion) {
  std::size_t count = 0;
  for (; isDigit(*expansion->next); ++expansion->next) {
    if (count < maxNumberLength) expansion->number[count++] = *expansion->next;
  }
  return count;
}

// The width after a "%"; 0 if there is none.
//
// The digits are not terminated, so leftover digits of an earlier number in this expansion that
// follow them count as well: after "%tp12" a "%3tn" is 32 wide. Job files in use depend on the
// resulting widths; ending the width after its own digits would change their file names.
std::int32_t readWidth(Expansion* expansion) {
  const bool given = takeDigits(expansion) != 0;
  return expansion->use.width = given ? decimalInt32(expansion->number) : 0;
}

// The field or parameter number after "tp" or "jp"; 0 if there is none.
std::int32_t readNumber(Expansion* expansion) {
  expansion->number[takeDigits(expansion)] = '\0';
  return expansion->use.number = decimalInt32(expansion->number);
}

// Placeholders in a value are not expanded.
bool appendValue(Expansion* expansion, std::int32_t width, const std::string& value) {
  const auto padding = static_cast<std::int64_t>(width) - static_cast<std::int64_t>(value.size());
  if (padding > 0) {
    char* room = extend(expansion, static_cast<std::size_t>(padding));
    if (room == nullptr) return false;
    std::memset(room, '0', static_cast<std::size_t>(padding));
  }
  return append(expansion, value.data(), value.size());
}

// "%tn". The printed number is cut to the scratch, so that a large width gives only zeros and no
// digit of the number.
bool appendTaskNumber(Expansion* expansion, std::int32_t width) {
  // Any width beyond the scratch and the longest number prints the same first bytes; bounding it
  // avoids the C library's own limit on widths. A negative width, from digits beyond 32 bits,
  // aligns to the left.
  constexpr std::int32_t widest = 64;
  std::snprintf(expansion->number, sizeof expansion->number, "%0*d",
                std::clamp(width, -widest, widest), wrappingAdd(expansion->taskIndex, 1));
  return append(expansion, expansion->number, std::strlen(expansion->number));
}

bool appendTaskField(Expansion* expansion, std::int32_t width) {
  std::string value;
  getTaskField(expansion->context, &value, expansion->taskIndex, readNumber(expansion));
  return appendValue(expansion, width, value);
}

bool appendJobParam(Expansion* expansion, std::int32_t width) {
  std::string value;
  getJobParam(expansion->context, &value, readNumber(expansion));
  return appendValue(expansion, width, value);
}

struct Placeholder {
  char name[3];
  PlaceholderForm form;
  bool (*append)(Expansion* expansion, std::int32_t width);
};

constexpr Placeholder placeholders[] = {
    {"tn", PlaceholderForm::taskNumber, appendTaskNumber},
    {"tp", PlaceholderForm::taskField, appendTaskField},
    {"jp", PlaceholderForm::jobParam, appendJobParam},
};

// Expands what follows a "%". False for a malformed placeholder or if the expansion gets too long.
bool expandPlaceholder(Expansion* expansion) {
  PlaceholderUse& use = expansion->use;
  const std::int32_t width = readWidth(expansion);
  const char first = *expansion->next;
  if (first == '%') {
    use.form = PlaceholderForm::percent;
    ++expansion->next;
    return append(expansion, "%", 1);
  }
  // Before anything that cannot be a placeholder, "%" and width are dropped; the rest is ordinary
  // text.
  use.form = PlaceholderForm::dropped;
  if (first != 't' && first != 'j') return true;
  for (const Placeholder& placeholder : placeholders) {
    if (std::strncmp(expansion->next, placeholder.name, 2) != 0) continue;
    use.form = placeholder.form;
    expansion->next += 2;
    return placeholder.append(expansion, width);
  }
  use.form = PlaceholderForm::malformed;
  return false;
}

// The same, recorded in `uses`, if that is not null. `begin` is the start of the template.
bool expandAndRecord(Expansion* expansion, const char* begin, std::vector<PlaceholderUse>* uses) {
  expansion->use.begin = static_cast<std::size_t>(expansion->next - begin);
  expansion->use.valueBegin = expansion->length;
  expansion->use.number = 0;
  ++expansion->next;
  const bool expanded = expandPlaceholder(expansion);
  expansion->use.end = static_cast<std::size_t>(expansion->next - begin);
  expansion->use.valueEnd = expansion->length;
  if (uses != nullptr) uses->push_back(expansion->use);
  return expanded;
}

// The start of field `fieldNumber` of the entry in the lookup scratch; null when it has fewer.
const char* findField(std::int32_t fieldNumber) {
  if (fieldNumber < 1) return nullptr;
  const char* field = lookupScratch;
  for (std::int32_t number = 1; number < fieldNumber; ++field) {
    if (*field == '\0') return nullptr;
    if (*field == '\t') ++number;
  }
  return field;
}

}  // namespace

bool fillInArguments(const AdapterContext* context, std::string* out, const char* argumentTemplate,
                     std::int32_t taskIndex, std::vector<PlaceholderUse>* uses) {
  Expansion expansion;
  expansion.context = context;
  expansion.taskIndex = taskIndex;
  expansion.next = argumentTemplate;
  expansion.length = 0;
  std::memset(expansion.number, 0, sizeof expansion.number);

  while (*expansion.next != '\0') {
    const char* text = expansion.next;
    expansion.next += std::strcspn(text, "%");
    if (!append(&expansion, text, static_cast<std::size_t>(expansion.next - text))) return false;
    if (*expansion.next == '\0') break;
    if (!expandAndRecord(&expansion, argumentTemplate, uses)) return false;
  }
  out->assign(expansion.area, expansion.length);
  return true;
}

void getTaskField(const AdapterContext* context, std::string* out, std::int32_t taskIndex,
                  std::int32_t fieldNumber) {
  copyToLookupScratch(context->taskList.at(static_cast<std::size_t>(taskIndex)));
  const char* field = findField(fieldNumber);
  // An empty field at the entry's end does not exist, but one ended by a TAB does: an entry that
  // ends with a TAB has one field less than expected.
  if (field == nullptr || *field == '\0') {
    *out = undefinedText;
  } else {
    out->assign(field, std::strcspn(field, "\t"));
  }
}

void getJobParam(const AdapterContext* context, std::string* out, std::int32_t paramNumber) {
  // The names only bound the number. In a job with fewer values than names, the checked access
  // below may raise, and the uncaught error ends the process: no task of such a job may run with a
  // value meant for another parameter.
  if (paramNumber > static_cast<std::int32_t>(context->paramNames.size()) || paramNumber <= 0) {
    *out = undefinedText;
    return;
  }
  copyToLookupScratch(context->paramValues.at(static_cast<std::size_t>(paramNumber) - 1));
  *out = lookupScratch;
}

}  // namespace runlet
