#include "job/arena.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace runlet {
namespace {

const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
constexpr std::size_t kilobyte = 1024;
constexpr std::size_t enough = 4096 * kilobyte;

enum class Page { missing, empty, resident };

// What the process has where `place` is.
Page pageOf(const void* place) {
  auto* page = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(place) & ~(pageSize - 1));
  unsigned char state = 0;
  if (mincore(page, pageSize, &state) != 0) return Page::missing;
  return (state & 1) != 0 ? Page::resident : Page::empty;
}

// The same of a child.
Page pageInChild(const void* place) {
  const pid_t child = fork();
  if (child == 0) _exit(static_cast<int>(pageOf(place)));
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return static_cast<Page>(WEXITSTATUS(status));
}

// A piece with something in it, so that its pages are there.
char* filled(std::size_t size, char with = 'x') {
  auto* piece = static_cast<char*>(allocate(size));
  std::memset(piece, with, size);
  return piece;
}

// With one size to begin with, as the pieces of a text that grows, and then at random.
TEST(Arena, GivesPiecesThatAreAlignedAndApart) {
  struct Piece {
    unsigned char* bytes;
    std::size_t size;
    unsigned char with;
  };
  std::mt19937 random(4);
  std::vector<Piece> pieces;
  const auto put = [&](std::size_t index) {
    const Piece piece = pieces[index];
    EXPECT_TRUE(std::all_of(piece.bytes, piece.bytes + piece.size,
                            [&](unsigned char byte) { return byte == piece.with; }));
    deallocate(piece.bytes);
    pieces[index] = pieces.back();
    pieces.pop_back();
  };
  for (Arena* arena : {&documentArena, &listArena}) {
    const ArenaScope scope(arena, enough);
    for (int i = 0; i < 20000; ++i) {
      const std::size_t size = random() % (i % 100 == 0 ? 20000 : 100);
      auto* bytes = static_cast<unsigned char*>(allocate(size));
      ASSERT_NE(bytes, nullptr);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % alignof(std::max_align_t), 0U) << size;
      const auto with = static_cast<unsigned char>(random());
      std::fill_n(bytes, size, with);
      pieces.push_back({bytes, size, with});
      if (random() % 5 < 2) put(random() % pieces.size());
    }
    while (!pieces.empty()) put(random() % pieces.size());
  }
}

TEST(Arena, IsTheSystemsAgainWithItsLastPiece) {
  for (Arena* arena : {&documentArena, &listArena}) {
    char* first = nullptr;
    char* second = nullptr;
    {
      const ArenaScope scope(arena, enough);
      first = filled(100);
      second = filled(100000);
    }
    EXPECT_EQ(pageOf(first), Page::resident);
    EXPECT_EQ(pageOf(second + 50000), Page::resident);
    deallocate(second);
    EXPECT_EQ(pageOf(first), Page::resident);
    EXPECT_EQ(*first, 'x');
    deallocate(first);
    EXPECT_EQ(pageOf(first), Page::missing);
    EXPECT_EQ(pageOf(second), Page::missing);
  }
}

TEST(Arena, IsTheSystemsAgainAfterAScopeThatLeavesNothing) {
  char* piece = nullptr;
  {
    const ArenaScope scope(&documentArena, enough);
    piece = filled(100);
    deallocate(piece);
    EXPECT_EQ(pageOf(piece), Page::resident);
  }
  EXPECT_EQ(pageOf(piece), Page::missing);
  { const ArenaScope scope(&documentArena, enough); }
}

TEST(Arena, KeepsNoAddressesThatItDoesNotUse) {
  for (Arena* arena : {&documentArena, &listArena}) {
    char* piece = nullptr;
    {
      const ArenaScope scope(arena, enough);
      piece = filled(100);
      EXPECT_NE(pageOf(piece + enough / 2), Page::missing);
    }
    EXPECT_EQ(pageOf(piece + enough / 2), Page::missing);
    deallocate(piece);
  }
}

TEST(Arena, UsesAFreedPieceForTheNextOfItsLength) {
  const ArenaScope scope(&documentArena, enough);
  char* small = filled(31);
  char* large = filled(900);
  deallocate(small);
  deallocate(large);
  char* other = filled(500);
  char* sameAsLarge = filled(899);
  char* sameAsSmall = filled(33);
  EXPECT_EQ(sameAsLarge, large);
  EXPECT_EQ(sameAsSmall, small);
  EXPECT_NE(other, large);
  for (char* piece : {other, sameAsLarge, sameAsSmall}) deallocate(piece);
}

TEST(Arena, GivesThePagesOfALongPieceBackAtOnce) {
  for (Arena* arena : {&documentArena, &listArena}) {
    const ArenaScope scope(arena, enough);
    char* before = filled(100, 'b');
    char* piece = filled(100000);
    char* behind = filled(100, 'c');
    deallocate(piece);
    for (std::size_t i = pageSize; i < 100000 - pageSize; i += pageSize) {
      EXPECT_EQ(pageOf(piece + i), Page::empty) << i;
    }
    EXPECT_EQ(before[99], 'b');
    EXPECT_EQ(behind[0], 'c');
    deallocate(before);
    deallocate(behind);
  }
}

TEST(Arena, OfTheListsIsNotThereForChildren) {
  char* piece = nullptr;
  {
    const ArenaScope scope(&listArena, enough);
    piece = filled(100);
  }
  EXPECT_EQ(pageInChild(piece), Page::missing);
  EXPECT_EQ(*piece, 'x');
  deallocate(piece);
  {
    const ArenaScope scope(&documentArena, enough);
    piece = filled(100);
  }
  EXPECT_EQ(pageInChild(piece), Page::resident);
  deallocate(piece);
}

TEST(Arena, LeavesToTheHeapWhatDoesNotFit) {
  for (const std::size_t size : {257 * kilobyte, std::size_t{10000}}) {
    std::vector<char*> pieces;
    {
      const ArenaScope scope(&listArena, 256 * kilobyte);
      for (int i = 0; i < 50; ++i) pieces.push_back(filled(size));
    }
    EXPECT_EQ(pageInChild(pieces.back()), Page::resident);
    EXPECT_EQ(pageInChild(pieces.front()), size > 256 * kilobyte ? Page::resident : Page::missing);
    for (char* piece : pieces) deallocate(piece);
  }
}

TEST(Arena, EndsBehindItsLastPiece) {
  constexpr std::size_t capacity = 256 * kilobyte;
  int inside = 0;
  for (std::size_t size = capacity - 100; size <= capacity; ++size) {
    const ArenaScope scope(&listArena, capacity);
    char* piece = filled(size);
    if (pageInChild(piece) == Page::missing) {
      ++inside;
      const auto at = reinterpret_cast<std::uintptr_t>(piece);
      EXPECT_LE(at % pageSize + size, capacity);
    }
    deallocate(piece);
  }
  EXPECT_GT(inside, 50);
}

// Too small a scope, and more addresses than there are.
TEST(Arena, LeavesToTheHeapWhatTheHeapDoesBetterOrAlone) {
  for (const std::size_t capacity : {std::size_t{0}, 255 * kilobyte, SIZE_MAX / 4}) {
    const ArenaScope scope(&listArena, capacity);
    char* piece = filled(100);
    EXPECT_EQ(pageInChild(piece), Page::resident) << capacity;
    deallocate(piece);
  }
  deallocate(nullptr);
}

TEST(Arena, ThatIsInUseServesAnotherScopeWithWhatItHasLeft) {
  char* first = nullptr;
  char* second = nullptr;
  char* third = nullptr;
  {
    const ArenaScope scope(&listArena, enough);
    first = filled(100);
  }
  {
    const ArenaScope scope(&listArena, enough);
    second = filled(100);
    third = filled(100000);
  }
  EXPECT_EQ(pageInChild(second), Page::missing);
  EXPECT_EQ(pageInChild(third), Page::resident);
  for (char* piece : {first, second, third}) deallocate(piece);
}

TEST(Arena, IsLeftAloneOutsideOfAScope) {
  char* inside = nullptr;
  {
    const ArenaScope scope(&listArena, enough);
    inside = filled(100);
  }
  char* outside = filled(100);
  EXPECT_EQ(pageInChild(outside), Page::resident);
  deallocate(outside);
  deallocate(inside);
}

}  // namespace
}  // namespace runlet
