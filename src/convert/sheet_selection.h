// One walk over a sheet selection, shared by every method that takes
// one: "*" (every sheet), numbers and ranges ("1-3,5"), or names ("Sheet1",
// "Totals"). The selection is decided and parsed once; each method then
// walks it with its own lookups, the way its algorithm reads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "convert/sheet_list.h"
#include "convert/sheet_lookup.h"
#include "office/office.h"
#include "textproc/ravelin_loader.h"

namespace tabulon {

class SheetSelection {
 public:
  enum class Kind { kNumbers, kNames, kAll };

  // Decides the kind with DetectNamedSheets (a blank text becomes "*") and
  // parses numbers with the text library. A name list is normalised in
  // `text` itself (blanks beside its commas go), as the caller sees it.
  static SheetSelection Parse(RavelinLibrary& library, std::string& text);

  Kind kind() const { return kind_; }
  bool named() const { return kind_ != Kind::kNumbers; }
  // Pairs found in a number list, or names in a name list.
  int32_t count() const { return count_; }
  // The low end of the first pair: the one number used when a list has a
  // single item.
  int32_t first_number() const { return pairs_[0]; }
  // More than one sheet is asked for: a range in the first pair, or two or
  // more items.
  bool SeveralItems() const;
  const std::vector<std::string>& names() const { return names_; }

  // Visits every number of every pair, in list order and from low to high
  // within a pair. `visit(n)` returns false to leave the rest of that pair
  // (used when no sheet can have n or any number above it).
  template <typename Visit>
  void ForEachNumber(Visit&& visit) const {
    for (int32_t k = 0; k < count_; ++k) {
      for (int64_t n = pairs_[2 * k]; n <= pairs_[2 * k + 1]; ++n) {
        if (!visit(n)) break;
      }
    }
  }

 private:
  Kind kind_ = Kind::kAll;
  SheetTodoList pairs_{};
  int32_t count_ = 0;
  std::vector<std::string> names_;
};

// Visits sheets 1, 2, 3 ... of `book` until the first number that finds no
// sheet, or `limit` sheets. `visit(sheet)` returns false to stop.
template <typename Visit>
void ForEachSheet(office::Workbook& book, int32_t limit, Visit&& visit) {
  for (int32_t n = 1; n <= limit; ++n) {
    auto sheet = GetSheetByIndex(book, n);
    if (!sheet || !visit(*sheet)) break;
  }
}

}  // namespace tabulon
