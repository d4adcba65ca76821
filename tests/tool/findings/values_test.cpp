// Findings about the values of a job's elements.

#include <unistd.h>

#include "findings.h"

namespace runlet_test {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";
constexpr char stripBraceFailed[] = "Runlet adapter: Strip brace failed.\n";

class ValueFindings : public Findings {
 protected:
  // Asserts the masks of the tasks, in octal.
  void expectMasks(const std::string& ofBad, const std::string& ofFixed) {
    const std::string lines = called("/bin/sh -c umask");
    expectBad(lines + ofBad + "\n");
    expectFixed(lines + ofFixed + "\n");
  }

  void expectEchoed(const std::string& ofBad, const std::string& ofFixed) {
    expectBad(called("/bin/echo " + ofBad) + ofBad + "\n");
    expectFixed(called("/bin/echo " + ofFixed) + ofFixed + "\n");
  }

  // The same with the words in quotes.
  void expectQuoted(const std::string& ofBad, const std::string& ofFixed) {
    expectBad(called("/bin/echo \"" + ofBad + "\"") + ofBad + "\n");
    expectFixed(called("/bin/echo \"" + ofFixed + "\"") + ofFixed + "\n");
  }
};

TEST_F(ValueFindings, RJ020NoUsableBraces) {
  badTasks_ = 0;
  expectFound({{"RJ020", "error", 3, 16, "/bin/echo %tn", ""}});
  expectBadRefused(stripBraceFailed);
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ021BracesReversed) {
  badTasks_ = 0;
  expectFound({{"RJ021", "error", 3, 16, "}/bin/echo %tn{", ""}});
  expectBad("", terminateText("std::length_error", "basic_string::_M_replace"), "signal 6");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ022TextOutsideTheBraces) {
  expectFound({{"RJ022", "warning", 3, 28, "%tn", ""}});
  expectBad(called("/bin/echo") + "\n");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ023ValueWithoutBracesIsEmpty) {
  expectFound({{"RJ023", "warning", 12, 41, "harbour", ""}});
  expectEchoed("[]", "[harbour]");
}

TEST_F(ValueFindings, RJ024TabArrivesAsASpace) {
  expectFound({{"RJ024", "warning", 9, 26, "<TAB>", "all"}});
  expectEchoed("[dawn 12]", "[dawn]");
}

TEST_F(ValueFindings, RJ025WhiteSpaceCondensed) {
  expectFound({{"RJ025", "warning", 9, 26, "<space><space>", "all"}});
  expectQuoted("dawn light", "dawn  light");
}

TEST_F(ValueFindings, RJ026WhiteSpaceCondensedInArguments) {
  expectFound({{"RJ026", "note", 3, 32, "<space><space>", ""}});
  expectQuoted("dawn 1", "dawn  1");
}

TEST_F(ValueFindings, RJ027EmptyNumber) {
  badTasks_ = 0;
  expectFound({{"RJ027", "error", 7, 5, "<umask>", ""}});
  expectBadRefused(invalidSyntax);
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ028RubbishAfterANumber) {
  expectFound({{"RJ028", "warning", 4, 19, ".5", ""}});
  expectOutputContains("value is 1.");
  expectInTime(bad, 60000);
  expectTimeOut(bad, 60001);
  expectInTime(fixed, 90000);
}

TEST_F(ValueFindings, RJ029NumberWithoutDigitsIsZero) {
  expectFound({{"RJ029", "warning", 7, 12, "none", ""}});
  expectMasks("0000", "0022");
}

TEST_F(ValueFindings, RJ030NumberBeyond32Bits) {
  expectFound({{"RJ030", "warning", 4, 18, "4294967297", ""}});
  expectOutputContains("value is 1.");
  expectInTime(bad, 60000);
  expectTimeOut(bad, 60001);
  expectInTime(fixed, 60001);
}

TEST_F(ValueFindings, RJ031UmaskLooksOctal) {
  expectFound({{"RJ031", "warning", 7, 12, "022", ""}});
  expectOutputContains("octal 026");
  expectOutputContains("Write 18 ");
  expectMasks("0026", "0022");
}

TEST_F(ValueFindings, RJ032UmaskOutOfRange) {
  expectFound({{"RJ032", "warning", 7, 12, "530", ""}});
  expectOutputContains("octal 022");
  expectMasks("0022", "0022");
}

TEST_F(ValueFindings, RJ033FlagThatMeansNo) {
  expectFound({{"RJ033", "warning", 4, 21, "enable", ""}});
  const std::string lines = called("/bin/cat /nowhere");
  const std::string message = errorOf({"/bin/cat", "/nowhere"});
  expectBad(lines, message + exitCodeLine(1));
  expectFixed(lines + message, exitCodeLine(1));
}

TEST_F(ValueFindings, RJ034IdWithoutDigitsIsRoots) {
  expectFound({{"RJ034", "error", 6, 10, "artists", ""}});
  unprivileged_ = true;
  expectBad(calling("/bin/echo 1", folder()), "Cannot set gid 0: Operation not permitted",
            "exit 255");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ035TasksRunAsRoot) {
  expectFound({{"RJ035", "warning", 5, 10, "0", ""}});
  REQUIRE_ROOT();
  expectBad(called("/usr/bin/id -u") + "0\n");
  expectFixed(called("/usr/bin/id -u") + std::to_string(otherId) + "\n");
}

TEST_F(ValueFindings, RJ036NoGroup) {
  expectFound({{"RJ036", "error", 2, 3, "", ""}});
  expectBad(calling("/bin/echo 1", folder()), "Cannot set gid -1: No such group", "exit 255");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ037NoUser) {
  expectFound({{"RJ037", "error", 2, 3, "", ""}});
  expectBad(calling("/bin/echo 1", folder()), "Missing user name", "exit 255");
  expectFixed(called("/bin/echo 1") + "1\n");
}

TEST_F(ValueFindings, RJ038NoTimeLimit) {
  expectFound({{"RJ038", "warning", 2, 3, "", ""}});
  expectInTime(bad, 0);
  expectTimeOut(bad, 1);
  expectInTime(fixed, 1800000);
}

// 71583 minutes are 12704 milliseconds more than 2^32.
TEST_F(ValueFindings, RJ039TimeLimitWraps) {
  expectFound({{"RJ039", "warning", 4, 18, "71583", ""}});
  expectOutputContains("12704 milliseconds");
  expectInTime(bad, 12704);
  expectTimeOut(bad, 12705);
  expectInTime(fixed, 12705);
}

TEST_F(ValueFindings, RJ040ControlCharacter) {
  expectFound({{"RJ040", "warning", 3, 31, "\x1b", ""}});
  expectEchoed("1 \x1b[8m", "1 [8m");
}

}  // namespace
}  // namespace runlet_test
