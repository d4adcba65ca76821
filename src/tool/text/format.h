// Texts from formats, above all the adapter's own.
#pragma once

#include <cstddef>
#include <string>

namespace runlet_tool {

// What printf makes of it, without the line end that the format may have.
std::string withoutLineEnd(const char* format, ...) __attribute__((format(printf, 1, 2)));

// "1 task", "2 tasks".
std::string quantity(std::size_t count, const std::string& what);

}  // namespace runlet_tool
