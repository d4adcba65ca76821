// What a job file may ask of the XML library. The adapter reads the file as root, where no limit of
// the file's author holds; whatever stays within these limits loads as the library loads it.
#pragma once

#include <cstddef>

namespace runlet {

// Bytes of the file. The library takes up to 85 bytes of memory for each (about 10 in a usual job),
// so that the largest file takes 11 GB at the very most.
inline constexpr std::size_t maxFileSize = std::size_t{128} << 20;

// Attributes of one element. More than any program writes.
inline constexpr std::size_t maxAttributes = 10000;

// The library compares each attribute with all those before it: n * (n - 1) / 2 comparisons for the
// n attributes of an element, added up over the whole file. These take a second or two with usual
// names, and up to a minute with names of kilobytes that have a common beginning. Four elements of
// `maxAttributes` are just within the limit.
inline constexpr std::size_t maxComparisons = 200'000'000;

// For each node, the library goes up through all the elements around it. These levels are added up
// over the whole file, and take about two seconds. A job of a million tasks has 14 million.
inline constexpr std::size_t maxLevels = 200'000'000;

// The library parses and destroys elements by recursion. It takes 226 to 233 bytes of stack for a
// level where it is optimised, as it is packaged; the rest is for other builds of it.
inline constexpr std::size_t stackPerLevel = 600;

// The stack that counts is the soft RLIMIT_STACK of the process, but no more than this. It is more
// than a job can use: one chain of elements reaches `maxLevels` at 20,000 levels. A process that
// has no address space left for its stack (RLIMIT_AS) ends, as it does wherever memory is short.
inline constexpr std::size_t maxStack = std::size_t{64} << 20;

// Of that, the kernel lets arguments and environment have up to a quarter, and at least 128 KiB.
inline constexpr std::size_t minArgumentSpace = std::size_t{128} << 10;

// And this much is left for the functions that call the library and that it calls: they take less
// than a tenth of it.
inline constexpr std::size_t stackReserve = std::size_t{64} << 10;

// Levels that are let through however small the stack is. A job has five.
inline constexpr std::size_t minDepth = 16;

}  // namespace runlet
