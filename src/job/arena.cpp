#include "job/arena.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace runlet {
namespace {

// Below this the heap serves better, which has some memory from the start.
constexpr std::size_t minCapacity = std::size_t{256} << 10;

// In front of every piece: how many bytes it takes up, with this header.
using Header = std::size_t;

// Pieces begin where any object may, and take up a multiple of this.
constexpr std::size_t unit = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
static_assert(sizeof(Header) <= unit);

// A freed piece up to this length waits for the next of the same length: the library makes strings
// longer by doubling them, and would leave much behind. Of a longer one the pages are given back.
constexpr std::size_t maxKeptLength = 1024;

struct FreePiece {
  FreePiece* next;
};

constexpr std::size_t roundUp(std::size_t bytes, std::size_t multipleOf) {
  return (bytes + multipleOf - 1) / multipleOf * multipleOf;
}

}  // namespace

struct Arena {
  bool isPopulated;       // pages get their memory many at a time
  bool isForChildren;     // children of the process have the memory as well
  char* begin = nullptr;  // at a page; null while there are no addresses
  char* next = nullptr;   // where the next piece begins, with its header
  char* ready = nullptr;  // end of the pages that have their memory, if they are populated
  char* end = nullptr;
  std::size_t pieces = 0;  // that are not freed
  FreePiece* kept[maxKeptLength / unit + 1] = {};
};

constinit Arena documentArena = {.isPopulated = true, .isForChildren = true};
constinit Arena listArena = {.isPopulated = false, .isForChildren = false};

namespace {

constinit Arena* current = nullptr;

std::size_t pageSize() {
  return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t between(const char* from, const char* to) {
  return static_cast<std::size_t>(to - from);
}

// The first page of the arena that does not begin in front of `place`.
char* pageAt(const Arena& arena, const char* place) {
  return arena.begin + roundUp(between(arena.begin, place), pageSize());
}

void findAddresses(Arena* arena, std::size_t capacity) {
  const std::size_t size = roundUp(capacity, pageSize());
  void* found = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (found == MAP_FAILED) return;
  if (!arena->isForChildren) madvise(found, size, MADV_DONTFORK);
  arena->begin = static_cast<char*>(found);
  arena->next = arena->begin;
  arena->ready = arena->begin;
  arena->end = arena->begin + size;
}

void giveBack(Arena* arena) {
  if (arena->begin != nullptr) munmap(arena->begin, between(arena->begin, arena->end));
  *arena = {.isPopulated = arena->isPopulated, .isForChildren = arena->isForChildren};
}

// Gives the addresses back that are not in use.
void shrink(Arena* arena) {
  char* end = pageAt(*arena, arena->isPopulated ? arena->ready : arena->next);
  munmap(end, between(end, arena->end));
  arena->end = end;
}

// Gets memory for the pages up to `place` and a few more. Not whole huge pages, which would be
// fewer still: where the system first has to make one free, that costs more than it saves. Where
// it can't do even this, pages get their memory as they are touched.
void populate(Arena* arena, const char* place) {
  if (place <= arena->ready) return;
  const std::size_t more = std::max(between(arena->begin, place) / 128, 8 * pageSize());
  const std::size_t size = std::min(roundUp(between(arena->ready, place) + more, pageSize()),
                                    between(arena->ready, arena->end));
  madvise(arena->ready, size, MADV_POPULATE_WRITE);
  arena->ready += size;
}

void* takeKept(Arena* arena, std::size_t length) {
  if (length > maxKeptLength) return nullptr;
  FreePiece*& first = arena->kept[length / unit];
  FreePiece* piece = first;
  if (piece != nullptr) first = piece->next;
  return piece;
}

// The header is the last thing in front of the first whole unit.
void* takeNew(Arena* arena, std::size_t length) {
  if (length + unit > between(arena->next, arena->end)) return nullptr;
  if (arena->isPopulated) populate(arena, arena->next + length + unit);
  char* piece = arena->next + unit;
  new (piece - sizeof(Header)) Header(length);
  arena->next += length;
  return piece;
}

void* take(Arena* arena, std::size_t size) {
  if (size > between(arena->begin, arena->end)) return nullptr;
  const std::size_t length = roundUp(size + sizeof(Header), unit);
  void* piece = takeKept(arena, length);
  if (piece == nullptr) piece = takeNew(arena, length);
  if (piece != nullptr) ++arena->pieces;
  return piece;
}

bool isOf(const Arena& arena, const void* piece) {
  return reinterpret_cast<std::uintptr_t>(piece) - reinterpret_cast<std::uintptr_t>(arena.begin) <
         between(arena.begin, arena.end);
}

void put(Arena* arena, char* piece) {
  const std::size_t length = *std::launder(reinterpret_cast<Header*>(piece - sizeof(Header)));
  if (length <= maxKeptLength) {
    FreePiece*& first = arena->kept[length / unit];
    first = new (piece) FreePiece{first};
  } else {
    char* from = pageAt(*arena, piece);
    const std::size_t pages = between(from, std::max(from, piece + length - unit)) / pageSize();
    madvise(from, pages * pageSize(), MADV_DONTNEED);
  }
  if (--arena->pieces == 0 && arena != current) giveBack(arena);
}

}  // namespace

ArenaScope::ArenaScope(Arena* arena, std::size_t capacity) {
  if (capacity < minCapacity) return;
  if (arena->begin == nullptr) findAddresses(arena, capacity);
  current = arena;  // without addresses nothing fits
}

ArenaScope::~ArenaScope() {
  Arena* arena = current;
  current = nullptr;
  if (arena == nullptr) return;
  if (arena->pieces == 0) {
    giveBack(arena);
  } else {
    shrink(arena);
  }
}

void* allocate(std::size_t size) {
  void* piece = current == nullptr ? nullptr : take(current, size);
  return piece == nullptr ? std::malloc(size) : piece;
}

void deallocate(void* piece) {
  for (Arena* arena : {&documentArena, &listArena}) {
    if (isOf(*arena, piece)) return put(arena, static_cast<char*>(piece));
  }
  std::free(piece);
}

}  // namespace runlet
