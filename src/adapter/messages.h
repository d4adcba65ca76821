// The fixed, numbered texts of the command-line tool.
#pragma once

#include <cstdint>

namespace runlet {

// Numbers of the texts that the task launcher writes. The rest of the table is never printed
// but keeps its numbers.
inline constexpr std::int32_t cannotStartMessage = 7;
inline constexpr std::int32_t checkExecutableMessage = 8;
inline constexpr std::int32_t workingFolderMessage = 24;

inline constexpr std::int32_t messageCount = 25;

// NUL-terminated texts that live for the whole run.
extern const char* const messageTable[messageCount];

// The text number `index`, which must lie in 0 .. 24: there is no check.
const char* getMessage(std::int32_t index);

}  // namespace runlet
