#include "office/uno/a1.h"

#include <gtest/gtest.h>

namespace tabulon::office::uno {
namespace {

constexpr int32_t kRows = 1048576;
constexpr int32_t kColumns = 16384;

TEST(ColumnName, CountsInLettersLikeExcel) {
  const std::pair<int32_t, const char*> cases[] = {
      {0, "A"}, {25, "Z"}, {26, "AA"}, {51, "AZ"}, {52, "BA"}, {701, "ZZ"}, {702, "AAA"}, {16383, "XFD"}};
  for (const auto& [column, name] : cases) EXPECT_EQ(ColumnName(column), name) << column;
}

TEST(AbsoluteAddress, WritesCellsRangesRowsAndColumns) {
  const std::pair<CellRect, const char*> cases[] = {
      {{3, 2, 3, 2}, "$C$4"},
      {{0, 0, 3, 2}, "$A$1:$C$4"},
      {{0, 0, kRows - 1, kColumns - 1}, "$1:$1048576"},
      {{1, 0, 2, kColumns - 1}, "$2:$3"},
      {{0, 1, kRows - 1, 1}, "$B:$B"},
  };
  for (const auto& [rect, text] : cases) EXPECT_EQ(AbsoluteAddress(rect, kRows, kColumns), text);
}

TEST(ParseAddress, ReadsWhatExcelAccepts) {
  const std::pair<const char*, CellRect> cases[] = {
      {"A1", {0, 0, 0, 0}},         {"$C$4", {3, 2, 3, 2}},       {"c$4", {3, 2, 3, 2}},
      {"A1:C4", {0, 0, 3, 2}},      {"C4:A1", {0, 0, 3, 2}},      {"$A$1:$B$2", {0, 0, 1, 1}},
      {"A:C", {0, 0, kRows - 1, 2}}, {"2:3", {1, 0, 2, kColumns - 1}}, {"$B:$B", {0, 1, kRows - 1, 1}},
      {"XFD1048576", {kRows - 1, kColumns - 1, kRows - 1, kColumns - 1}},
  };
  for (const auto& [text, rect] : cases) {
    const auto parsed = ParseAddress(text, kRows, kColumns);
    ASSERT_TRUE(parsed.has_value()) << text;
    EXPECT_EQ(*parsed, rect) << text;
  }
  for (const char* bad : {"", "A", "1", "A0", "1A", "A1:B", "A1:2", "A1:B2:C3", "XFE1", "A1048577",
                          "Sheet1!A1", "A1 B2", "$$A1"})
    EXPECT_FALSE(ParseAddress(bad, kRows, kColumns).has_value()) << bad;
}

}  // namespace
}  // namespace tabulon::office::uno
