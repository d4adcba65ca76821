#include "adapter/messages.h"

namespace runlet {

const char* const messageTable[messageCount] = {
    /*  0 */ "Application is Starting",
    /*  1 */ "Application received new task: %d",
    /*  2 */ "cmd application shutdown",
    /*  3 */ "Received request to terminate task execution",
    /*  4 */ "Unknown",
    /*  5 */ "Job exit successful",
    /*  6 */ "Job exit failed",
    /*  7 */ "Cannot start",
    /*  8 */
    ("Make sure the batch file or executable name has its full name and path (or configure server "
     "accordingly)"),
    /*  9 */ "Failed to create job object",
    /* 10 */ "Process cannot be added to job group",
    /* 11 */ "Process exited with error code (%d) on '%s'",
    /* 12 */ "Task Not Found",
    /* 13 */ "Failed to create log file : ",
    /* 14 */ "Can't start communication pipe",
    /* 15 */ "Task %d",
    /* 16 */ "Command Line Tool Settings",
    /* 17 */ "cmd arguments",
    /* 18 */ "Working path",
    /* 19 */ "Log path",
    /* 20 */ "Task timeout (minutes)",
    /* 21 */ "Server count limit",
    /* 22 */ "Output files",
    /* 23 */ "Custom Parameters",
    /* 24 */ "Could not set working folder : ",
};

const char* getMessage(std::int32_t index) {
  return messageTable[index];
}

}  // namespace runlet
