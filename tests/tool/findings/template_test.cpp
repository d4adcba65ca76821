// Findings about the template of a job's command line.

#include "findings.h"

namespace runlet_test {
namespace {

constexpr char fillInFailed[] = "Runlet adapter: Process fill-in for arguments failed.\n";

class TemplateFindings : public Findings {
 protected:
  void expectEchoed(const std::string& ofBad, const std::string& ofFixed) {
    expectBad(called("/bin/echo " + ofBad) + ofBad + "\n");
    expectFixedEchoed(ofFixed);
  }

  void expectFixedEchoed(const std::string& words) {
    expectFixed(called("/bin/echo " + words) + words + "\n");
  }
};

TEST_F(TemplateFindings, RJ060MalformedPlaceholder) {
  expectFound({{"RJ060", "error", 3, 27, "%tx", "all"}});
  expectBadRefused(fillInFailed);
  expectFixedEchoed("1");
}

TEST_F(TemplateFindings, RJ061PlaceholderGivesUndefined) {
  expectFound({{"RJ061", "warning", 3, 27, "%tp2", "all"}});
  expectEchoed("Undefined", "dawn");
}

TEST_F(TemplateFindings, RJ062ParameterNumberBeyondTheValues) {
  expectFound(
      {{"RJ062", "error", 3, 27, "%jp1", "all"}, {"RJ052", "warning", 12, 7, "<Param>", ""}});
  expectBad("",
            terminateText("std::out_of_range",
                          "vector::_M_range_check: __n (which is 0) >= this->size() (which is 0)"),
            "signal 6");
  expectFixedEchoed("harbour");
}

// The width is read as 41, from the 4 and the 1 of 01, and the field is padded to 41 characters.
TEST_F(TemplateFindings, RJ063WidthTakesInEarlierDigits) {
  expectFound({{"RJ063", "warning", 3, 32, "%4tp1", "all"}});
  expectOutputContains("it is 41 ");
  expectEchoed("01 " + std::string(40, '0') + "7", "01 7");
}

TEST_F(TemplateFindings, RJ064TaskNumberTooWide) {
  expectFound({{"RJ064", "warning", 3, 27, "%32tn", "all"}});
  expectOutputContains("width of 32");
  expectEchoed(std::string(31, '0'), "0001");
}

TEST_F(TemplateFindings, RJ065PercentSignDropped) {
  expectFound({{"RJ065", "warning", 3, 29, "%", "all"}});
  expectEchoed("50 of dawn", "50% of dawn");
}

TEST_F(TemplateFindings, RJ066ExpansionTooLong) {
  expectFound({{"RJ066", "error", 3, 17, "", "all"}});
  expectBadRefused(fillInFailed);
  expectFixedEchoed("0007");
}

// The significant digit is the 32nd.
TEST_F(TemplateFindings, RJ067TooManyDigits) {
  expectFound({{"RJ067", "warning", 3, 27, "%" + std::string(31, '0') + "4tp1", "all"}});
  expectEchoed("7", "0007");
}

TEST_F(TemplateFindings, RJ068NumberBeyond32Bits) {
  expectFound({{"RJ068", "warning", 3, 27, "%tp4294967297", "all"}});
  expectOutputContains("value is 1.");
  expectEchoed("dawn", "dawn");
}

}  // namespace
}  // namespace runlet_test
