// Findings about the tasks and parameters of a job.

#include "findings.h"

namespace runlet_test {
namespace {

class ListFindings : public Findings {
 protected:
  // The job has one task, which echoes its arguments.
  void expectEchoed(const std::string& ofBad, const std::string& ofFixed) {
    expectBad(called("/bin/echo " + ofBad) + ofBad + "\n");
    expectFixed(called("/bin/echo " + ofFixed) + ofFixed + "\n");
  }
};

TEST_F(ListFindings, RJ050TaskWithoutText) {
  expectFound({{"RJ050", "warning", 9, 7, "<Task>", ""}});
  expectBad(called("/bin/echo 1 dusk") + "1 dusk\n");
  expectFixed(called("/bin/echo 1 dawn") + called("/bin/echo 2 dusk") + "1 dawn\n2 dusk\n");
}

TEST_F(ListFindings, RJ051NoTasks) {
  expectFound({{"RJ051", "error", 8, 5, "<TaskList>", ""}});
  expectBad("");
  expectFixed(called("/bin/echo 1") + "1\n");
}

// The only value becomes the first.
TEST_F(ListFindings, RJ052ParameterWithoutAValue) {
  expectFound(
      {{"RJ062", "error", 3, 32, "%jp2", "all"}, {"RJ052", "warning", 12, 7, "<Param>", ""}});
  expectBad("",
            terminateText("std::out_of_range",
                          "vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)"),
            "signal 6");
  expectFixed(called("/bin/echo harbour misty") + "harbour misty\n");
}

TEST_F(ListFindings, RJ053ElementReadAsAParameter) {
  expectFound({{"RJ053", "warning", 14, 7, "<Extra>", ""}});
  expectEchoed("harbour misty wide", "harbour misty wide");
}

TEST_F(ListFindings, RJ054ParameterWithoutAName) {
  expectFound({{"RJ054", "error", 14, 7, "<!-- the end -->", ""}});
  expectBadRefused("Runlet adapter: Invalid XML job syntax.\n");
  expectFixed(called("/bin/echo harbour misty") + "harbour misty\n");
}

// Only their numbers distinguish them.
TEST_F(ListFindings, RJ055TwoParametersOfOneName) {
  expectFound({{"RJ055", "warning", 13, 21, "scene", ""}});
  expectEchoed("harbour misty", "harbour misty");
}

TEST_F(ListFindings, RJ056ParameterNeverUsed) {
  expectFound({{"RJ056", "note", 12, 21, "scene", ""}});
  expectEchoed("1", "1 harbour");
}

TEST_F(ListFindings, RJ057EntryCut) {
  expectFound({{"RJ057", "warning", 9, 21, "2001 bytes", "all"}});
  expectEchoed(std::string(2000, 'x'), std::string(1998, 'x') + "z");
}

}  // namespace
}  // namespace runlet_test
