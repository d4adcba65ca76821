// Both forms of stripping the braces: the input is the text, up to its first NUL.

#include <optional>
#include <stdexcept>

#include "fuzz.h"
#include "job/strip_brace.h"
#include "model.h"

namespace {

using runlet_fuzz::require;
using runlet_model::Outcome;
using runlet_model::Result;

constexpr char unchanged[] = "as it was";

Result strip(const std::string& text) {
  std::string out = unchanged;
  try {
    if (runlet::stripBrace(text.c_str(), &out)) return {Outcome::done, out};
  } catch (const std::length_error&) {
    return {Outcome::lengthError, ""};
  }
  require(out == unchanged, "a failure leaves the string alone");
  return {Outcome::failed, ""};
}

std::optional<std::string> stripIntoArea(const std::string& text) {
  // On the heap, so that writing past the end is detected.
  std::vector<char> area(runlet::maxStrippedLength + 1, '#');
  if (runlet::stripBrace(text.c_str(), area.data())) return std::string(area.data());
  require(area == std::vector<char>(area.size(), '#'), "a failure leaves the area alone");
  return std::nullopt;
}

}  // namespace

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = runlet_fuzz::texts(data, size, 1)[0];
  require(strip(text) == runlet_model::stripBrace(text), "the model's text");
  require(stripIntoArea(text) == runlet_model::stripBraceIntoArea(text), "the model's area");
}
