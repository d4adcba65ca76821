// docs/writing-a-job-file.md and README.md: the output they show is what runlet-job prints, and the
// jobs they recommend have no findings.
//
// In their indented blocks, lines that begin with "$ " are commands, followed by their output; a
// block that begins with "<" is a piece that replaces parts of the job file, or the whole job.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "programs.h"
#include "temp_folder.h"

namespace runlet_test {
namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string textOf(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

constexpr char indent[] = "    ";

// The indented blocks of a document, unindented.
std::vector<Lines> blocksOf(const std::string& document) {
  std::vector<Lines> blocks;
  bool isOpen = false;
  for (const std::string& line : linesOf(document)) {
    const bool isIndented = line.starts_with(indent);
    if (isIndented && !isOpen) blocks.emplace_back();
    if (isIndented) blocks.back().push_back(line.substr(sizeof indent - 1));
    isOpen = isIndented;
  }
  return blocks;
}

// The name of the element on the line; empty for other markup.
std::string elementOf(const std::string& line) {
  std::smatch match;
  const std::regex form("^<(?:!-- no )?([A-Za-z]+)");
  return std::regex_search(line, match, form) ? match[1].str() : "";
}

// The job with `lines` replacing all its elements of that name, which are on separate lines.
std::string replaced(const std::string& job, const std::string& element, const Lines& lines) {
  std::string text;
  bool isDone = false;
  for (const std::string& old : linesOf(job)) {
    const bool isReplaced = old.find("<" + element + ">") != std::string::npos;
    if (!isReplaced) text += old + "\n";
    const std::string space = old.substr(0, old.find('<'));
    for (const std::string& line : lines) {
      if (isReplaced && !isDone) text.append(space).append(line).append("\n");
    }
    isDone = isDone || isReplaced;
  }
  EXPECT_TRUE(isDone) << "no <" << element << ">";
  return text;
}

// The job with the piece inserted: its lines replace elements of the same name, and lines that are
// not elements stay with the preceding ones, or come before the root.
std::string edited(const std::string& job, const Lines& piece) {
  std::string text = job;
  std::size_t begin = 0;
  while (begin < piece.size()) {
    const std::string element = elementOf(piece[begin]);
    std::size_t end = begin + 1;
    while (end < piece.size() &&
           (elementOf(piece[end]) == element || elementOf(piece[end]).empty())) {
      ++end;
    }
    const Lines lines(piece.begin() + static_cast<std::ptrdiff_t>(begin),
                      piece.begin() + static_cast<std::ptrdiff_t>(end));
    text = element.empty() ? textOf(lines) + text : replaced(text, element, lines);
    begin = end;
  }
  return text;
}

// The commands of a console block, without the "$ " and with their continuation lines.
std::string commandsOf(const Lines& block) {
  std::string commands;
  bool continues = false;
  for (const std::string& line : block) {
    const bool begins = line.starts_with("$ ");
    if (begins || continues) commands += line.substr(begins ? 2 : 0) + "\n";
    continues = (begins || continues) && line.ends_with("\\");
  }
  return commands;
}

// The block as shown on a terminal: every command with its output.
std::string transcriptOf(const Lines& block, const std::string& folder) {
  ProcessOptions options;
  const std::string path = std::filesystem::path(toolPath).parent_path();
  options.environment = {{"PATH", path + ":/usr/bin:/bin"}};
  options.folder = folder;
  std::string transcript;
  std::string command;
  for (const std::string& line : linesOf(commandsOf(block))) {
    command += line + "\n";
    if (line.ends_with("\\")) continue;
    options.arguments = {"/bin/sh", "-c", "exec 2>&1\n" + command};
    transcript += "$ " + command + runProcess(options).output;
    command.clear();
  }
  return transcript;
}

bool isConsole(const Lines& block) {
  return block.front().starts_with("$ ");
}

class Guide : public testing::Test {
 protected:
  // Checks all blocks of the document, whose job is job.xml in `folder`. `owner` has options
  // for its `make` commands, if the document leaves the owner to its reader.
  void checkDocument(const std::string& path, const std::string& folder,
                     const std::string& owner = "") {
    const std::string document = readFile(std::string(sourceFolder) + "/" + path);
    const std::string make = "runlet-job make";
    const std::string here = std::regex_replace(document, std::regex(make), make + owner);
    const std::vector<Lines> blocks =
        blocksOf(std::regex_replace(here, std::regex(folder), folder_.path()));
    for (std::size_t i = 0; i < blocks.size(); ++i) {
      const bool isMistake =
          i + 1 < blocks.size() && isConsole(blocks[i + 1]) && isOfTool(blocks[i + 1]);
      if (isConsole(blocks[i])) {
        if (isOfTool(blocks[i])) expectTranscript(blocks[i]);
      } else if (blocks[i].front().starts_with("<")) {
        write(blocks[i]);
        if (!isMistake) expectNoFinding(blocks[i]);
      }
    }
    EXPECT_GT(count_, 0);
  }

 private:
  static bool isOfTool(const Lines& block) {
    return block.front().starts_with("$ runlet-job ");
  }

  void expectTranscript(const Lines& block) {
    EXPECT_EQ(textOf(block), transcriptOf(block, folder_.path()));
    ++count_;
  }

  void expectNoFinding(const Lines& piece) const {
    const std::string check = "$ runlet-job check " + folder_.file("job.xml");
    const std::string transcript = transcriptOf({check}, folder_.path());
    EXPECT_TRUE(transcript.ends_with(", no findings\n")) << textOf(piece) << transcript;
  }

  void write(const Lines& piece) {
    if (elementOf(piece.front()) == "Job") base_ = textOf(piece);
    if (base_.empty()) base_ = readFile(folder_.file("job.xml"));
    folder_.write("job.xml", textOf(piece) == base_ ? base_ : edited(base_, piece));
  }

  TempFolder folder_;
  std::string base_;  // the correct job
  int count_ = 0;     // of the commands
};

TEST_F(Guide, ToWritingAJobFileShowsTheRealOutput) {
  checkDocument("docs/writing-a-job-file.md", "/no-folder");
}

TEST_F(Guide, OfTheReadmeShowsTheRealOutput) {
  // Of root's own job there would be a warning.
  checkDocument("README.md", "/tmp/shot", " --user 1000 --group 1000");
}

std::string withoutSpace(const std::string& text) {
  return std::regex_replace(text, std::regex("\\s+"), "");
}

// The text of an SVG picture.
std::string textOfPicture(const std::string& svg) {
  std::string text;
  const std::regex element(">([^<]*)</text>");
  for (std::sregex_iterator match(svg.begin(), svg.end(), element), end; match != end; ++match) {
    text += (*match)[1];
  }
  text = std::regex_replace(text, std::regex("&lt;"), "<");
  text = std::regex_replace(text, std::regex("&gt;"), ">");
  return std::regex_replace(text, std::regex("&amp;"), "&");
}

// Apart from white space: its lines are those of a terminal.
TEST_F(Guide, HasAPictureOfTheRealOutput) {
  const std::string folder = std::string(sourceFolder) + "/docs/pictures";
  const std::string shown = textOfPicture(readFile(folder + "/check.svg"));
  EXPECT_EQ(withoutSpace(shown), withoutSpace(transcriptOf({"$ runlet-job check job.xml"}, folder)))
      << "run docs/pictures/make check";
}

}  // namespace
}  // namespace runlet_test
