// Options that several verbs have.
#pragma once

#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/job/range.h"

namespace CLI {
class App;
}

namespace runlet_tool {

// For numbers on the command line: `text` without the zeros before its number, for a conversion
// that would take it for octal or hexadecimal then. Names of logs have such zeros, and the adapter
// reads decimal. What is no decimal number is not made one.
std::string inDecimal(const std::string& text);

// Adds -s and -n to `verb`.
void addRangeOptions(CLI::App* verb, RangeOptions* options);

// Adds -a to `verb`.
void addApplication(CLI::App* verb, std::string* appPath);

// Adds JOB, -s, -n and -a to `verb`.
void addBatchOptions(CLI::App* verb, BatchOptions* options);

// Adds --keep-env to `verb`: names of variables that tasks of another user get, too. `help` is its
// line in the help.
void addKeptVariables(CLI::App* verb, const std::string& help, std::vector<std::string>* names);

}  // namespace runlet_tool
