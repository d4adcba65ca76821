// What ran at the same time.
#pragma once

#include <cstddef>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

struct Span {
  RecordTime begin = 0;
  RecordTime end = 0;  // not before `begin`

  double length() const {
    return end - begin;
  }
};

// For each span, the lowest slot, from 0, that no other span has at the time when it begins; one
// that ends at that moment does not count.
std::vector<std::size_t> assignSlots(const std::vector<Span>& spans);

// For each of `count` equal parts of `time`, how many spans there are on average. Spans, or parts
// of them, outside `time` are ignored. If `time` has no length, all are 0.
std::vector<double> loadOver(const std::vector<Span>& spans, const Span& time, std::size_t count);

}  // namespace runlet_tool
