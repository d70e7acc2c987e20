#include "tabulon/result_codes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tabulon {
namespace {

// Hosts compare these texts: every character, blank and full stop counts.
TEST(ResultCodes, EveryMessageIsPinned) {
  const std::pair<int32_t, std::string> expected[] = {
      {-2, "Source file does not exist "},
      {-3, "Unable to create Excel Application. Is it installed?"},
      {-4, "Unable to destroy Excel application. Is it installed?"},
      {-10, "Source file does not exist: "},
      {-11, "Invalid Sheet Specified."},
      {-11, "Invalid sheet specified"},
      {-12, "Unable to create Word Application. Is it installed?"},
      {-13, "Unable to destroy Word application. Is it installed?"},
      {-14, "Table(s) specified do not exist in word document"},
      {-202, "Source File does not exist"},
      {-202, "Original File does not exist"},
      {-203, "Target File does not exist"},
      {-204, "Sheet specified does not exist."},
      {-204, "Source Sheet does not exist."},
      {-204, "Original Sheet does not exist"},
      {-205, "Target Sheet does not exist, be sure the 'Add sheets if necessary option' is set to True"},
      {-206, "Target Workbook cannot have two similarly named sheets. Original sheet name already exists in Target."},
      {-207, "Target path file cannot have a wild card (i.e. *.XLS)"},
      {-208, "Target path folder does not exist"},
      {-210, "SheetBefore or SheetAfter does not exist"},
      {-210, "SheetBefore or SheetAfter does not exist."},
      {-212, "Target Sheet already exists.  Set options differently to overwrite."},
      {-212, "Target Sheet already exists.  Set overwrite to TRUE to copy over existing sheet."},
      {-213, "Invalid or missing sheets specified."},
      {-215, "Sheet to move does not exist."},
      {-216, "Sheet to rename does not exist."},
  };
  const auto table = ResultMessages();
  ASSERT_EQ(table.size(), std::size(expected));
  for (size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(static_cast<int32_t>(table[i].code), expected[i].first) << "row " << i;
    EXPECT_EQ(std::string(table[i].message), expected[i].second) << "row " << i;
    EXPECT_FALSE(table[i].used_by.empty()) << "row " << i;
  }
}

TEST(ResultCodes, UnusedNumbersStayUnused) {
  std::set<int32_t> used;
  for (const auto& row : ResultMessages()) used.insert(row.code);
  for (int32_t never : {-1, -5, -6, -7, -8, -9, -209, -211, -214}) EXPECT_EQ(used.count(never), 0u) << never;
}

}  // namespace
}  // namespace tabulon
