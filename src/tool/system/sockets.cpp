#include "tool/system/sockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tool/system/files.h"

namespace runlet_tool {
namespace {

// Bytes, and room for descriptors sent with them.
struct Message {
  Message(void* bytes, std::size_t size) : part{bytes, size} {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
  }

  iovec part;
  alignas(cmsghdr) char control[CMSG_SPACE(mostDescriptors * sizeof(int))] = {};
  msghdr header{};
};

}  // namespace

int makeSockets(int type, Sockets* sockets) {
  int ends[2];
  if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) != 0) return errno;
  *sockets = {aboveStreams(ends[0]), aboveStreams(ends[1])};
  return sockets->ours == -1 || sockets->theirs == -1 ? errno : 0;
}

void closeSockets(const Sockets& sockets) {
  close(sockets.ours);
  close(sockets.theirs);
}

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

bool sendMessage(int socket, const void* bytes, std::size_t size,
                 std::span<const int> descriptors) {
  Message message(const_cast<void*>(bytes), size);
  if (!descriptors.empty()) {
    message.header.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
    cmsghdr* const rights = CMSG_FIRSTHDR(&message.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(descriptors.size_bytes());
    std::memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size_bytes());
  }
  return sendmsg(socket, &message.header, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

bool receiveMessage(int socket, void* bytes, std::size_t size, std::span<int> descriptors) {
  std::fill(descriptors.begin(), descriptors.end(), -1);
  Message message(bytes, size);
  message.header.msg_controllen = sizeof message.control;
  const ssize_t count = recvmsg(socket, &message.header, MSG_WAITALL | MSG_CMSG_CLOEXEC);
  if (count != static_cast<ssize_t>(size)) return false;
  const cmsghdr* const rights = CMSG_FIRSTHDR(&message.header);
  if (rights != nullptr && rights->cmsg_len == CMSG_LEN(descriptors.size_bytes())) {
    std::memcpy(descriptors.data(), CMSG_DATA(rights), descriptors.size_bytes());
  }
  return true;
}

}  // namespace runlet_tool
