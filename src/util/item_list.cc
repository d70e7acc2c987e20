#include "util/item_list.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "tabulon/automation_error.h"

namespace tabulon {
namespace {

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(separator, start);
    if (end == std::string_view::npos) {
      parts.push_back(text.substr(start));
      return parts;
    }
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
}

[[noreturn]] void RaiseOverflow() { throw AutomationError(kItemListOverflow, "Overflow"); }

// The value of the digits that open `text`; 0 when there are none. A value
// that does not fit a Long overflows, as storing it into the Long array would.
int32_t LeadingNumber(std::string_view text) {
  int64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + (c - '0');
    if (value > INT32_MAX) RaiseOverflow();
  }
  return static_cast<int32_t>(value);
}

// One end of a range, converted strictly: an empty end is not a number, and the
// host learns of it through a type mismatch rather than a silent 0.
int32_t RangeEnd(std::string_view text) {
  if (text.empty()) throw AutomationError(AutomationError::kTypeMismatch, "Type mismatch");
  return LeadingNumber(text);
}

// An item a-b resolved to its bounds, low <= high. A discarded item (two or
// more dashes) stands for the one empty element that later reads as 0.
struct ExpandedRange {
  bool discarded = false;
  int32_t low = 0;
  int32_t high = 0;

  int64_t Size() const { return discarded ? 1 : int64_t{high} - low + 1; }

  void AppendTo(std::vector<int32_t>& numbers) const {
    if (discarded) {
      numbers.push_back(0);
      return;
    }
    // Counting in 64 bits lets a range end at 2147483647 without overflowing.
    for (int64_t n = low; n <= high; ++n) numbers.push_back(static_cast<int32_t>(n));
  }
};

// Expands a-b into a, a+1, ..., b. The numbers are appended straight to the
// Long array instead of being written out as "a,a+1,...,b" and split again:
// the result is the same, without a text several times the size of the array.
ExpandedRange ExpandRange(std::string_view item) {
  ExpandedRange range;
  size_t dashes = 0;
  for (char c : item) dashes += (c == '-');
  if (dashes >= 2) {
    range.discarded = true;
    return range;
  }
  const size_t dash = item.find('-');
  range.low = RangeEnd(item.substr(0, dash));
  range.high = RangeEnd(item.substr(dash + 1));
  if (range.low > range.high) std::swap(range.low, range.high);
  return range;
}

// Ascending, the pivot at the middle index. The loop takes the larger part and
// recursion the smaller one, so the stack stays shallow whatever the input.
void QuickSort(std::vector<int32_t>& numbers, ptrdiff_t low, ptrdiff_t high) {
  while (low < high) {
    const int32_t pivot = numbers[static_cast<size_t>((low + high) / 2)];
    ptrdiff_t i = low;
    ptrdiff_t j = high;
    while (i <= j) {
      while (numbers[static_cast<size_t>(i)] < pivot) ++i;
      while (numbers[static_cast<size_t>(j)] > pivot) --j;
      if (i <= j) {
        std::swap(numbers[static_cast<size_t>(i)], numbers[static_cast<size_t>(j)]);
        ++i;
        --j;
      }
    }
    if (j - low < high - i) {
      QuickSort(numbers, low, j);
      low = i;
    } else {
      QuickSort(numbers, i, high);
      high = j;
    }
  }
}

void QuickSort(std::vector<int32_t>& numbers) {
  QuickSort(numbers, 0, static_cast<ptrdiff_t>(numbers.size()) - 1);
}

// Drops every element equal to the one before it; on a sorted array this
// leaves each number once.
void RemoveDuplicates(std::vector<int32_t>& numbers) {
  size_t kept = 0;
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (kept == 0 || numbers[i] != numbers[kept - 1]) numbers[kept++] = numbers[i];
  }
  numbers.resize(kept);
}

// Drops the elements whose text is empty. The numbers have no empty texts by
// now, but the flag stays part of the result so that a caller can rely on it.
int32_t RemoveEmptyItems(std::vector<std::string>& texts) {
  const size_t before = texts.size();
  std::erase_if(texts, [](const std::string& text) { return text.empty(); });
  return texts.size() < before ? kItemListEmptyItemDropped : 0;
}

}  // namespace

int32_t ParseToDoList(std::string& list, std::vector<std::string>& items, int32_t& count) {
  int32_t result = 0;
  if (list.empty()) return result + kItemListEmpty;

  std::string filtered;
  filtered.reserve(list.size());
  bool dropped = false;
  for (char c : list) {
    if (std::string_view(kItemListCharacters).find(c) != std::string_view::npos) {
      filtered += c;
    } else {
      dropped = true;
    }
  }
  if (dropped) result += kItemListCharacterDropped;
  list = std::move(filtered);
  if (list.empty()) return result + kItemListEmpty;

  const std::vector<std::string_view> elements = Split(list, ',');

  // All ranges are resolved before any plain number is converted, so that a
  // bad range is reported ahead of an overflowing number later in the list.
  std::vector<ExpandedRange> ranges(elements.size());
  std::vector<bool> is_range(elements.size(), false);
  int64_t expanded = 0;
  for (size_t i = 0; i < elements.size(); ++i) {
    if (elements[i].find('-') == std::string_view::npos) continue;
    is_range[i] = true;
    ranges[i] = ExpandRange(elements[i]);
    expanded += ranges[i].Size();
    if (expanded > kMaxExpandedItems) throw AutomationError(kItemListOutOfMemory, "Out of memory");
  }

  std::vector<int32_t> numbers;
  numbers.reserve(elements.size() + static_cast<size_t>(expanded));
  for (size_t i = 0; i < elements.size(); ++i) {
    if (is_range[i]) {
      ranges[i].AppendTo(numbers);
    } else {
      numbers.push_back(LeadingNumber(elements[i]));
    }
  }

  QuickSort(numbers);
  RemoveDuplicates(numbers);
  std::vector<std::string> texts;
  texts.reserve(numbers.size());
  for (int32_t n : numbers) texts.push_back(std::to_string(n));
  result += RemoveEmptyItems(texts);

  list.clear();
  if (texts.empty()) {
    result += kItemListEmpty;
  } else {
    for (size_t i = 0; i < texts.size(); ++i) {
      if (i > 0) list += ',';
      list += texts[i];
    }
  }
  items = std::move(texts);
  count = static_cast<int32_t>(items.size());
  return result;
}

}  // namespace tabulon
