#include "editing/cell_edit.h"

#include <gtest/gtest.h>

namespace tabulon {
namespace {

TEST(SortAscending, SortsAndKeepsDuplicates) {
  std::vector<int32_t> numbers = {9, 2, 7, 2, 1, 9, 5};
  SortAscending(numbers);
  EXPECT_EQ(numbers, (std::vector<int32_t>{1, 2, 2, 5, 7, 9, 9}));
  std::vector<int32_t> none;
  SortAscending(none);
  EXPECT_TRUE(none.empty());
}

TEST(ExpandDeletionList, ExpandsEveryPairInListOrderThenSorts) {
  SheetTodoList pairs{};
  // "10-12,3,3,7-8"
  const int32_t list[] = {10, 12, 3, 3, 3, 3, 7, 8};
  std::copy(std::begin(list), std::end(list), pairs.begin());
  const auto numbers = ExpandDeletionList(pairs, 4);
  ASSERT_TRUE(numbers.has_value());
  EXPECT_EQ(*numbers, (std::vector<int32_t>{3, 3, 7, 8, 10, 11, 12}));
}

TEST(ExpandDeletionList, HoldsAtMostAThousandNumbers) {
  SheetTodoList pairs{};
  pairs[0] = 1;
  pairs[1] = 1000;
  EXPECT_EQ(ExpandDeletionList(pairs, 1)->size(), 1000u);
  pairs[2] = 5;
  pairs[3] = 5;
  EXPECT_FALSE(ExpandDeletionList(pairs, 2).has_value());
  pairs[1] = 2'000'000'000;  // a huge range fails at once, without the memory
  EXPECT_FALSE(ExpandDeletionList(pairs, 1).has_value());
}

}  // namespace
}  // namespace tabulon
