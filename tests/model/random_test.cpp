// The adapter compared with the model, on long random input near the limits.
//
//   RUNLET_TEST_CASES=n   each test tries n cases instead of its default; a small n for
//                         slow runs (2000 under valgrind), a large one for a long search. The
//                         exhaustive tests use it as well.
//   RUNLET_TEST_SEED=n    the first case is drawn with seed n, the next with n + 1, and so on;
//                         default 1. A failure reports the seed of its case.
#include <algorithm>
#include <map>

#include "cases.h"
#include "comparison.h"

namespace runlet_model {
namespace {

std::string randomText(Random& random, const std::string& characters, std::size_t length) {
  std::string text(length, ' ');
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < length; ++i) {
    bits = i % 8 == 0 ? random.bits() : bits >> 8;
    text[i] = characters[(bits & 0xff) * characters.size() >> 8];
  }
  return text;
}

// A length that is usually small, sometimes large and sometimes close to `limit`.
std::size_t randomLength(Random& random, std::size_t limit) {
  if (random.oneIn(16)) return random.between(limit - 2, limit + 2);
  if (random.oneIn(16)) return random.below(limit * 2);
  return random.below(12);
}

const std::string digits = "0123456789";

// Numbers, as text, at which behaviour changes.
const std::string bordersOfNumbers[] = {"0",
                                        "9",
                                        "31",
                                        "32",
                                        "64",
                                        "1999",
                                        "2000",
                                        "2001",
                                        "3998",
                                        "3999",
                                        "4000",
                                        "4001",
                                        "2147483637",
                                        "2147483647",
                                        "2147483648",
                                        "2147483657",
                                        "4294967255",
                                        "4294967264",
                                        "4294967265",
                                        "4294967295",
                                        "4294967296",
                                        "4294967297",
                                        "4294967300",
                                        "4294967328",
                                        "4294971295",
                                        "4294971296",
                                        "9223372036854775807",
                                        "9223372036854775808",
                                        "9223372036854775817",
                                        "18446744073709551616",
                                        "18446744073709551617"};

// A run of digits of any length, or one of the limits with a random last digit.
std::string randomDigits(Random& random) {
  switch (random.below(8)) {
    case 0: {
      std::string border = random.from(bordersOfNumbers);
      if (random.oneIn(2)) border.back() = random.from(digits);
      return border;
    }
    case 1:  // with leading zeros, around the 31 digits that count
      return std::string(random.between(20, 34), '0') + randomText(random, digits, random.below(4));
    case 2:
      return randomText(random, digits, random.between(1, 70));
    default:
      return randomText(random, digits, random.between(1, 3));
  }
}

std::string randomEntry(Random& random) {
  const std::string characters = random.oneIn(2) ? "a\t" : "ab12 \"{}%\ttn\xc3\xa9";
  std::string entry = randomText(random, characters, randomLength(random, 2000));
  // Most of a long entry is one field, the first or the last.
  if (random.oneIn(2)) std::replace(entry.begin(), entry.begin() + entry.size() / 2, '\t', 'a');
  if (random.oneIn(4)) std::replace(entry.begin() + entry.size() / 3, entry.end(), '\t', 'b');
  return entry;
}

std::vector<std::string> randomEntries(Random& random, std::size_t count) {
  std::vector<std::string> entries(count);
  for (std::string& entry : entries) entry = randomEntry(random);
  return entries;
}

Lists randomLists(Random& random) {
  Lists lists;
  lists.taskList = randomEntries(random, random.between(1, 3));
  lists.paramValues = randomEntries(random, random.below(5));
  const std::size_t nameCount = random.oneIn(2) ? lists.paramValues.size() : random.below(5);
  lists.paramNames.assign(nameCount, "name");
  return lists;
}

// Usually the index of a task; a template without fields accepts any index.
std::int32_t randomIndex(Random& random, const Lists& lists) {
  if (random.oneIn(16)) return static_cast<std::int32_t>(random.bits() & 0xffffffff);
  return static_cast<std::int32_t>(random.below(lists.taskList.size()));
}

std::string randomPlaceholder(Random& random) {
  std::string placeholder = "%";
  if (random.oneIn(2)) placeholder += randomDigits(random);
  const char* const forms[] = {"tn", "tp", "jp", "%", "x", " "};
  const std::string form = random.oneIn(50) ? random.oneIn(2) ? "t" : "j" : random.from(forms);
  placeholder += form;
  if (form == "tp" || form == "jp") {
    placeholder += random.oneIn(8) ? randomDigits(random) : std::to_string(random.below(6));
  }
  return placeholder;
}

std::string randomTemplate(Random& random) {
  std::string text;
  for (std::size_t left = random.between(1, 10); left > 0; --left) {
    if (random.oneIn(2)) text += randomText(random, "ab tpjn1\t\"{", random.below(6));
    text += randomPlaceholder(random);
  }
  return text;
}

struct FillInCase {
  explicit FillInCase(Random& random)
      : lists(randomLists(random)),
        index(randomIndex(random, lists)),
        pattern(randomTemplate(random)) {}

  Lists lists;
  std::int32_t index;
  std::string pattern;
};

// A value of `length` characters, at least 18, in two parts. Four digits follow each "jp", so that
// no leftover digits follow the width.
std::string longValue(std::size_t length) {
  constexpr std::size_t undefinedLength = 9;
  std::string width = std::to_string(length - undefinedLength);
  width.insert(0, 4 - width.size(), '0');
  return std::string("%jp0000%").append(width).append("jp0000");
}

// Extends the expansion to 3998 to 4001 characters, in one of several ways.
void stretch(Random& random, FillInCase* fillInCase) {
  const Result result = fillIn(fillInCase->lists, fillInCase->pattern, fillInCase->index);
  const std::size_t wanted = random.between(3998, 4001);
  if (result.outcome != Outcome::done || result.text.size() + 18 > wanted) return;
  const std::size_t missing = wanted - result.text.size();
  std::string& pattern = fillInCase->pattern;
  switch (random.below(4)) {
    case 0:
      // The letter separates the dots from a width before them.
      pattern.append("x").append(missing - 1, '.');
      break;
    case 1:
      pattern.insert(0, missing, '.');
      break;
    case 2:
      pattern.append(longValue(missing));
      break;
    default:
      pattern.insert(0, missing - 1, '.').append("%%");
  }
}

FillInCase randomFillInCase(Random& random) {
  FillInCase fillInCase(random);
  if (random.oneIn(4)) stretch(random, &fillInCase);
  return fillInCase;
}

TEST(RandomTemplates, AreFilledInLikeTheModel) {
  checkRandomCases(250'000, [](Random& random) {
    const FillInCase fillInCase = randomFillInCase(random);
    return sameExpansion(Job(fillInCase.lists), fillInCase.pattern, fillInCase.index);
  });
}

// The comparison is only as good as the cases that it reaches.
TEST(RandomTemplates, ReachEveryOutcome) {
  std::map<Outcome, int> outcomes;
  std::map<std::size_t, int> lengths;
  for (std::uint64_t seed = 1; seed <= 5'000; ++seed) {
    Random random(seed);
    const FillInCase fillInCase = randomFillInCase(random);
    const Result result = fillIn(fillInCase.lists, fillInCase.pattern, fillInCase.index);
    ++outcomes[result.outcome];
    ++lengths[result.text.size()];
  }
  EXPECT_GT(outcomes[Outcome::done], 1'000);
  EXPECT_GT(outcomes[Outcome::failed], 500);
  EXPECT_GT(outcomes[Outcome::outOfRange], 200);
  EXPECT_GT(lengths[3998], 50);
  EXPECT_GT(lengths[3999], 50);
  EXPECT_EQ(lengths.upper_bound(3999), lengths.end());
}

// The number of an entry in a list of any length.
std::int32_t randomNumberOfEntry(Random& random) {
  if (random.oneIn(32)) return static_cast<std::int32_t>(random.bits() & 0xffffffff);
  return static_cast<std::int32_t>(random.below(random.oneIn(4) ? 1'000 : 8)) - 1;
}

TEST(RandomEntries, HaveTheSameFields) {
  checkRandomCases(150'000, [](Random& random) {
    const Job job(randomLists(random));
    return sameTaskField(job, randomIndex(random, job.lists), randomNumberOfEntry(random));
  });
}

TEST(RandomParameters, AreFoundLikeTheModel) {
  checkRandomCases(150'000, [](Random& random) {
    return sameJobParam(Job(randomLists(random)), randomNumberOfEntry(random));
  });
}

TEST(RandomTexts, AreStrippedOfBracesLikeTheModel) {
  checkRandomCases(200'000, [](Random& random) {
    const std::string characters = random.oneIn(2) ? "ab \t" : "ab{} ";
    std::string text = randomText(random, characters, randomLength(random, 255));
    if (!random.oneIn(8)) text = "{" + text + "}";
    if (random.oneIn(4)) text = randomText(random, "a}", random.below(3)) + text;
    if (random.oneIn(4)) text += randomText(random, "a{", random.below(3));
    return sameStrippedText(text);
  });
}

TEST(RandomLines, AreSplitIntoWordsLikeTheModel) {
  const std::vector<std::string> pieces = {" ",  "  ", "\"", "\" ", " \"",  "\"\"",      "\t",
                                           "\\", "a",  "bc", "'",   "\\\"", "--option=", "\n"};
  checkRandomCases(200'000, [&](Random& random) {
    std::string line;
    for (std::size_t left = randomLength(random, 60); left > 0; --left) line += random.from(pieces);
    return sameWords(line);
  });
}

TEST(RandomNumbers, AreReadLikeTheModel) {
  checkRandomCases(400'000, [](Random& random) {
    const std::string front = randomText(random, " \t\n\v\f\r\xa0\x85", random.below(3));
    const std::string sign = randomText(random, "+--", random.oneIn(16) ? 2 : random.below(2));
    const std::string after = randomText(random, "x 5.-+eE\xb2", random.below(3));
    const std::string number =
        random.oneIn(2) ? randomDigits(random) : std::to_string(random.bits());
    return sameNumber(front + sign + number + after);
  });
}

}  // namespace
}  // namespace runlet_model
