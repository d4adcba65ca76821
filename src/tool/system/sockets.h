// What a process and one that it has forked say to each other.
#pragma once

#include <cstddef>
#include <span>

namespace runlet_tool {

// Two ends of a connection; -1 = none.
struct Sockets {
  int ours = -1;
  int theirs = -1;
};

// Makes both, above the standard streams, and closed on exec. `type` is SOCK_STREAM or
// SOCK_SEQPACKET. Yields 0, or the error number; what is in `*sockets` is to be closed in any case.
int makeSockets(int type, Sockets* sockets);

void closeSockets(const Sockets& sockets);

// `size` bytes. False when the other side has ended before.
bool sendBytes(int socket, const void* bytes, std::size_t size);
bool receiveBytes(int socket, void* bytes, std::size_t size);

// How many descriptors a message may have.
inline constexpr std::size_t mostDescriptors = 2;

// The same with descriptors beside the bytes, which are fewer than a socket takes at once. Those
// that are sent stay the caller's. Those that come close on exec and are the caller's to close; -1
// for each that does not come, and for all after a failure.
bool sendMessage(int socket, const void* bytes, std::size_t size, std::span<const int> descriptors);
bool receiveMessage(int socket, void* bytes, std::size_t size, std::span<int> descriptors);

}  // namespace runlet_tool
