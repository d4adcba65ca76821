// Expanding the placeholders of a job's argument template.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"

namespace runlet {

// The result of a lookup for a task field or job parameter that does not exist.
inline constexpr char undefinedText[] = "Undefined";

inline constexpr std::size_t maxExpansionLength = 3999;  // bytes of an expanded template
inline constexpr std::size_t maxLookupLength = 2000;     // bytes of an entry or value that count
inline constexpr std::size_t maxNumberLength = 31;       // bytes of a printed or read number

enum class PlaceholderForm { taskNumber, taskField, jobParam, percent, dropped, malformed };

// A "%" of a template and its expansion, for explaining an expansion. Offsets are in bytes from the
// start of the template or of the expansion.
struct PlaceholderUse {
  std::size_t begin;       // of the "%"
  std::size_t end;         // after everything read as part of it
  std::size_t valueBegin;  // in the expansion, including leading zeros
  std::size_t valueEnd;
  PlaceholderForm form;
  std::int32_t width;   // as read, which may differ from what is written; 0 = none
  std::int32_t number;  // of the field or parameter; 0 = none
};

// Expands `argumentTemplate` for the task at `taskIndex` (0-based position in `taskList`):
//
//   %tn   the task's number, `taskIndex` + 1      %Wtn   with leading zeros, W digits wide
//   %tpN  field N of the task's entry             %WtpN  padded with zeros to W bytes
//   %jpN  job parameter N                         %WjpN  padded with zeros to W bytes
//   %%    a percent sign
//
// Returns true with the expansion in `*out`. Returns false, with `*out` unchanged and nothing
// written, for a "%t" or "%j" that is none of these, and for an expansion longer than
// `maxExpansionLength`. Raises what the two lookups raise.
//
// If `uses` is not null, appends every "%" that was reached, even if the expansion fails: the last
// one is then the malformed one, or else the expansion is too long. If a lookup raises, the last
// one is the "%" before it.
//
// Not reentrant: the lookups share a static scratch area.
bool fillInArguments(const AdapterContext* context, std::string* out, const char* argumentTemplate,
                     std::int32_t taskIndex, std::vector<PlaceholderUse>* uses = nullptr);

// Sets `*out` to field `fieldNumber` (1-based) of the entry at `taskIndex` (0-based) in `taskList`,
// or to `undefinedText` if there is no such field. An empty field between two TABs is the empty
// text, but an empty last field is `undefinedText`. Only the first `maxLookupLength` bytes of the
// entry count. Raises std::out_of_range if there is no such entry.
void getTaskField(const AdapterContext* context, std::string* out, std::int32_t taskIndex,
                  std::int32_t fieldNumber);

// Sets `*out` to the value of job parameter `paramNumber` (1-based), cut at `maxLookupLength`
// bytes, or to `undefinedText` if the number is outside 1 .. number of names. Raises
// std::out_of_range if the number is within the names but has no value.
void getJobParam(const AdapterContext* context, std::string* out, std::int32_t paramNumber);

}  // namespace runlet
