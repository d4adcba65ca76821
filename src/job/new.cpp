// `new` and `delete` of the whole program, which is how the XML library and the strings of the
// job's lists get at an arena. The other forms of them come down to these.

#include <cstddef>
#include <new>

#include "job/arena.h"

void* operator new(std::size_t size) {
  void* piece = runlet::allocate(size);
  if (piece == nullptr) throw std::bad_alloc();
  return piece;
}

void operator delete(void* piece) noexcept {
  runlet::deallocate(piece);
}

void operator delete(void* piece, std::size_t /*size*/) noexcept {
  runlet::deallocate(piece);
}
