// Pseudo-random numbers, the same for the same seed everywhere.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace runlet_model {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  // From 0 to `limit` - 1.
  std::size_t below(std::size_t limit) {
    return static_cast<std::size_t>(engine_() % limit);
  }

  bool chance(unsigned percent) {
    return below(100) < percent;
  }

  template <typename Item>
  const Item& pick(const std::vector<Item>& items) {
    return items[below(items.size())];
  }

  template <typename Item>
  void shuffle(std::vector<Item>* items) {
    for (std::size_t i = items->size(); i > 1; --i) std::swap((*items)[i - 1], (*items)[below(i)]);
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace runlet_model
