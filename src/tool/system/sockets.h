// Communication with a forked process.
#pragma once

#include <cstddef>
#include <span>

namespace runlet_tool {

// The two ends of a connection; -1 = none.
struct Sockets {
  int ours = -1;
  int theirs = -1;
};

// Creates both, above the standard streams and closed on exec. `type` is SOCK_STREAM or
// SOCK_SEQPACKET. Returns 0, or the error number; the caller closes `*sockets` in either case.
int makeSockets(int type, Sockets* sockets);

void closeSockets(const Sockets& sockets);

// Transfer exactly `size` bytes. False if the other side ends before that.
bool sendBytes(int socket, const void* bytes, std::size_t size);
bool receiveBytes(int socket, void* bytes, std::size_t size);

// Most descriptors per message.
inline constexpr std::size_t mostDescriptors = 2;

// The same with descriptors attached. A message on a SOCK_SEQPACKET socket must be small enough for
// one call. Sent descriptors still belong to the caller. Received ones close on exec and belong to
// the caller; -1 for each that is missing, and for all after a failure.
bool sendMessage(int socket, const void* bytes, std::size_t size, std::span<const int> descriptors);
bool receiveMessage(int socket, void* bytes, std::size_t size, std::span<int> descriptors);

}  // namespace runlet_tool
