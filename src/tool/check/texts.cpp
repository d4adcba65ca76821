#include "tool/check/texts.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "job/strip_brace.h"
#include "tool/check/report.h"
#include "tool/check/rules.h"
#include "tool/check/source.h"
#include "tool/job/danger.h"
#include "tool/text/characters.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

void findCutOff(const TiXmlNode& node, const std::string& name, Inspection* inspection) {
  if (leaveOut(inspection, RuleId::cutOffText)) return;
  find(inspection, RuleId::cutOffText, placeOf(node), inspection->source->excerpt(node),
       "The text of " + name + " ends before this; the rest is ignored.",
       "Write the text in one piece, and comments outside " + name + ".");
}

void findHidden(const TiXmlElement& element, Inspection* inspection) {
  if (leaveOut(inspection, RuleId::cutOffText)) return;
  const TiXmlNode& first = *element.FirstChild();
  find(inspection, RuleId::cutOffText, placeOf(first), inspection->source->excerpt(first),
       "An element that does not begin with its text has none, so " + element.ValueStr() +
           " is read as empty.",
       "Begin " + element.ValueStr() + " with its text.");
}

// The part of the file in which white space of the text counts: all of it, or between the braces.
struct Region {
  std::size_t begin;
  std::size_t end;
};

Region regionOf(const Source& source, const TiXmlText& text, TextKind kind) {
  const std::size_t begin = source.offsetOf(text);
  const std::size_t end = source.textEnd(begin);
  if (kind == TextKind::plain) return {begin, end};
  const std::string_view all = std::string_view(source.text()).substr(begin, end - begin);
  const std::size_t first = all.find('{');
  const std::size_t last = all.rfind('}');
  if (first == std::string_view::npos || last == std::string_view::npos || last < first) {
    return {begin, end};  // the braces are written as references
  }
  return {begin + first, begin + last};
}

struct WritingRow {
  RuleId rule;
  const char* why;
  const char* instead;
};

constexpr WritingRow typedTab = {RuleId::typedTab,
                                 "A typed TAB becomes a space, so it does not separate fields.",
                                 "Write &#9; for the TAB between two fields."};

constexpr WritingRow bareAmpersand = {
    RuleId::droppedAmpersand,
    "An & that does not begin a reference is dropped; what follows it stays.",
    "Write &amp; for an &."};

constexpr WritingRow controlCharacter = {RuleId::controlCharacter,
                                         "A terminal or an editor acts on this character instead "
                                         "of showing it, so the text may look like another.",
                                         "Remove it."};

// In the order of TextKind.
constexpr WritingRow condensedRows[] = {
    {RuleId::condensedSpace, "This white space becomes a single space.",
     "Write a single space, or &#32; for each space to keep."},
    {RuleId::condensedTemplate, "This white space becomes a single space.",
     "Nothing needs to be done if it separates words; in double quotes write &#32; for each space "
     "to keep."},
    {RuleId::condensedSpace, "This white space becomes a single space.",
     "Write a single space, or &#32; for each space to keep."},
    {RuleId::condensedSpace, "This white space becomes a single space.",
     "Write a single space, or &#32; for each space to keep."},
};

std::string named(std::string_view run) {
  std::string text;
  for (const char c : run) {
    text += c == '\t' ? "<TAB>" : c == '\n' ? "<line end>" : "<space>";
    if (text.size() > 40) return text + "...";
  }
  return text;
}

std::size_t offsetInSource(std::string_view part, const Source& source) {
  return static_cast<std::size_t>(part.data() - source.text().data());
}

// Several tasks share one finding for each `kind`.
void findWriting(const WritingRow& row, const std::string& text, std::size_t offset,
                 std::int32_t number, Inspection* inspection, std::size_t kind = noOffset) {
  if (number != 0 && addTaskToFinding(inspection, row.rule, kind, number)) return;
  const Place place = inspection->source->placeOf(offset);
  if (number == 0) {
    find(inspection, row.rule, place, text, row.why, row.instead);
  } else {
    findForTask(inspection, row.rule, kind, number, place, text, row.why, row.instead);
  }
}

// Reports the first run with a TAB between fields and the first other run.
void inspectWhiteSpace(const Region& region, TextKind kind, std::int32_t number,
                       Inspection* inspection) {
  bool isTabFound = false;
  bool isOtherFound = false;
  for (const std::string_view run : inspection->source->condensedWithin(region.begin, region.end)) {
    const bool isTab = kind == TextKind::fields && run.find('\t') != std::string_view::npos;
    bool& isFound = isTab ? isTabFound : isOtherFound;
    if (isFound) continue;
    isFound = true;
    const WritingRow& row = isTab ? typedTab : condensedRows[static_cast<std::size_t>(kind)];
    findWriting(row, named(run), offsetInSource(run, *inspection->source), number, inspection);
  }
}

void inspectAmpersand(const Region& region, std::int32_t number, Inspection* inspection) {
  const std::size_t at = inspection->source->bareAmpersandWithin(region.begin, region.end);
  if (at == std::string::npos) return;
  findWriting(bareAmpersand, "&", at, number, inspection);
}

// The offset of the first one, from `at` on, except TAB and line end, which have their own
// findings.
std::size_t controlCharacterIn(std::string_view text, std::size_t at) {
  for (; at < text.size(); ++at) {
    const bool isUsual = text[at] == '\t' || text[at] == '\n';
    if (!isUsual && isControlCharacter(text.substr(at))) return at;
  }
  return std::string_view::npos;
}

std::size_t kindOf(const std::string& character) {
  std::size_t kind = 0;
  for (const char c : character) kind = kind << 8U | static_cast<unsigned char>(c);
  return kind;
}

// Applies to CDATA sections, too. Reports each character once.
void inspectControlCharacters(const TiXmlText& text, std::int32_t number, Inspection* inspection) {
  const std::string& value = text.ValueStr();
  std::set<std::string> found;
  for (std::size_t at = controlCharacterIn(value, 0); at != std::string::npos;) {
    const std::string character = value.substr(at, utf8CharacterLength(value.substr(at, 4)));
    if (found.insert(character).second) {
      findWriting(controlCharacter, character, inspection->source->offsetIn(text, at), number,
                  inspection, kindOf(character));
    }
    at = controlCharacterIn(value, at + character.size());
  }
}

struct Dropped {
  std::size_t index;  // in the text
  std::string text;
};

void findDropped(const TiXmlText& node, const Dropped& dropped, std::int32_t number,
                 Inspection* inspection) {
  const std::size_t skipped = dropped.text.find_first_not_of(whiteSpace);
  if (skipped == std::string::npos) return;
  const char* why = "Text outside the braces is ignored.";
  const char* instead = "Put all of the text between the braces.";
  const Source& source = *inspection->source;
  const Place place = source.placeOf(source.offsetIn(node, dropped.index + skipped));
  const std::size_t last = dropped.text.find_last_not_of(whiteSpace);
  const std::string text = dropped.text.substr(skipped, last - skipped + 1);
  if (number == 0) {
    find(inspection, RuleId::outsideBraces, place, text, why, instead);
  } else if (!addTaskToFinding(inspection, RuleId::outsideBraces, noOffset, number)) {
    findForTask(inspection, RuleId::outsideBraces, noOffset, number, place, text, why, instead);
  }
}

void findReversed(const TiXmlText& node, Inspection* inspection) {
  find(inspection, RuleId::reversedBraces, placeOf(node), node.ValueStr(),
       "The last } comes before the first {; the adapter ends abnormally while it loads the file.",
       "Write the text between { and }.");
}

// The text in braces, keeping a brace that it already has.
std::string braced(std::string text) {
  if (text.starts_with('{')) text.erase(0, 1);
  if (text.ends_with('}')) text.pop_back();
  std::string whole = "{";
  return whole.append(text.empty() ? "some text" : text).append("}");
}

// A Name or Value is then read as empty; any other text is refused. "{}" is the usual empty one.
void findNoBraces(const TiXmlText& node, TextKind kind, Inspection* inspection) {
  if (kind != TextKind::parameter) {
    find(inspection, RuleId::noBraces, placeOf(node), node.ValueStr(),
         "There is no text between { and }; the adapter refuses the file with \"Strip brace "
         "failed\".",
         "Write " + braced(node.Value()) + ".");
  } else if (node.ValueStr() != "{}") {
    find(inspection, RuleId::emptyWithoutBraces, placeOf(node), node.ValueStr(),
         "There is no text between { and }; it is read as empty.",
         "Write the text in braces, or {} if it is to be empty.");
  }
}

}  // namespace

const TiXmlText* textNodeOf(const TiXmlElement* element, Inspection* inspection) {
  if (element == nullptr || element->FirstChild() == nullptr) return nullptr;
  const TiXmlNode* first = element->FirstChild();
  if (first->ToText() == nullptr) {
    if (hasContent(first)) findHidden(*element, inspection);
    return nullptr;
  }
  const TiXmlText* text = first->ToText();
  if (isCutOff(*text)) findCutOff(*text->NextSibling(), element->ValueStr(), inspection);
  return text;
}

void inspectWriting(const TiXmlText& text, TextKind kind, std::int32_t number,
                    Inspection* inspection) {
  inspectControlCharacters(text, number, inspection);
  if (text.CDATA() || !inspection->source->hasOddWriting()) return;
  const Region region = regionOf(*inspection->source, text, kind);
  inspectWhiteSpace(region, kind, number, inspection);
  inspectAmpersand(region, number, inspection);
}

std::string inspectBraces(const TiXmlText& text, TextKind kind, std::int32_t number,
                          Inspection* inspection) {
  inspectWriting(text, kind, number, inspection);
  std::string stripped;
  try {
    if (!runlet::stripBrace(text.Value(), &stripped)) {
      findNoBraces(text, kind, inspection);
      return stripped;
    }
  } catch (const std::length_error&) {
    findReversed(text, inspection);
    return stripped;
  }
  const std::string value = text.Value();
  findDropped(text, {0, value.substr(0, value.find('{'))}, number, inspection);
  const std::size_t end = value.rfind('}') + 1;
  findDropped(text, {end, value.substr(end)}, number, inspection);
  return stripped;
}

}  // namespace runlet_tool
