#include "tool/run/starter_message.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace runlet_tool {
namespace {

using runlet::TaskStart;

// A request begins with this; its texts follow, in the order of `texts`. The two descriptors come
// with its first byte.
struct Header {
  std::array<std::size_t, 4> lengths;  // of the texts
  std::int32_t gid;
  std::int32_t uid;
  std::int32_t umask;
};

constexpr std::size_t descriptorCount = 2;

std::array<const std::string*, 4> texts(const TaskStart& start) {
  return {&start.folder, &start.commandLine, &start.chmodPath, &start.rights.userName};
}

std::array<std::string*, 4> texts(TaskStart* start) {
  return {&start->folder, &start->commandLine, &start->chmodPath, &start->rights.userName};
}

Header headerOf(const TaskStart& start) {
  Header header{};
  const auto all = texts(start);
  std::transform(all.begin(), all.end(), header.lengths.begin(),
                 [](const std::string* text) { return text->size(); });
  header.gid = start.rights.gid;
  header.uid = start.rights.uid;
  header.umask = start.rights.umask;
  return header;
}

// A header with descriptors beside it.
struct Message {
  explicit Message(Header* header) : part{header, sizeof *header} {
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
  }

  iovec part;
  alignas(cmsghdr) char control[CMSG_SPACE(descriptorCount * sizeof(int))] = {};
  msghdr message{};
};

}  // namespace

bool sendBytes(int socket, const void* bytes, std::size_t size) {
  const char* next = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = send(socket, next, size, MSG_NOSIGNAL);
    if (count <= 0) return false;
    next += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool receiveBytes(int socket, void* bytes, std::size_t size) {
  char* next = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = recv(socket, next, size, 0);
    if (count <= 0) return false;
    next += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool sendRequest(int socket, const StartRequest& request) {
  Header header = headerOf(request.start);
  Message message(&header);
  cmsghdr* const rights = CMSG_FIRSTHDR(&message.message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(descriptorCount * sizeof(int));
  const int descriptors[descriptorCount] = {request.log, request.leave};
  std::memcpy(CMSG_DATA(rights), descriptors, sizeof descriptors);
  // A header is far smaller than what a socket takes at once.
  if (sendmsg(socket, &message.message, MSG_NOSIGNAL) != sizeof header) return false;
  const auto all = texts(request.start);
  return std::all_of(all.begin(), all.end(), [=](const std::string* text) {
    return sendBytes(socket, text->data(), text->size());
  });
}

bool receiveRequest(int socket, StartRequest* request) {
  Header header{};
  Message message(&header);
  const ssize_t count = recvmsg(socket, &message.message, MSG_WAITALL | MSG_CMSG_CLOEXEC);
  const cmsghdr* const rights = CMSG_FIRSTHDR(&message.message);
  int descriptors[descriptorCount];
  const bool isWhole = count == sizeof header && rights != nullptr &&
                       rights->cmsg_len == CMSG_LEN(sizeof descriptors);
  if (!isWhole) return false;
  std::memcpy(descriptors, CMSG_DATA(rights), sizeof descriptors);
  request->log = descriptors[0];
  request->leave = descriptors[1];
  request->start.rights.gid = header.gid;
  request->start.rights.uid = header.uid;
  request->start.rights.umask = header.umask;
  request->start.redirectStderr = false;  // both outputs are the log already
  for (std::size_t i = 0; i < header.lengths.size(); ++i) {
    std::string* const text = texts(&request->start)[i];
    text->resize(header.lengths[i]);
    if (!receiveBytes(socket, text->data(), text->size())) return false;
  }
  return true;
}

}  // namespace runlet_tool
