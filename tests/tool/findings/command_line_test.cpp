// Findings about the command line of a task, its folder and the options.

#include <filesystem>

#include "findings.h"

namespace runlet_test {
namespace {

constexpr char script[] = "#!/bin/sh\necho \"$0\" \"$@\"\n";

class CommandLineFindings : public Findings {
 protected:
  // `ofBad` and `ofFixed` are the rest of the line after the program, followed by the resulting
  // arguments, which are printed on separate lines.
  void expectWords(const Strings& ofBad, const Strings& ofFixed) {
    expectBad(words(ofBad));
    expectFixed(words(ofFixed));
  }

  // Sets the application for -a to "app" in `folder`, which has the script `render`.
  void useApplication(const std::string& folder, unsigned mode) {
    folder_.makeFolder(folder);
    folder_.write(folder + "/render", script, mode);
    options_ = {"-a", folder_.file(folder) + "/app"};
  }

  std::string rendered(const std::string& program) const {
    return called(program + " 1") + program + " 1\n";
  }

 private:
  std::string words(const Strings& row) const {
    std::string output = called("/usr/bin/printf [%s]\\n " + row[0]);
    for (std::size_t i = 1; i < row.size(); ++i) output += "[" + row[i] + "]\n";
    return output;
  }
};

TEST_F(CommandLineFindings, RJ070QuoteNotClosed) {
  expectFound({{"RJ070", "warning", 3, 45, "\"dawn light", "all"}});
  expectWords({"1 \"dawn light", "1"}, {"1 \"dawn light\"", "1", "dawn light"});
}

TEST_F(CommandLineFindings, RJ071QuoteInsideAWord) {
  expectFound({{"RJ071", "warning", 3, 44, "-s=\"dawn", "all"}});
  expectWords({"-s=\"dawn light\"", "-s=\"dawn", "light\""},
              {"\"-s=dawn light\"", "-s=dawn light"});
}

TEST_F(CommandLineFindings, RJ072TextAfterAClosingQuote) {
  expectFound({{"RJ072", "warning", 3, 53, "\"dawn light\"/1", "all"}});
  expectWords({"\"dawn light\"/1", "dawn light", "/1"}, {"\"dawn light/1\"", "dawn light/1"});
}

TEST_F(CommandLineFindings, RJ073TabIsAnOrdinaryCharacter) {
  expectFound({{"RJ073", "warning", 3, 45, "dawn\tlight", "all"}});
  expectWords({"dawn\tlight", "dawn\tlight"}, {"dawn light", "dawn", "light"});
}

TEST_F(CommandLineFindings, RJ074EmptyCommand) {
  expectFound({{"RJ074", "error", 3, 5, "", "all"}});
  expectBadNotExecuted("");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(CommandLineFindings, RJ075NoSpaceAfterTheProgramOfAnApplication) {
  useApplication("tools", 0644);
  expectFound({{"RJ075", "error", 3, 17, "render", "all"}});
  expectBad("",
            terminateText("std::out_of_range",
                          "basic_string::substr: __pos (which is 18446744073709551615) > "
                          "this->size() (which is 6)"),
            "signal 6");
  EXPECT_EQ(modeOf(folder_.file("tools/render")), 0644);
  expectFixed(rendered(folder_.file("tools/render")));
  EXPECT_EQ(modeOf(folder_.file("tools/render")), 0755);
}

// The shell that runs chmod does more than that.
TEST_F(CommandLineFindings, RJ076ShellCharactersInThePathOfTheApplication) {
  useApplication("tools;echo>log", 0755);
  folder_.makeFolder("tools", 0700);
  folder_.makeFolder("log");
  const std::string program = folder_.file("tools;echo>log/render");
  expectCheck(bad, {{"RJ076", "error", 3, 17, program, "all"}});
  expectBad(rendered(program));
  EXPECT_EQ(modeOf(folder_.file("tools")), 0755);
  EXPECT_EQ(readFile(folder_.file("log/render")), "\n");

  useApplication("plain", 0644);
  expectCheck(fixed, {});
  expectFixed(rendered(folder_.file("plain/render")));
}

TEST_F(CommandLineFindings, RJ077FolderBeforeAFullPath) {
  useApplication("tools", 0644);
  folder_.makeFolder("tools/bin");
  folder_.write("tools/bin/render", script, 0644);
  expectFound({{"RJ077", "warning", 3, 17, folder_.file("tools//bin/render"), "all"}});
  expectBad(rendered(folder_.file("tools//bin/render")));
  expectFixed(rendered(folder_.file("tools/render")));
}

TEST_F(CommandLineFindings, RJ078RelativeFolderOfSeveralTasks) {
  expectFound({{"RJ078", "error", 4, 20, "shots", ""}});
  const std::string shots = folder_.makeFolder("shots");
  runFolder_ = "shots";
  expectBad(called("/bin/echo 1") + "1\n", cannotEnter("shots", "No such file or directory"),
            "exit 255");
  runFolder_ = shots;
  expectFixed(called("/bin/echo 1") + called("/bin/echo 2") + "1\n2\n");
}

TEST_F(CommandLineFindings, RJ079BareJobFileName) {
  bareName_ = true;
  expectFound({{"RJ079", "error", 0, 0, "bad.xml", ""}});
  expectBadRefused(cannotEnter("bad.xml", "Not a directory"));
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(CommandLineFindings, RJ080RelativeFolder) {
  expectFound({{"RJ080", "warning", 4, 20, "shots", ""}});
  const std::string shots = folder_.makeFolder("shots");
  runFolder_ = "shots";
  expectBad(called("/bin/echo 1") + "1\n");
  startFolder_ = "/";
  expectBadRefused(cannotEnter("shots", "No such file or directory"));
  runFolder_ = shots;
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(CommandLineFindings, RJ081ShellSyntax) {
  expectFound({{"RJ081", "warning", 3, 27, "$LC_ALL", "all"}});
  expectBad(called("/bin/echo $LC_ALL") + "$LC_ALL\n");
  expectFixed(called("/usr/bin/printenv LC_ALL") + "C\n");
}

}  // namespace
}  // namespace runlet_test
