// Gives the adapter and the model the same input. If the results differ, the failure shows both and
// the whole input.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "adapter/context.h"
#include "model.h"

namespace runlet_model {

// The same lists for both.
struct Job {
  explicit Job(const Lists& listsOfJob);

  Lists lists;
  runlet::AdapterContext context;
};

testing::AssertionResult sameExpansion(const Job& job, const std::string& pattern,
                                       std::int32_t taskIndex);
testing::AssertionResult sameTaskField(const Job& job, std::int32_t taskIndex,
                                       std::int32_t fieldNumber);
testing::AssertionResult sameJobParam(const Job& job, std::int32_t paramNumber);

// Both forms of it.
testing::AssertionResult sameStrippedText(const std::string& text);

testing::AssertionResult sameWords(const std::string& line);
testing::AssertionResult sameNumber(const std::string& text);

}  // namespace runlet_model
