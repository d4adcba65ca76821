// Limits on the cost of a job file for the XML library. The adapter reads the file as root, where
// no limits of the file's author apply; any file within these limits loads as the library loads it.
#pragma once

#include <cstddef>

namespace runlet {

// Bytes of the file. The library takes up to 85 bytes of memory for each (about 10 in a typical
// job), so that the largest file takes at most 11 GB.
inline constexpr std::size_t maxFileSize = std::size_t{128} << 20;

// Attributes of one element. More than any program writes.
inline constexpr std::size_t maxAttributes = 10000;

// The library compares each attribute with all those before it: n * (n - 1) / 2 comparisons for the
// n attributes of an element, added up over the whole file. They take a second or two with typical
// names, and up to a minute with names of kilobytes that have a common prefix. Four elements of
// `maxAttributes` are just within the limit.
inline constexpr std::size_t maxComparisons = 200'000'000;

// For each node, the library walks up through all enclosing elements. These levels are added up
// over the whole file; the limit takes about two seconds. A job of a million tasks has 14 million.
inline constexpr std::size_t maxLevels = 200'000'000;

// The library parses and destroys elements by recursion. It takes 226 to 233 bytes of stack for a
// level where it is optimised, as it is packaged; the rest is for other builds of it.
inline constexpr std::size_t stackPerLevel = 600;

// The stack size is taken from the soft RLIMIT_STACK of the process, but no more than this. It is
// more than a job can use: one chain of elements reaches `maxLevels` at 20,000 levels. A process
// without address space left for its stack (RLIMIT_AS) ends, as always when memory is short.
inline constexpr std::size_t maxStack = std::size_t{64} << 20;

// Of that, arguments and environment may take up to a quarter, and at least 128 KiB.
inline constexpr std::size_t minArgumentSpace = std::size_t{128} << 10;

// Reserved for the callers of the library and the functions it calls, which take less than a tenth
// of it.
inline constexpr std::size_t stackReserve = std::size_t{64} << 10;

// Levels that are always accepted, however small the stack is. A job has five.
inline constexpr std::size_t minDepth = 16;

}  // namespace runlet
