// Findings about the structure of a job file.

#include "findings.h"

namespace runlet_test {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";

class StructureFindings : public Findings {
 protected:
  // Asserts that the job file is refused with `error`, before any task has been read.
  void expectRefused(const std::vector<Found>& findings, const std::string& error = invalidSyntax) {
    badTasks_ = 0;
    expectRefusedAfterTasks(findings, error);
  }

  // The same after its tasks have been read.
  void expectRefusedAfterTasks(const std::vector<Found>& findings,
                               const std::string& error = invalidSyntax) {
    expectFound(findings);
    expectBadRefused(error);
    expectFixed(called("/bin/echo 1") + "1\n");
  }

  std::string couldNotLoad(const std::string& reason) const {
    return "Runlet adapter: Could not load parameter file " + folder_.file("bad.xml") +
           ". Error='" + reason + "'.Exiting.\n";
  }
};

// The bad file does not exist.
TEST_F(StructureFindings, RJ001FileCannotBeRead) {
  expectRefused({{"RJ001", "error", 0, 0, "", ""}}, couldNotLoad("Failed to open file"));
}

TEST_F(StructureFindings, RJ002NotWellFormed) {
  expectRefused({{"RJ002", "error", 7, 14, "", ""}}, couldNotLoad("Error reading end tag."));
}

TEST_F(StructureFindings, RJ003SomethingBeforeTheRoot) {
  expectRefused({{"RJ003", "error", 1, 1, "<?xml version=\"1.0\"?>", ""}});
}

TEST_F(StructureFindings, RJ004CmdDataIsTheRoot) {
  expectRefused({{"RJ004", "error", 1, 1, "<cmdData>", ""}});
}

TEST_F(StructureFindings, RJ005NoCmdData) {
  expectRefused({{"RJ005", "error", 1, 1, "<Job>", ""}});
}

TEST_F(StructureFindings, RJ006NoTaskList) {
  expectRefused({{"RJ006", "error", 2, 3, "", ""}});
}

TEST_F(StructureFindings, RJ007NoJobParams) {
  expectRefusedAfterTasks({{"RJ007", "error", 2, 3, "", ""}});
}

TEST_F(StructureFindings, RJ008JobParamsBeforeTaskList) {
  expectRefusedAfterTasks({{"RJ008", "error", 8, 5, "<JobParams>", ""}});
}

TEST_F(StructureFindings, RJ009RepeatedElement) {
  expectFound({{"RJ009", "warning", 12, 5, "<umask>", ""}});
  expectBad(called("/bin/sh -c umask") + "0022\n");
  expectFixed(called("/bin/sh -c umask") + "0077\n");
}

TEST_F(StructureFindings, RJ010UnknownElement) {
  expectFound({{"RJ010", "warning", 4, 5, "<workingFolder>", ""}});
  expectOutputContains("<WorkingFolder>");
  expectBad(called("/bin/pwd") + folder() + "\n");
  runFolder_ = "/tmp";
  expectFixed(called("/bin/pwd") + "/tmp\n");
}

TEST_F(StructureFindings, RJ011TextWhereNoneIsRead) {
  expectFound({{"RJ011", "warning", 9, 36, "{dusk}", ""}});
  expectBad(called("/bin/echo dawn") + "dawn\n");
  expectFixed(called("/bin/echo dawn") + called("/bin/echo dusk") + "dawn\ndusk\n");
}

TEST_F(StructureFindings, RJ012TextCutOffAtAComment) {
  expectFound({{"RJ012", "warning", 4, 21, "<!-- scratch -->", ""}});
  runFolder_ = "/";
  expectBad(called("/bin/pwd") + "/\n");
  runFolder_ = "/tmp";
  expectFixed(called("/bin/pwd") + "/tmp\n");
}

// It hides the element after it.
TEST_F(StructureFindings, RJ013CommentTakenForAnElement) {
  expectFound({{"RJ061", "warning", 3, 27, "%jp1", "all"},
               {"RJ013", "warning", 11, 5, "<!--JobParams-->", ""}});
  expectBad(called("/bin/echo Undefined") + "Undefined\n");
  expectFixed(called("/bin/echo harbour") + "harbour\n");
}

TEST_F(StructureFindings, RJ014AmpersandIsDropped) {
  expectFound({{"RJ014", "warning", 3, 31, "&", ""}});
  expectBad(called("/bin/echo dawndusk dawn") + "dawndusk dawn\n");
  expectFixed(called("/bin/echo dawn&dusk dawn") + "dawn&dusk dawn\n");
}

}  // namespace
}  // namespace runlet_test
