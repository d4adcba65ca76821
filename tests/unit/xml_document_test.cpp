#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>

#include "temp_folder.h"
#include "xml/document.h"

namespace runlet {
namespace {

using namespace std::string_literals;

// The result of a load: the reason for the failure, or the whole document.
struct Loaded {
  std::string reason;
  std::string built;

  bool operator==(const Loaded&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Loaded& loaded) {
  return out << "'" << loaded.reason << "' " << testing::PrintToString(loaded.built);
}

void describe(const TiXmlNode& node, std::string* text) {
  text->append(std::to_string(node.Type())).append("(").append(node.ValueStr());
  if (const TiXmlElement* element = node.ToElement(); element != nullptr) {
    for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
      text->append(" ").append(attribute->NameTStr()).append("=").append(attribute->ValueStr());
    }
  }
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    describe(*child, text);
  }
  text->append(")");
}

Loaded load(const std::string& path) {
  TiXmlDocument document(path.c_str());
  Loaded loaded;
  if (loadXml(&document, &loaded.reason)) describe(document, &loaded.built);
  return loaded;
}

Loaded loadByTheLibrary(const std::string& path) {
  TiXmlDocument document(path.c_str());
  Loaded loaded;
  if (document.LoadFile(TIXML_ENCODING_UTF8)) {
    describe(document, &loaded.built);
  } else {
    loaded.reason = document.ErrorDesc();
  }
  return loaded;
}

class XmlDocument : public testing::Test {
 protected:
  std::string write(const std::string& bytes) const {
    return folder_.write("job.xml", bytes);
  }

  runlet_test::TempFolder folder_;
};

TEST_F(XmlDocument, IsWhatTheLibraryLoads) {
  for (const std::string& bytes :
       {""s, "\0"s, " "s, "\r"s, "text"s, "<a>"s, "<a/>"s, "<a/>\0<b>"s, "<a\0/>"s,
        "<a><![CDATA[1\r2\r\n3\n4\r\r5\r\r\n6\n\r7\r\n\r\n]]></a>"s, "<a>t\r</a>\r\n"s,
        "\r\n<a>\r<b c='d\re\r\nf'/>\r\r\r</a>\r\n\r\n\0\r\n"s, "\xef\xbb\xbf<a>\xc3\xa9</a>"s,
        "<a>" + std::string(1 << 20, 'x') + "</a>"}) {
    const std::string path = write(bytes);
    EXPECT_EQ(load(path), loadByTheLibrary(path)) << testing::PrintToString(bytes.substr(0, 100));
  }
}

TEST_F(XmlDocument, IsRefusedInTheLibrarysWordsIfThereIsNoFile) {
  const std::string missing = folder_.file("missing.xml");
  EXPECT_EQ(load(missing), loadByTheLibrary(missing));
  EXPECT_EQ(load(missing).reason, "Failed to open file");
}

TEST_F(XmlDocument, IsEmptyIfThereIsNoRegularFile) {
  const std::string pipe = folder_.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(load(pipe).reason, "Error document empty.");
  EXPECT_EQ(load("/dev/zero").reason, "Error document empty.");
  EXPECT_EQ(load(folder_.path()).reason, "Is a directory");
}

// Pieces of jobs, and of everything that the library treats specially.
std::string randomText(std::mt19937* random) {
  static const std::string pieces[] = {
      "<Job>",
      "<cmdData>",
      "</cmdData>",
      "</Job>",
      "<Task><Params>{a&#9;b}</Params></Task>",
      "<a b='c'/>",
      "<!-- c -->",
      "<![CDATA[",
      "]]>",
      "<?xml version='1.0'?>",
      "&lt;",
      "&#65;",
      "&",
      "\r",
      "\r\n",
      "\n",
      "\n\r",
      " ",
      "\t",
      "text",
      "\xc3\xa9",
      "\xef\xbb\xbf",
      "\xe2\x82",
      "\xf0",
      "\xff",
      "<",
      ">",
      "'",
      "\0"s,
  };
  const auto below = [&](std::size_t limit) { return (*random)() % limit; };
  std::string text = "<Job>";
  for (std::size_t left = below(40); left > 0; --left) text += pieces[below(std::size(pieces))];
  if (below(2) == 0) text += "</Job>";
  // Damage: a byte changed, or the end cut off.
  if (below(4) == 0) text[below(text.size())] = static_cast<char>(below(256));
  if (below(4) == 0) text.resize(below(text.size() + 1));
  return text;
}

// The library would read past the end of the text.
bool endsWithinACharacter(const std::string& text) {
  const std::string whole = text.substr(0, text.find('\0'));
  const std::string end = whole.substr(whole.size() - std::min<std::size_t>(whole.size(), 3));
  return std::any_of(end.begin(), end.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= 0xc0; });
}

TEST_F(XmlDocument, IsWhatTheLibraryLoadsFromRandomAndDamagedFiles) {
  constexpr unsigned seed = 7;
  std::mt19937 random(seed);
  int loads = 0;
  int refusals = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string text = randomText(&random);
    if (endsWithinACharacter(text)) continue;
    const std::string path = write(text);
    const Loaded loaded = load(path);
    ASSERT_EQ(loaded, loadByTheLibrary(path)) << i << " " << testing::PrintToString(text);
    ++(loaded.reason.empty() ? loads : refusals);
  }
  EXPECT_GT(loads, 200);
  EXPECT_GT(refusals, 200);
}

// Even if the text ends within a character, whatever bytes follow it in the file.
TEST_F(XmlDocument, IsReadNoFurtherThanItsText) {
  for (const std::string lead : {"\xc3", "\xe2", "\xe2\x82", "\xf0", "\xf0\x9f\x98"}) {
    for (const std::string& rest : {""s, "\0"s, "\0></a>"s, "\0\0\0></a>"s}) {
      EXPECT_EQ(load(write("<a>\r\n\r\n\r\n" + lead + rest)).reason,
                "Error reading Element value.");
      EXPECT_EQ(load(write("<a b='" + lead + rest)).reason, "Error parsing Element.");
    }
  }
}

}  // namespace
}  // namespace runlet
