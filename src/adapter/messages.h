// Every text that the adapter writes: formats and fixed texts, and the numbered texts of the
// command-line tool. A whole message ends with a newline unless noted otherwise; the numbered texts
// and the reasons are parts of messages.
#pragma once

#include <cstdint>

namespace runlet {

// Of the command-line parser and of main.
inline constexpr char noOpcodeText[] = "Runlet adapter: No opcode at all.\n";
inline constexpr char notParsedText[] = "Runlet adapter: Parse arguments failed.\n";

// Of the dispatcher. The reply to `GetInfo` takes the name, the version and the description.
inline constexpr char adapterInfoFormat[] =
    "<AdapterInfo>\n\t<Name>%s</Name>\n\t<Version>%d</Version>\n"
    "\t<Description>%s</Description>\n</AdapterInfo>\n";
inline constexpr char timeOutText[] = "Runlet adapter: Ping task time out.\n";

// Of the loader. The first takes the job file and the reason.
inline constexpr char notLoadedFormat[] =
    "Runlet adapter: Could not load parameter file %s. Error='%s'.Exiting.\n";
inline constexpr char invalidSyntaxText[] = "Runlet adapter: Invalid XML job syntax.\n";
inline constexpr char stripBraceFailedText[] = "Runlet adapter: Strip brace failed.\n";

// Of the launcher, in the order of its steps. The first takes message `workingFolderMessage`, the
// run folder and the reason, and has no newline.
inline constexpr char folderRefusedFormat[] = "Runlet adapter: %s'%s': %s";
inline constexpr char fillInFailedText[] =
    "Runlet adapter: Process fill-in for arguments failed.\n";
inline constexpr char callingFormat[] = "Calling '%s' from '%s'\n";  // command line, run folder
inline constexpr char startedFormat[] = "[ServerMessage]ProcessStarted processId=%i\n";
inline constexpr char forkFailedText[] = "Runlet adapter: Cannot start a new child process\n";
inline constexpr char waitFailedFormat[] = "Wait Error:%s\n";
inline constexpr char exitCodeFormat[] =
    "Runlet adapter: Process exit abnormally,Exit code is %d\n";
// After a failed fork: `cannotStartMessage` and the command line, then `checkExecutableMessage`.
inline constexpr char cannotStartFormat[] = "%s %s\n";
inline constexpr char checkExecutableFormat[] = "%s\n";

// About the user's rights, with reasons for when the system gives none. They have no newline.
inline constexpr char groupRefusedFormat[] = "Cannot set gid %d: %s";
inline constexpr char userRefusedFormat[] = "Cannot set uid %d: %s";
inline constexpr char missingUserText[] = "Missing user name";
inline constexpr char unknownUserFormat[] = "Cannot obtain info for user %s:%s";
inline constexpr char noGroupReason[] = "No such group";
inline constexpr char noUserReason[] = "No such user";

// Of the child: takes the command line and the reason.
inline constexpr char cannotExecuteFormat[] = "Runlet adapter: Cannot execute command:'%s':%s\n";

// Numbers of the texts that the launcher writes. The rest of the table is never printed but keeps
// its numbers.
inline constexpr std::int32_t cannotStartMessage = 7;
inline constexpr std::int32_t checkExecutableMessage = 8;
inline constexpr std::int32_t workingFolderMessage = 24;

inline constexpr std::int32_t messageCount = 25;

// NUL-terminated texts that live for the whole run.
extern const char* const messageTable[messageCount];

// The text with number `index`, which is not checked and must be in 0 .. 24.
const char* getMessage(std::int32_t index);

}  // namespace runlet
