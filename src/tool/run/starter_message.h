// What a run and the process that starts its tasks say to each other, over a stream socket.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "exec/start.h"

namespace runlet_tool {

// What is needed to start a task.
struct StartRequest {
  runlet::TaskStart start;  // standard error is joined in the log, whatever the job says
  int log = -1;
  int leave = -1;  // a socket: a byte comes when the task may begin, its end when it must not
};

struct StartAnswer {
  int error = 0;  // 0, or the error number for which there is no process
  pid_t process = -1;
};

// False when the other side has ended. The descriptors of the request stay the caller's.
bool sendRequest(int socket, const StartRequest& request);

// False when the other side has ended, also in the middle of a request. Fills `*request` otherwise;
// its descriptors, which are above those of the standard streams where those are open, close on
// exec and are the caller's to close.
bool receiveRequest(int socket, StartRequest* request);

// `size` bytes. False when the other side has ended before.
bool sendBytes(int socket, const void* bytes, std::size_t size);
bool receiveBytes(int socket, void* bytes, std::size_t size);

}  // namespace runlet_tool
