// Every text that the adapter writes: formats and fixed texts, and the numbered ones of the
// command-line tool. A format or text of a whole message ends its line, unless it is said here that
// it does not; the numbered texts and the reasons are parts of messages.
#pragma once

#include <cstdint>

namespace runlet {

// The parser's and the entry's.
inline constexpr char noOpcodeText[] = "Runlet adapter: No opcode at all.\n";
inline constexpr char notParsedText[] = "Runlet adapter: Parse arguments failed.\n";

// The dispatcher's. The reply to `GetInfo` has the name, the version and the description.
inline constexpr char adapterInfoFormat[] =
    "<AdapterInfo>\n\t<Name>%s</Name>\n\t<Version>%d</Version>\n"
    "\t<Description>%s</Description>\n</AdapterInfo>\n";
inline constexpr char timeOutText[] = "Runlet adapter: Ping task time out.\n";

// The loader's. The first has the job file and the reason.
inline constexpr char notLoadedFormat[] =
    "Runlet adapter: Could not load parameter file %s. Error='%s'.Exiting.\n";
inline constexpr char invalidSyntaxText[] = "Runlet adapter: Invalid XML job syntax.\n";
inline constexpr char stripBraceFailedText[] = "Runlet adapter: Strip brace failed.\n";

// The launcher's, in the order of its steps. The first has message `workingFolderMessage`, the run
// folder and the reason; it does not end its line.
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

// Those about the user's rights, with the reasons where the system gives none. They do not end
// their line.
inline constexpr char groupRefusedFormat[] = "Cannot set gid %d: %s";
inline constexpr char userRefusedFormat[] = "Cannot set uid %d: %s";
inline constexpr char missingUserText[] = "Missing user name";
inline constexpr char unknownUserFormat[] = "Cannot obtain info for user %s:%s";
inline constexpr char noGroupReason[] = "No such group";
inline constexpr char noUserReason[] = "No such user";

// The child's: the command line and the reason.
inline constexpr char cannotExecuteFormat[] = "Runlet adapter: Cannot execute command:'%s':%s\n";

// Numbers of the texts that the launcher writes. The rest of the table is never printed but keeps
// its numbers.
inline constexpr std::int32_t cannotStartMessage = 7;
inline constexpr std::int32_t checkExecutableMessage = 8;
inline constexpr std::int32_t workingFolderMessage = 24;

inline constexpr std::int32_t messageCount = 25;

// NUL-terminated texts that live for the whole run.
extern const char* const messageTable[messageCount];

// The text number `index`, which must lie in 0 .. 24: there is no check.
const char* getMessage(std::int32_t index);

}  // namespace runlet
