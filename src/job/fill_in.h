// Expanding the placeholders of a job's argument template.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "adapter/context.h"

namespace runlet {

// What a lookup yields for a task field or a job parameter that does not exist.
inline constexpr char undefinedText[] = "Undefined";

inline constexpr std::size_t maxExpansionLength = 3999;  // bytes of an expanded template
inline constexpr std::size_t maxLookupLength = 2000;     // bytes that count of an entry or value
inline constexpr std::size_t maxNumberLength = 31;       // bytes of a printed or read number

// Expands `argumentTemplate` for the task at `taskIndex` (0-based position in `taskList`):
//
//   %tn   the task's number, `taskIndex` + 1      %Wtn   with zeros in front, W digits wide
//   %tpN  field N of the task's entry             %WtpN  filled with zeros to W bytes
//   %jpN  job parameter N                         %WjpN  filled with zeros to W bytes
//   %%    a percent sign
//
// Returns true with the expansion in `*out`. Returns false, with `*out` unchanged and nothing
// written, for a "%t" or "%j" that is none of these, and for an expansion longer than
// `maxExpansionLength`. Raises what the two lookups raise.
//
// Not reentrant: the lookups share a static scratch area.
bool fillInArguments(const AdapterContext* context, std::string* out, const char* argumentTemplate,
                     std::int32_t taskIndex);

// Sets `*out` to field `fieldNumber` (1-based) of the entry at `taskIndex` (0-based) in
// `taskList`, or to `undefinedText` when there is no such field. An empty field between two TABs
// yields the empty text, but an empty last field yields `undefinedText`. Only the first
// `maxLookupLength` bytes of the entry count.
// Raises std::out_of_range when there is no such entry.
void getTaskField(const AdapterContext* context, std::string* out, std::int32_t taskIndex,
                  std::int32_t fieldNumber);

// Sets `*out` to the value of job parameter `paramNumber` (1-based), cut at `maxLookupLength`
// bytes, or to `undefinedText` when the number lies outside 1 .. number of names.
// Raises std::out_of_range when the number is within the names but has no value.
void getJobParam(const AdapterContext* context, std::string* out, std::int32_t paramNumber);

}  // namespace runlet
