// The style sheet of the page about a batch, compiled in from page.css.
#pragma once

#include <string_view>

namespace runlet_tool {

extern const std::string_view pageStyle;

}  // namespace runlet_tool
