// Expanding the placeholders of a job's argument template.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"

namespace runlet {

// What a lookup yields for a task field or a job parameter that does not exist.
inline constexpr char undefinedText[] = "Undefined";

inline constexpr std::size_t maxExpansionLength = 3999;  // bytes of an expanded template
inline constexpr std::size_t maxLookupLength = 2000;     // bytes that count of an entry or value
inline constexpr std::size_t maxNumberLength = 31;       // bytes of a printed or read number

enum class PlaceholderForm { taskNumber, taskField, jobParam, percent, dropped, malformed };

// A "%" of a template and what became of it: for who has to explain an expansion. Offsets are in
// bytes from the start of the template, and of the expansion.
struct PlaceholderUse {
  std::size_t begin;       // of the "%"
  std::size_t end;         // after all that was read as part of it
  std::size_t valueBegin;  // in the expansion, zeros in front included
  std::size_t valueEnd;
  PlaceholderForm form;
  std::int32_t width;   // as it was read, which need not be what is written; 0 without one
  std::int32_t number;  // of the field or parameter; 0 for other forms and without one
};

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
// With `uses`, appends to it every "%" that was reached, also where the expansion fails: the last
// one is then the malformed one, or else the expansion is too long. Where a lookup raises, it is
// the one before that.
//
// Not reentrant: the lookups share a static scratch area.
bool fillInArguments(const AdapterContext* context, std::string* out, const char* argumentTemplate,
                     std::int32_t taskIndex, std::vector<PlaceholderUse>* uses = nullptr);

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
