// Memory for what is read of a large job file.
#pragma once

#include <cstddef>

namespace runlet {

// Where `new` takes memory from while an ArenaScope says so. Once the last piece is deleted, all of
// it is the system's again.
//
// A large job is kept out of the heap for two reasons. The document that the XML library builds of
// it is about nine times as large as the file: here its pages get their memory many at a time, not
// by a fault for each. And the page tables of all that the process has in memory are copied at the
// start of every task, also for what the heap holds on to after it was freed: of the document
// nothing is left by then, and the lists of the job are left out of the copy.
struct Arena;

// For the document.
extern Arena documentArena;

// For the lists of the job. Children of the process do not have this memory, and end by a signal
// where they touch it: what a child needs is copied before the fork.
extern Arena listArena;

// From here to the end of the scope, memory is taken from an arena. There is one scope at a time.
class ArenaScope {
 public:
  // `capacity` is for how many bytes the arena gets addresses, unless it is in use already. If that
  // is so few that the heap serves better, or there are no addresses to be had, and for what then
  // does not fit, memory is taken from the heap as ever.
  ArenaScope(Arena* arena, std::size_t capacity);
  ~ArenaScope();
  ArenaScope(const ArenaScope&) = delete;
  ArenaScope& operator=(const ArenaScope&) = delete;
};

// What `new` and `delete` do. `allocate` yields null where memory is short; `deallocate` knows by
// its address where a piece comes from. Not for several threads at once.
void* allocate(std::size_t size);
void deallocate(void* piece);

}  // namespace runlet
