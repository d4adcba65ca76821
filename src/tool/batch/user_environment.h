// The environment of tasks that root starts for another user.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace runlet_tool {

// Adds --keep-env to `verb`: names of variables that such tasks get, too. `help` is its line in the
// help.
void addKeptVariables(CLI::App* verb, const std::string& help, std::vector<std::string>* names);

// What is wrong with the name of a variable; empty if nothing is.
std::string complaintAboutVariable(const std::string& name);

// The variables, each as "NAME=VALUE", in order. Of this process's own these are PATH, LANG,
// LANGUAGE, those that begin with LC_ or with one of `more`, and those in `kept`. HOME, LOGNAME,
// SHELL and USER are the user's, unless they are in `kept` and there is one. A user whom the user
// database does not know is named by the number, is at home in "/" and has the shell /bin/sh.
std::vector<std::string> userEnvironment(uid_t uid, const std::vector<std::string>& kept,
                                         const std::vector<std::string_view>& more = {});

}  // namespace runlet_tool
