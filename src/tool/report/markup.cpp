#include "tool/report/markup.h"

#include "tool/text/format.h"

namespace runlet_tool {
namespace {

struct Escape {
  std::string_view text;
  std::string_view markup;
};

constexpr Escape escapes[] = {
    {"&", "&amp;"},
    {"<", "&lt;"},
    {">", "&gt;"},
    {"\"", "&quot;"},
    {"\xef\xbf\xbe", "\\ufffe"},
    {"\xef\xbf\xbf", "\\uffff"},
};

}  // namespace

std::string markup(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    std::string_view part = text.substr(0, 1);
    std::string_view written = part;
    for (const Escape& row : escapes) {
      if (!text.starts_with(row.text)) continue;
      part = row.text;
      written = row.markup;
    }
    out += written;
    text.remove_prefix(part.size());
  }
  return out;
}

std::string attribute(const char* name, std::string_view value) {
  return std::string(" ") + name + "=\"" + markup(value) + "\"";
}

std::string attribute(const char* name, double value) {
  std::string text = withoutLineEnd("%.2f", value);
  while (text.ends_with('0')) text.pop_back();
  if (text.ends_with('.')) text.pop_back();
  return attribute(name, text);
}

}  // namespace runlet_tool
