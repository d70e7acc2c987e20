// Lists of numbers and ranges such as "1, 3-5, 9": the grammar that the row,
// column and item lists of the public header share.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "status.h"

namespace ravelin {

struct ItemRange {
  int32_t first;  // the smaller number
  int32_t last;   // the larger number
};

enum class ItemKind { kRange, kEmpty, kMalformed };

// Reads one item (the text between two commas).
ItemKind ParseItem(std::string_view item, ItemRange* range);

// Calls fn(kind, range) for each item of `list` in order; stops when fn
// returns false.
template <typename Fn>
void ForEachItem(std::string_view list, Fn fn) {
  for (;;) {
    const size_t comma = list.find(',');
    ItemRange range{0, 0};
    const ItemKind kind = ParseItem(list.substr(0, comma), &range);
    if (!fn(kind, range) || comma == std::string_view::npos) return;
    list.remove_prefix(comma + 1);
  }
}

// The 1-based rows or columns a list names, for quick membership tests.
class RangeSet {
 public:
  // Fails with kList when an item does not fit, a number is 0 or the list
  // names nothing.
  static Status Parse(std::string_view list, RangeSet* set);
  // A set holding every positive number.
  static RangeSet All();

  bool Contains(int64_t n) const;
  int64_t Max() const { return ranges_.empty() ? 0 : ranges_.back().last; }

 private:
  std::vector<ItemRange> ranges_;  // sorted, disjoint, not adjacent
};

}  // namespace ravelin
