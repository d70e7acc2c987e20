#include "editing/cell_edit.h"

#include <algorithm>
#include <utility>

namespace tabulon {

WorkbookMethod CellEditMethod(TabulonCtrl::State& state, const std::string& source, const std::string& target,
                              std::string& sheet) {
  office::SaveAsOptions save;
  save.file_format = office::kXlWorkbookNormal;
  save.access_mode = office::kXlNoChange;
  save.conflict_resolution = office::kXlLocalSessionChanges;
  WorkbookMethod method(state, source, target);
  method.SaveWith(save).OnSheet(sheet, msg::kSheetSelectionifiedMissing);
  return method;
}

std::vector<std::string> NormaliseRangeList(office::Worksheet& sheet, std::string& ranges) {
  if (ranges.empty()) ranges = sheet.UsedRange()->Address();
  const size_t star = ranges.find(":*");
  if (star != std::string::npos && star > 0) {
    const std::string start = ranges.substr(0, star);
    ranges = start + ":" + sheet.GetRange(start)->SpecialCells(office::kXlCellTypeLastCell)->Address();
    std::erase(ranges, '$');
  }
  return Split(ranges, ',');
}

std::optional<std::vector<int32_t>> ExpandDeletionList(const SheetTodoList& pairs, int32_t count) {
  std::vector<int32_t> numbers;
  for (int32_t k = 0; k < count; ++k) {
    for (int64_t n = pairs[2 * k]; n <= pairs[2 * k + 1]; ++n) {
      if (numbers.size() >= static_cast<size_t>(kMaxDeletions)) return std::nullopt;
      numbers.push_back(static_cast<int32_t>(n));
    }
  }
  SortAscending(numbers);
  return numbers;
}

void SortAscending(std::vector<int32_t>& numbers) {
  for (size_t i = 0; i + 1 < numbers.size(); ++i) {
    size_t smallest = i;
    for (size_t j = i + 1; j < numbers.size(); ++j) {
      if (numbers[j] < numbers[smallest]) smallest = j;
    }
    std::swap(numbers[i], numbers[smallest]);
  }
}

}  // namespace tabulon
