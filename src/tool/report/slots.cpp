#include "tool/report/slots.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>
#include <utility>

namespace runlet_tool {
namespace {

template <typename Value>
using LeastFirst = std::priority_queue<Value, std::vector<Value>, std::greater<>>;

// The positions of the spans, in the order of their begins.
std::vector<std::size_t> byBegin(const std::vector<Span>& spans) {
  std::vector<std::size_t> order(spans.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return spans[a].begin < spans[b].begin; });
  return order;
}

}  // namespace

std::vector<std::size_t> assignSlots(const std::vector<Span>& spans) {
  std::vector<std::size_t> slots(spans.size());
  LeastFirst<std::pair<RecordTime, std::size_t>> busy;  // when it ends, and the slot
  LeastFirst<std::size_t> idle;
  for (const std::size_t at : byBegin(spans)) {
    while (!busy.empty() && busy.top().first <= spans[at].begin) {
      idle.push(busy.top().second);
      busy.pop();
    }
    slots[at] = idle.empty() ? busy.size() : idle.top();
    if (!idle.empty()) idle.pop();
    busy.emplace(spans[at].end, slots[at]);
  }
  return slots;
}

std::vector<double> loadOver(const std::vector<Span>& spans, const Span& time, std::size_t count) {
  std::vector<double> load(count + 1, 0);
  if (time.length() <= 0) return std::vector<double>(count, 0);
  // In parts since the begin of `time`.
  const auto place = [&](RecordTime moment) {
    const double share = (moment - time.begin) / time.length();
    return std::clamp(share, 0.0, 1.0) * static_cast<double>(count);
  };
  // load[i] is first how much more there is than in part i - 1, so that a long span takes no longer
  // than a short one. Up to a place within a part, the part itself has a share of it.
  const auto addFrom = [&](double begin, double amount) {
    const auto part = std::min(static_cast<std::size_t>(begin), count - 1);
    const double share = static_cast<double>(part + 1) - begin;
    load[part] += amount * share;
    load[part + 1] += amount * (1 - share);
  };
  for (const Span& span : spans) {
    addFrom(place(span.begin), 1);
    addFrom(place(span.end), -1);
  }
  std::partial_sum(load.begin(), load.end(), load.begin());
  load.pop_back();
  for (double& value : load) value = std::max(value, 0.0);  // differences of rounding
  return load;
}

}  // namespace runlet_tool
