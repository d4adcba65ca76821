#include "model.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace runlet_model {

namespace {

const char digits[] = "0123456789";
const std::size_t scratchSize = 32;
const std::size_t longestExpansion = 3999;
const std::size_t longestEntry = 2000;
const std::size_t longestStripped = 255;

// The low 32 bits of a number, as a signed number.
std::int32_t low32(std::int64_t number) {
  const std::int64_t modulus = std::int64_t{1} << 32;
  std::int64_t low = number % modulus;
  if (low < 0) low += modulus;
  return static_cast<std::int32_t>(low < modulus / 2 ? low : low - modulus);
}

// A text as the C language sees it.
std::string upToNul(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

std::string digitsAt(std::string_view text, std::size_t at) {
  const std::size_t end = text.find_first_not_of(digits, at);
  return std::string(text.substr(at, end == std::string::npos ? end : end - at));
}

// Whether a run of digits is a number above `limit`, also a run of digits.
bool exceeds(const std::string& number, const std::string& limit) {
  const std::string significant =
      number.substr(std::min(number.find_first_not_of('0'), number.size()));
  if (significant.size() != limit.size()) return significant.size() > limit.size();
  return significant > limit;
}

std::int64_t remainderOf32Bits(const std::string& number) {
  std::int64_t remainder = 0;
  for (const char digit : number) {
    remainder = (remainder * 10 + (digit - '0')) % (std::int64_t{1} << 32);
  }
  return remainder;
}

}  // namespace

std::int32_t number(const std::string& text) {
  const std::string whole = upToNul(text);
  std::size_t at = whole.find_first_not_of(" \t\n\v\f\r");
  if (at == std::string::npos) return 0;
  const bool negative = whole[at] == '-';
  if (negative || whole[at] == '+') ++at;
  const std::string run = digitsAt(whole, at);
  if (negative) {
    const std::string least = "9223372036854775808";
    return low32(-remainderOf32Bits(exceeds(run, least) ? least : run));
  }
  const std::string greatest = "9223372036854775807";
  return low32(remainderOf32Bits(exceeds(run, greatest) ? greatest : run));
}

bool isInRange(std::int32_t firstTask, std::int32_t taskCount, std::int32_t index) {
  const std::int32_t begin = low32(std::int64_t{firstTask} - 1);
  const std::int32_t end = low32(std::int64_t{begin} + taskCount);
  return begin <= index && index < end;
}

bool isTimedOut(std::int32_t elapsed, std::int32_t limit) {
  return elapsed > low32(std::int64_t{limit} * 60 * 1000);
}

bool operator==(const Result& left, const Result& right) {
  return left.outcome == right.outcome && left.text == right.text;
}

Result stripBrace(const std::string& text) {
  const std::string whole = upToNul(text);
  const std::size_t open = whole.find('{');
  const std::size_t close = whole.rfind('}');
  if (open == std::string::npos || close == std::string::npos) return {Outcome::failed, ""};
  if (close < open) return {Outcome::lengthError, ""};
  const std::string head = whole.substr(0, close);
  const std::string inside = head.substr(open + 1);
  if (inside.empty()) return {Outcome::failed, ""};
  return {Outcome::done, inside};
}

std::optional<std::string> stripBraceIntoArea(const std::string& text) {
  const Result stripped = stripBrace(text);
  if (stripped.outcome != Outcome::done) return std::nullopt;
  if (stripped.text.size() > longestStripped) return std::nullopt;
  return stripped.text;
}

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> found;
  const std::string whole = upToNul(line);
  std::string_view rest = whole;
  while (true) {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    if (rest.empty()) return found;
    const bool quoted = rest.front() == '"';
    if (quoted) rest.remove_prefix(1);
    const std::size_t end = rest.find(quoted ? '"' : ' ');
    if (quoted && end == std::string::npos) return found;
    found.emplace_back(rest.substr(0, end));
    if (end == std::string::npos) return found;
    rest.remove_prefix(end + 1);
  }
}

namespace {

std::string entryText(const std::string& entry) {
  return upToNul(entry).substr(0, longestEntry);
}

std::vector<std::string> fieldsOf(const std::string& entry) {
  std::vector<std::string> fields(1);
  for (const char character : entry) {
    if (character == '\t') {
      fields.emplace_back();
    } else {
      fields.back().push_back(character);
    }
  }
  // The end of the text is not a field.
  if (fields.back().empty()) fields.pop_back();
  return fields;
}

bool isPosition(std::int64_t position, const std::vector<std::string>& list) {
  return position >= 0 && position < static_cast<std::int64_t>(list.size());
}

const Result undefined = {Outcome::done, "Undefined"};
const Result outOfRange = {Outcome::outOfRange, ""};

}  // namespace

Result taskField(const Lists& lists, std::int32_t taskIndex, std::int32_t fieldNumber) {
  if (!isPosition(taskIndex, lists.taskList)) return outOfRange;
  const std::string& entry = lists.taskList[static_cast<std::size_t>(taskIndex)];
  const std::vector<std::string> fields = fieldsOf(entryText(entry));
  const std::int64_t position = std::int64_t{fieldNumber} - 1;
  if (!isPosition(position, fields)) return undefined;
  return {Outcome::done, fields[static_cast<std::size_t>(position)]};
}

Result jobParam(const Lists& lists, std::int32_t paramNumber) {
  const std::int64_t position = std::int64_t{paramNumber} - 1;
  if (!isPosition(position, lists.paramNames)) return undefined;
  if (!isPosition(position, lists.paramValues)) return outOfRange;
  return {Outcome::done, entryText(lists.paramValues[static_cast<std::size_t>(position)])};
}

// A template is split into pieces first, and the pieces are then processed in order.

namespace {

enum class Kind { text, taskNumber, taskField, jobParam, wrong };

// One piece of a template. A placeholder reduced to its width is an empty text.
struct Piece {
  Kind kind = Kind::text;
  std::string text;         // as copied into the expansion
  std::string widthDigits;  // as written, or nothing
  std::string numberDigits;
};

// Removes `count` characters from the start.
std::string take(std::string_view& rest, std::size_t count) {
  std::string taken(rest.substr(0, count));
  rest.remove_prefix(taken.size());
  return taken;
}

bool takeIf(std::string_view& rest, std::string_view prefix) {
  if (rest.compare(0, prefix.size(), prefix) != 0) return false;
  rest.remove_prefix(prefix.size());
  return true;
}

std::string takeDigits(std::string_view& rest) {
  return take(rest, digitsAt(rest, 0).size());
}

// Parses a placeholder after its "%".
Piece takePlaceholder(std::string_view& rest) {
  Piece piece;
  piece.widthDigits = takeDigits(rest);
  if (takeIf(rest, "%")) {
    piece.text.push_back('%');
  } else if (takeIf(rest, "tn")) {
    piece.kind = Kind::taskNumber;
  } else if (takeIf(rest, "tp")) {
    piece.kind = Kind::taskField;
    piece.numberDigits = takeDigits(rest);
  } else if (takeIf(rest, "jp")) {
    piece.kind = Kind::jobParam;
    piece.numberDigits = takeDigits(rest);
  } else if (takeIf(rest, "t") || takeIf(rest, "j")) {
    piece.kind = Kind::wrong;
  }
  return piece;
}

std::vector<Piece> piecesOf(const std::string& pattern) {
  std::vector<Piece> pieces;
  const std::string whole = upToNul(pattern);
  std::string_view rest = whole;
  while (!rest.empty()) {
    if (takeIf(rest, "%")) {
      pieces.push_back(takePlaceholder(rest));
    } else {
      Piece text;
      text.text = take(rest, rest.find('%'));
      pieces.push_back(text);
    }
  }
  return pieces;
}

// The buffer of 32 characters shared by all numbers of one expansion.
class Scratch {
 public:
  // A width overwrites the start of the buffer and is read together with the digits after it.
  std::int32_t width(const std::string& written) {
    if (written.empty()) return 0;
    overwrite(written.substr(0, room));
    return number(characters_);
  }

  // A field or parameter number is terminated.
  std::int32_t selector(const std::string& written) {
    overwrite(written.substr(0, room) + '\0');
    return number(characters_);
  }

  // So is a task number.
  std::string print(const std::string& number) {
    const std::string printed = number.substr(0, room);
    overwrite(printed + '\0');
    return printed;
  }

 private:
  static const std::size_t room = scratchSize - 1;

  void overwrite(const std::string& characters) {
    characters_.replace(0, characters.size(), characters);
  }

  std::string characters_ = std::string(scratchSize, '\0');
};

// The number in at least `width` characters: with zeros after the sign, or for a negative width
// with spaces after the number. More than 32 of them make no difference.
std::string padded(std::int64_t number, std::int64_t width) {
  const std::string sign = number < 0 ? "-" : "";
  const std::string magnitude = std::to_string(number < 0 ? -number : number);
  const std::int64_t wanted = width < 0 ? -width : width;
  const std::int64_t length = static_cast<std::int64_t>(sign.size() + magnitude.size());
  const auto missing = static_cast<std::size_t>(
      std::clamp<std::int64_t>(wanted - length, 0, std::int64_t{scratchSize}));
  if (width < 0) return sign + magnitude + std::string(missing, ' ');
  return sign + std::string(missing, '0') + magnitude;
}

class Expansion {
 public:
  Expansion(const Lists& lists, std::int32_t taskIndex) : lists_(lists), taskIndex_(taskIndex) {}

  Outcome add(const Piece& piece) {
    const std::int32_t width = scratch_.width(piece.widthDigits);
    switch (piece.kind) {
      case Kind::text:
        return append(piece.text, 0);
      case Kind::taskNumber:
        return append(scratch_.print(padded(low32(std::int64_t{taskIndex_} + 1), width)), 0);
      case Kind::taskField:
        return appendValue(taskField(lists_, taskIndex_, scratch_.selector(piece.numberDigits)),
                           width);
      case Kind::jobParam:
        return appendValue(jobParam(lists_, scratch_.selector(piece.numberDigits)), width);
      case Kind::wrong:
        break;
    }
    return Outcome::failed;
  }

  const std::string& text() const {
    return text_;
  }

 private:
  Outcome appendValue(const Result& value, std::int64_t width) {
    return value.outcome == Outcome::done ? append(value.text, width) : value.outcome;
  }

  Outcome append(const std::string& value, std::int64_t width) {
    const auto length = static_cast<std::int64_t>(value.size());
    const auto used = static_cast<std::int64_t>(text_.size());
    if (used + std::max(length, width) > std::int64_t{longestExpansion}) return Outcome::failed;
    if (width > length) text_.append(static_cast<std::size_t>(width - length), '0');
    text_.append(value);
    return Outcome::done;
  }

  const Lists& lists_;
  std::int32_t taskIndex_;
  Scratch scratch_;
  std::string text_;
};

}  // namespace

Result fillIn(const Lists& lists, const std::string& pattern, std::int32_t taskIndex) {
  Expansion expansion(lists, taskIndex);
  for (const Piece& piece : piecesOf(pattern)) {
    const Outcome outcome = expansion.add(piece);
    if (outcome != Outcome::done) return {outcome, ""};
  }
  return {Outcome::done, expansion.text()};
}

}  // namespace runlet_model
