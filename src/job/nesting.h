// How deep an XML text is nested, without building it.
#pragma once

#include <cstddef>

namespace runlet {

// The XML library parses and destroys elements by recursion and takes about 230 bytes of stack a
// level. Text that is nested deeper than this is not given to it, so that it gets by with one
// megabyte and no job file can overflow the stack of a process that runs as root.
inline constexpr std::size_t maxNesting = 4000;

// The greatest number of elements that the XML library would have open at once in `text`, which
// is prepared for it (see prepareText), or any number above `enough` as soon as that is certain.
// In text with an error the library stops there; then the yield may be larger than what it would
// reach, but never smaller.
//
// Follows the library (reading UTF-8) also where that is generous: a byte that begins a longer
// UTF-8 character hides the bytes after it, whatever they are, and "&#" hides all up to the next
// ";". A job file could otherwise show fewer levels here than it has there.
std::size_t deepestNesting(const char* text, std::size_t enough);

}  // namespace runlet
