#include "item_list.h"

#include <algorithm>
#include <limits>

namespace ravelin {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

void SkipBlanks(std::string_view& s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
}

// A run of digits worth at most INT32_MAX.
bool TakeNumber(std::string_view& s, int32_t* value) {
  if (s.empty() || s.front() < '0' || s.front() > '9') return false;
  int64_t v = 0;
  while (!s.empty() && s.front() >= '0' && s.front() <= '9') {
    v = v * 10 + (s.front() - '0');
    if (v > std::numeric_limits<int32_t>::max()) return false;
    s.remove_prefix(1);
  }
  *value = static_cast<int32_t>(v);
  return true;
}

}  // namespace

ItemKind ParseItem(std::string_view item, ItemRange* range) {
  SkipBlanks(item);
  if (item.empty()) return ItemKind::kEmpty;
  int32_t a = 0;
  if (!TakeNumber(item, &a)) return ItemKind::kMalformed;
  SkipBlanks(item);
  int32_t b = a;
  if (!item.empty() && item.front() == '-') {
    item.remove_prefix(1);
    SkipBlanks(item);
    if (!TakeNumber(item, &b)) return ItemKind::kMalformed;
    SkipBlanks(item);
  }
  if (!item.empty()) return ItemKind::kMalformed;
  *range = {std::min(a, b), std::max(a, b)};
  return ItemKind::kRange;
}

Status RangeSet::Parse(std::string_view list, RangeSet* set) {
  std::vector<ItemRange> ranges;
  bool ok = true;
  ForEachItem(list, [&](ItemKind kind, ItemRange r) {
    if (kind == ItemKind::kEmpty) return true;
    if (kind == ItemKind::kMalformed || r.first == 0) return ok = false;
    ranges.push_back(r);
    return true;
  });
  if (!ok || ranges.empty()) return Status::kList;
  std::sort(ranges.begin(), ranges.end(), [](ItemRange x, ItemRange y) { return x.first < y.first; });
  set->ranges_.clear();
  for (const ItemRange& r : ranges) {
    if (!set->ranges_.empty() && static_cast<int64_t>(r.first) <= int64_t{set->ranges_.back().last} + 1) {
      set->ranges_.back().last = std::max(set->ranges_.back().last, r.last);
    } else {
      set->ranges_.push_back(r);
    }
  }
  return Status::kOk;
}

RangeSet RangeSet::All() {
  RangeSet set;
  set.ranges_.push_back({1, std::numeric_limits<int32_t>::max()});
  return set;
}

bool RangeSet::Contains(int64_t n) const {
  auto it = std::upper_bound(ranges_.begin(), ranges_.end(), n, [](int64_t v, ItemRange r) { return v < r.first; });
  return it != ranges_.begin() && n <= std::prev(it)->last;
}

}  // namespace ravelin
