#include "tool/check/rules.h"

#include <algorithm>
#include <cstdio>

namespace runlet_tool {
namespace {

constexpr Severity error = Severity::error;
constexpr Severity warning = Severity::warning;
constexpr Severity note = Severity::note;

}  // namespace

const std::vector<Rule>& allRules() {
  static const std::vector<Rule> rules = {
      {RuleId::unreadable, error, "the job file cannot be read",
       "The adapter opens the file that it is given with -j and refuses the request when there is "
       "none, when it is a folder, a device or a pipe, when it may not be read, when it has over "
       "128 MiB, or when it is nested deeper than the stack of the process can bear or has more "
       "attributes or nested elements than the XML library can cope with.\n"
       "Give the path of an XML file that the adapter may read, and take out elements or "
       "attributes that the job does not need."},
      {RuleId::notXml, error, "the file is not well-formed XML",
       "The XML library gives up where an element is not closed, a tag is malformed or the file "
       "is empty, and the adapter refuses the request with the library's own words. The place is "
       "where the library gave up; the mistake may be some way in front of it.\n"
       "In texts write &lt; for <, and &amp; for &."},
      {RuleId::beforeRoot, error, "something stands in front of the root element",
       "The adapter takes the first node of the file for the root, whatever it is. An XML "
       "declaration, a comment, a document type or a text in front of the root element therefore "
       "makes the whole file \"Invalid XML job syntax\".\n"
       "Begin the file with the root element. Comments may stand further inside."},
      {RuleId::cmdDataIsRoot, error, "cmdData is the root element itself",
       "The root element has any name and holds cmdData, which holds the job. With cmdData as the "
       "root there is no cmdData in it.\n"
       "Put one more element around it: <Job><cmdData>...</cmdData></Job>."},
      {RuleId::noCmdData, error, "the root element has no cmdData",
       "All that the adapter reads stands in the element cmdData of the root. The name is compared "
       "letter by letter. A comment or text that is nothing but this name counts as the element if "
       "it comes first, and then the job is empty.\n"
       "Put the job's elements into one <cmdData> in the root element."},
      {RuleId::noTaskList, error, "there is no TaskList",
       "Without a TaskList in cmdData the adapter refuses the file, also when the job has a single "
       "task.\n"
       "Write <TaskList><Task><Params>{...}</Params></Task></TaskList>."},
      {RuleId::noJobParams, error, "there is no JobParams",
       "JobParams is required behind TaskList, also when the job has no parameters.\n"
       "Write <JobParams/> behind </TaskList>."},
      {RuleId::jobParamsBeforeTaskList, error, "JobParams stands in front of TaskList",
       "All other elements of cmdData may stand in any order, but JobParams is looked for behind "
       "TaskList only.\n"
       "Move JobParams behind </TaskList>."},
      {RuleId::repeatedElement, warning, "an element is repeated",
       "Of an element that stands there several times the first one counts, and the others are "
       "passed over without a word. (Of several JobParams it is the first behind TaskList, of "
       "several Values the first behind the Name.)\n"
       "Keep one of them."},
      {RuleId::unknownElement, warning, "an element is passed over",
       "Elements of other names than those of the job format are passed over without a word, and "
       "so "
       "are known ones in the wrong place. Names are compared letter by letter: Umask is not "
       "umask.\n"
       "Correct the name, move the element to where it belongs, or take it out."},
      {RuleId::strayText, warning, "text stands where none is read",
       "Between the elements of cmdData, TaskList, Task, JobParams and Param no text is read.\n"
       "Put the text into the element that it belongs to, or take it out."},
      {RuleId::cutOffText, warning, "the text of an element is cut off",
       "The text of an element is what the element begins with, up to the first comment, CDATA "
       "section or element in it. What follows is dropped, and an element that begins with a "
       "comment or another element has no text at all. For example, <WorkingFolder>/jobs<!-- "
       "local -->/a</WorkingFolder> is the folder /jobs.\n"
       "Move the comment out of the element, and write the text in one piece."},
      {RuleId::takenForElement, warning, "a comment or text is taken for an element",
       "cmdData, Task, JobParams and Param are looked up by their name alone, whatever kind of "
       "node "
       "has it. A comment or text that is nothing but such a name, as <!--JobParams-->, is taken "
       "for "
       "the element; it has no content.\n"
       "Write something more into the comment, as <!-- the JobParams -->."},
      {RuleId::droppedAmpersand, warning, "an & is dropped",
       "An & begins a reference, such as &amp; or &#9;. One that does not is dropped without a "
       "word, and "
       "what follows it stays: a && b arrives as a  b, and &foo; as foo;.\n"
       "Write &amp; for an &."},
      {RuleId::noBraces, error, "a text has no usable braces",
       "The texts of Arguments and Params stand in braces: what counts is between the first { and "
       "the last }. When one of them is missing or nothing stands between them, the adapter "
       "refuses the file with \"Strip brace failed\".\n"
       "Write {the text}. For a task without fields write any text."},
      {RuleId::reversedBraces, error, "the braces of a text are reversed",
       "When the last } of a text stands in front of its first {, the adapter ends abnormally "
       "while it loads the file (an uncaught std::length_error).\n"
       "Write {the text}, with the { first."},
      {RuleId::outsideBraces, warning, "text outside the braces is dropped",
       "Of a text in braces, only what stands between the first { and the last } counts.\n"
       "Put all of the text between the braces."},
      {RuleId::emptyWithoutBraces, warning, "a name or value without braces is empty",
       "A Name or Value without a usable pair of braces is not refused, but counts as an empty "
       "text.\n"
       "Write {the text}; for an empty value write {}."},
      {RuleId::typedTab, warning, "a typed TAB does not separate fields",
       "The fields of a task are separated by TAB, but a TAB that is typed into the file arrives "
       "as "
       "a space: the XML library condenses white space. The two fields then are one.\n"
       "Write &#9; for the TAB between two fields."},
      {RuleId::condensedSpace, warning, "white space is condensed",
       "A run of spaces, TABs and line ends in a text arrives as a single space. The task, the "
       "value or the folder then is not what the file shows.\n"
       "Write &#32; for spaces that are to be kept, &#9; for a TAB and &#10; for a line end, or "
       "put "
       "the whole text into a CDATA section."},
      {RuleId::condensedTemplate, note, "white space in Arguments is condensed",
       "A run of spaces, TABs and line ends in Arguments arrives as a single space. Between words "
       "that makes no difference, so a long command may be written on several lines; inside double "
       "quotes it does.\n"
       "Nothing has to be done if all of it stands between words."},
      {RuleId::emptyNumber, error, "a number or flag is empty",
       "TaskNameIdx, TaskTimeout, uid, gid, umask and redirectStderr may be left out, but not left "
       "empty: the adapter then refuses the file with \"Invalid XML job syntax\".\n"
       "Write a value, or take the element out."},
      {RuleId::rubbishAfterNumber, warning, "something stands behind a number",
       "A number is read up to the first character that is no digit, and the rest is dropped "
       "without a word: 30min is 30, 0x10 is 0, 1e3 is 1.\n"
       "Write the decimal number alone."},
      {RuleId::noDigits, warning, "a number has no digits",
       "A text that does not begin with a number counts as 0.\n"
       "Write a decimal number."},
      {RuleId::beyond32Bits, warning, "a number is beyond 32 bits",
       "Of a number only the low 32 bits are kept, as a signed number: 4294967295 is -1, "
       "4294967296 "
       "is 0. For uid and gid -1 means that none is given.\n"
       "Write a number from -2147483648 to 2147483647."},
      {RuleId::octalMask, warning, "the umask looks octal, but is read as decimal",
       "The file-creation mask is written in decimal. The usual mask 022 is written 18; the text "
       "022 "
       "or 22 is the mask 026. Some usual ones: 002 is 2, 007 is 7, 022 is 18, 027 is 23, 077 is "
       "63.\n"
       "Write the mask in decimal."},
      {RuleId::maskOutOfRange, warning, "the umask is out of range",
       "A file-creation mask has nine bits, 0 to 511; the system drops all others.\n"
       "Write a decimal number from 0 to 511."},
      {RuleId::unclearFlag, warning, "redirectStderr means no",
       "redirectStderr is yes when its text begins with Y, y, T, t or 1, and no for everything "
       "else, "
       "also for \"on\", \"enabled\" or \"2\".\n"
       "Write Yes or No."},
      {RuleId::hiddenRoot, error, "an id means root without being a plain 0",
       "uid and gid are numbers, and 0 is root. A name in their place counts as 0. So does a text "
       "that begins with a 0 and goes on otherwise, such as 0x3e8, a text that is cut off after a "
       "0, a 0 with a second uid or gid after it, and a number whose low 32 bits are 0. The "
       "adapter starts such tasks; this is an error "
       "because it gives them rights of root. Whoever means root writes a plain 0. As a uid that "
       "is a warning (RJ035). As a gid it is not reported: the group alone gives few rights.\n"
       "Write the number of the user (id -u NAME) or of the group (getent group NAME)."},
      {RuleId::rootUser, warning, "the tasks run as root",
       "The uid is 0: the program of every task has all rights on the machine.\n"
       "Write the number of a user without such rights."},
      {RuleId::noGroup, error, "there is no group",
       "A job has to name its group. The adapter never looks one up, not even when it looks up the "
       "user, and refuses every task with \"Cannot set gid -1: No such group\". A gid of -1 (or "
       "4294967295) means the same.\n"
       "Write <gid> with the number of a group."},
      {RuleId::noUser, error, "there is no user",
       "The job has no uid (or -1), and no user name is given with the request (-u). The adapter "
       "refuses every task with \"Missing user name\".\n"
       "Write <uid> with the number of the user, or check with the user name that the server "
       "gives: "
       "-u USER."},
      {RuleId::noTimeLimit, warning, "every running task is over its time limit",
       "TaskTimeout is the limit in minutes. Without it the limit is 0, and a task that has run "
       "for "
       "a millisecond is over it when the server asks (PingTask). A negative limit is over even "
       "earlier.\n"
       "Write a limit, from 1 to 35791 minutes."},
      {RuleId::wrappedTimeLimit, warning, "the time limit wraps around",
       "The limit is counted in milliseconds with 32 bits. Above 35791 minutes it wraps around to "
       "some other limit, which may be short or negative.\n"
       "Write at most 35791 (almost 25 days)."},
      {RuleId::controlCharacter, warning, "a text has a control character",
       "Every byte of a text reaches the program, the log and whoever reads the job as it is. An "
       "escape, a carriage return or a character that changes the direction of writing is not "
       "shown but acted on: a terminal or an editor may hide a part of the command or show it in "
       "another order. TAB and line end do not count as such here. A character that a text "
       "has several times is reported once.\n"
       "Take the character out. A program that needs it can make it itself."},
      {RuleId::taskWithoutText, warning, "a Task without text is no task",
       "A Task without Params, or whose Params is empty, is passed over, and all tasks behind it "
       "move up by one: their numbers, and what %tn gives, are not what the file shows.\n"
       "Write any text into its Params, or take the Task out."},
      {RuleId::noTasks, error, "the job has no tasks",
       "With no task in TaskList every request succeeds and nothing is ever run.\n"
       "Write at least one <Task><Params>{...}</Params></Task>."},
      {RuleId::unpairedParameter, warning, "a parameter's name and value do not pair",
       "Names and values are two lists that are paired by their position. A parameter without a "
       "Value (or with an empty one, or with the Value in front of the Name) adds a name alone, "
       "and "
       "the values behind it move up by one; asking for the last parameter then ends the adapter "
       "abnormally. A parameter with an empty Name adds a value alone.\n"
       "Give every Param a Name and behind it a Value; an empty value is written {}."},
      {RuleId::parameterOfOtherName, warning, "an element is read as a parameter",
       "The first two parameters are found by their name, Param. From there on every following "
       "node "
       "is the next parameter, whatever its name is.\n"
       "Call it Param, or take it out."},
      {RuleId::parameterWithoutName, error, "a parameter has no Name element",
       "A parameter without a Name element makes the adapter refuse the file. From the third "
       "parameter on every node is a parameter, also a comment or a text.\n"
       "Give every Param a Name, and keep comments in front of the first Param."},
      {RuleId::duplicateParameter, warning, "two parameters have the same name",
       "Names are never searched: parameters are known by their number, and both are kept.\n"
       "Give each its own name, or take one out and correct the numbers behind it."},
      {RuleId::unusedParameter, note, "a parameter is never used",
       "No %jp of the template asks for this parameter. It may be there for people to read.\n"
       "Nothing has to be done, unless the template was meant to use it."},
      {RuleId::longEntry, warning, "a task's fields or a value are too long",
       "Of a task's fields, all together, and of a parameter's value the first 2000 bytes count; "
       "the "
       "rest is dropped without a word.\n"
       "Keep them below 2000 bytes, for example by giving the program a file to read."},
      {RuleId::malformedPlaceholder, error, "a placeholder is malformed",
       "A %t has to be followed by n or p, and a %j by p. Otherwise the expansion fails, with "
       "\"Process fill-in for arguments failed\", and no task is started.\n"
       "Write %tn for the task's number, %tp2 for its field 2, %jp1 for parameter 1, and %% for a "
       "percent sign."},
      {RuleId::undefinedValue, warning, "a placeholder gives \"Undefined\"",
       "A field or parameter that does not exist is not refused: the program gets the text "
       "Undefined. Numbers begin with 1; %tp and %jp without a number ask for number 0. An empty "
       "last "
       "field of a task does not exist either.\n"
       "Correct the number, or give the task the field."},
      {RuleId::missingValue, error, "a parameter has a name but no value",
       "There are more names than values, and this parameter's number is beyond the values. The "
       "adapter ends abnormally when a task asks for it (an uncaught std::out_of_range).\n"
       "Give every parameter a Value behind its Name; an empty one is written {}."},
      {RuleId::carriedWidth, warning, "a width takes in digits of an earlier number",
       "All numbers of an expansion are read into the same place, and a width does not end what is "
       "left there: the digits right behind its own count as well. After %4tn (which leaves 0003) "
       "a "
       "%2tn is 2003 wide, after %tp12 a %3tn is 32 wide.\n"
       "Give only the first number of a command line a width, and write the zeros of the others "
       "into the "
       "fields of the tasks."},
      {RuleId::cutTaskNumber, warning, "a task number is cut",
       "The number of a task is printed into 31 characters. A greater width leaves zeros alone and "
       "loses the digits of the number itself, so all tasks get the same text.\n"
       "Write a width of at most 31."},
      {RuleId::droppedPercent, warning, "a percent sign is dropped",
       "A % that does not begin a placeholder is dropped, with the digits behind it.\n"
       "Write %% for a percent sign."},
      {RuleId::longExpansion, error, "the expanded command line is too long",
       "An expansion may be 3999 bytes long. Beyond that it fails with \"Process fill-in for "
       "arguments failed\", and the task is not started.\n"
       "Shorten the template or the values, for example by giving the program a file to read."},
      {RuleId::longDigits, warning, "a number of a placeholder has too many digits",
       "Of a run of digits in a placeholder the first 31 count.\n"
       "Write the number without so many digits."},
      {RuleId::placeholderBeyond32Bits, warning, "a number of a placeholder is beyond 32 bits",
       "Of a width or number only the low 32 bits are kept, as a signed number: %4294967297tn is "
       "one "
       "wide, %tp4294967297 is field 1.\n"
       "Write the number that is meant."},
      {RuleId::tasksNotChecked, warning, "not all tasks were looked at",
       "What the tasks of a small file come to can be very much more than the file: a long "
       "template for each of many tasks, or many placeholders that each look up a field of a long "
       "entry. Beyond an amount of work that grows with the file, far above that of a usual job, "
       "the tasks that are left are not looked at. They may have errors that are not reported, so "
       "run and submit refuse the job unless -s or -n names tasks; those are then looked at.\n"
       "Shorten the template, or look at all tasks, however long it takes, with check --all."},
      {RuleId::openQuote, warning, "a quote is not closed",
       "A word that begins with a double quote runs to the next one. When there is none, the word "
       "is "
       "dropped, with all that follows it.\n"
       "Close the quote. There is no way to put a double quote at the beginning of a word."},
      {RuleId::quoteInWord, warning, "a double quote inside a word is an ordinary character",
       "Only a double quote at the beginning of a word opens a quoted word. In --name=\"a b\" it "
       "is "
       "part of the text, and the space still separates: the program gets --name=\"a and b\".\n"
       "Put the quotes around the whole word: \"--name=a b\"."},
      {RuleId::afterQuote, warning, "text right behind a closing quote begins a new word",
       "A closing quote ends its word. What follows without a space is the next word: \"a b\"c is "
       "two "
       "arguments.\n"
       "Put the quotes around the whole word: \"a bc\"."},
      {RuleId::whiteSpaceInWord, warning, "white space other than a space does not separate words",
       "Words of the command line are separated by spaces alone. A TAB or a line end that a value "
       "brings in is an ordinary character of a word.\n"
       "Write a space, or put the word into double quotes if it is meant."},
      {RuleId::emptyCommand, error, "there is no command",
       "The command line has no word, or its first word is empty, so that there is no program to "
       "start: the child reports \"No such file or directory\" and ends with -127, which does not "
       "make the request fail.\n"
       "Write the program and its arguments into Arguments: {/bin/echo hello}."},
      {RuleId::noSpace, error, "with an application path, a lone word ends the adapter",
       "With an application path (-a) the command has to hold at least one space, that is, at "
       "least "
       "one argument. Otherwise the adapter ends abnormally (an uncaught std::out_of_range).\n"
       "Give the program an argument, or a space at the end that is kept: &#32;."},
      {RuleId::shellInChmod, error, "a shell reads the path that is made executable",
       "With an application path (-a) the adapter has a shell run /bin/chmod 755 on the program's "
       "path, without quoting it and with the rights that the adapter was started with, as a rule "
       "root's. Spaces make several files of the path, and characters such as ; $ ` & | make "
       "commands "
       "of it, run as root. The task itself may start all the same.\n"
       "Use paths of letters, digits and the characters _ @ % + = : , . / - only."},
      {RuleId::folderBeforePath, warning, "the application's folder is put in front of a full path",
       "With an application path (-a) its folder is put in front of the command, also when that "
       "begins with a / already: with -a /opt/tool/app the command /bin/echo is "
       "/opt/tool//bin/echo.\n"
       "Write the program's name without its folder."},
      {RuleId::relativeFolder, error, "a relative run folder is found for the first task only",
       "The adapter enters the run folder for every task, and stays in it. A relative folder is "
       "then "
       "looked for inside itself, and the second task of a request is refused.\n"
       "Write the full path of the folder; without WorkingFolder, give the job file by its full "
       "path, as the server does."},
      {RuleId::bareJobFile, error, "the run folder is no folder",
       "Without WorkingFolder the run folder is the path of the job file up to its last /. A job "
       "file "
       "named without a folder is taken for the folder itself, and one in the root folder gives an "
       "empty name: neither can be entered.\n"
       "Give the job file by its full path, as the server does, or write WorkingFolder."},
      {RuleId::startDependentFolder, warning,
       "where the task runs depends on where the adapter is started",
       "The run folder is not a full path, so it is looked for in the folder that the adapter "
       "happens "
       "to be started in.\n"
       "Write the full path of the folder; without WorkingFolder, give the job file by its full "
       "path, as the server does."},
      {RuleId::shellSyntax, warning, "shell syntax is not interpreted",
       "No shell is involved in starting a task: pipes, redirections, &&, $VARIABLES, backquotes, "
       "single quotes and ~ reach the program as they stand.\n"
       "Let a shell run it: /bin/sh -c \"...\", without double quotes inside, or write a script."},
      {RuleId::missingFolder, error, "the run folder is not there",
       "On this machine there is no such folder, and the adapter refuses every task.\n"
       "Make the folder, correct WorkingFolder, or check on the machine that runs the job."},
      {RuleId::folderClosedToLaterTasks, error, "the user may not enter the run folder",
       "The first task's folder is entered with the rights that the adapter was started with, but "
       "from then on the adapter is the job's user. The second task of a request is refused.\n"
       "Let the user search the folder and all folders above it (chmod o+x, or its group)."},
      {RuleId::folderClosedToTask, warning, "the task runs in a folder that its user may not enter",
       "The folder is entered with the rights that the adapter was started with. The program then "
       "stands in a folder in which it can open nothing.\n"
       "Let the user search the folder and all folders above it (chmod o+x, or its group)."},
      {RuleId::noProgram, error, "the program cannot be executed",
       "On this machine the program is not there, not to be found along PATH, or not executable "
       "for "
       "the job's user. The child reports it and ends with -127, which does not make the request "
       "fail. PATH is that of the adapter, and may differ from the one of this check.\n"
       "Write the full path of the program, and make it executable."},
      {RuleId::noInterpreter, error, "the interpreter of a script is not there",
       "The first line of a script, #!, names the program that runs it. When that is missing, the "
       "script cannot be executed, and the message says \"No such file or directory\" of the "
       "script "
       "itself. A line that ends in a carriage return, from another system's editor, names an "
       "interpreter with that character in its name.\n"
       "Correct the first line; take carriage returns out (sed -i 's/\\r$//')."},
      {RuleId::noInterpreterLine, warning, "a script without an interpreter line is run by /bin/sh",
       "The program is a file that the system cannot execute by itself. It is handed to /bin/sh, "
       "which may not be the shell that it was written for.\n"
       "Write an interpreter line, such as #!/bin/bash, first."},
      {RuleId::unknownUser, error, "the user is not known",
       "The job has no uid, and the user database of this machine does not know the name given "
       "with "
       "-u. The adapter refuses every task.\n"
       "Correct the name, or write <uid>."},
      {RuleId::uidWithoutAccount, warning, "no account has this uid",
       "The user database of this machine knows no account with the job's uid. The task runs all "
       "the "
       "same, without a home folder or a name, which some programs do not bear.\n"
       "Correct the uid, or check on the machine that runs the job."},
      {RuleId::gidWithoutGroup, warning, "no group has this gid",
       "The group database of this machine knows no group with the job's gid. The task runs all "
       "the "
       "same.\n"
       "Correct the gid, or check on the machine that runs the job."},
      {RuleId::groupsNotKept, note, "the task does not have all groups of its user",
       "Supplementary groups are left as they are: the task has the job's gid and the groups that "
       "the adapter was started with, not those of its user. (This compares with the groups that "
       "check itself runs with.) Files that the user reaches through another group are out of "
       "reach.\n"
       "Make the group that is needed the job's gid."},
  };
  return rules;
}

const Rule& ruleOf(RuleId id) {
  const std::vector<Rule>& rules = allRules();
  return *std::lower_bound(rules.begin(), rules.end(), id,
                           [](const Rule& rule, RuleId wanted) { return rule.id < wanted; });
}

bool isOfDanger(RuleId id) {
  return id == RuleId::hiddenRoot || id == RuleId::shellInChmod;
}

const Rule* findRule(std::string_view code) {
  for (const Rule& rule : allRules()) {
    if (codeOf(rule) == code) return &rule;
  }
  return nullptr;
}

std::string codeOf(const Rule& rule) {
  char code[8];
  std::snprintf(code, sizeof code, "RJ%03d", static_cast<int>(rule.id) % 1000);
  return code;
}

const char* nameOf(Severity severity) {
  constexpr const char* names[] = {"error", "warning", "note"};
  return names[static_cast<std::size_t>(severity)];
}

}  // namespace runlet_tool
