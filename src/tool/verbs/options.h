// Options shared by several verbs.
#pragma once

#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/batch/batch.h"
#include "tool/job/range.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace runlet_tool {

// For numbers on the command line: removes leading zeros, since CLI11 would read the number as
// octal or hexadecimal. Names of logs have such zeros, and the adapter reads decimal. Text that is
// not a decimal number does not become one.
std::string inDecimal(const std::string& text);

// Adds -s and -n to `verb`.
void addRangeOptions(CLI::App* verb, RangeOptions* options);

// Adds -a to `verb`.
void addApplication(CLI::App* verb, std::string* appPath);

// Adds JOB, -s, -n and -a to `verb`.
void addBatchOptions(CLI::App* verb, BatchOptions* options);

// Adds --keep-env to `verb`, which stores names of environment variables in `*names`. `help`
// describes it.
void addKeptVariables(CLI::App* verb, const std::string& help, std::vector<std::string>* names);

// Adds --expect to `verb`, whose results are to be taken unconverted. `help` describes it.
CLI::Option* addExpected(CLI::App* verb, const std::string& help);

// Reports the patterns for --expect that cannot be filled in on standard error. True if there are
// none.
bool areFit(const std::vector<std::string>& patterns, const char* verb,
            const runlet::AdapterContext& context);

}  // namespace runlet_tool
