// Item lists: the short texts such as "1,3,5-7" with which a host names the
// numbered items a method works on (the tables of a Word document, for
// instance). ParseToDoList turns one into a clean, sorted, duplicate-free list
// of whole numbers and reports what it had to repair.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tabulon {

// Flags of ParseToDoList's result; they are added together.
inline constexpr int32_t kItemListEmpty = 1;             // empty before or after cleaning
inline constexpr int32_t kItemListCharacterDropped = 2;  // a character outside "0123456789,-" was dropped (once)
inline constexpr int32_t kItemListEmptyItemDropped = 4;  // an empty item was dropped

// The characters an item list may hold; every other one, blanks included, is dropped.
inline constexpr char kItemListCharacters[] = "0123456789,-";

// Automation errors ParseToDoList raises besides AutomationError::kTypeMismatch.
inline constexpr int32_t kItemListOverflow = 6;     // "Overflow"
inline constexpr int32_t kItemListOutOfMemory = 7;  // "Out of memory"

// The most numbers that the ranges of one list may expand to, counted before
// duplicates are removed. Far beyond any document's item count; it keeps a
// list such as "1-2000000000" from exhausting memory.
inline constexpr int64_t kMaxExpandedItems = 1'000'000;

// Parses the item list `list`, for example "5-7, 2,1".
//
// Steps, in order:
//  - An empty `list` returns kItemListEmpty; nothing is rewritten.
//  - Every character outside kItemListCharacters is dropped and `list` is
//    rewritten with what is left (kItemListCharacterDropped is added once). If
//    nothing is left, kItemListEmpty is added and the call returns; `items`
//    and `count` are left untouched.
//  - The list is split at ","; an item a-b stands for every whole number from
//    a to b, and b-a means the same as a-b. An item with two or more "-" (such
//    as "1-2-3") is discarded and becomes the number 0, as does an empty item
//    ("1,,2" gives 0,1,2).
//  - The numbers are sorted ascending and duplicates removed.
//
// On return `list` holds the numbers joined with "," ("2,5,6,7"), `items` the
// same numbers as texts (its old content is replaced) and `count` how many
// there are. Returns the sum of the flags above; 0 means the list was clean.
//
// Throws tabulon::AutomationError (and leaves `items` and `count` untouched,
// `list` already cleaned of dropped characters):
//  - AutomationError::kTypeMismatch, "Type mismatch": a range with an empty
//    side, such as "-5", "5-" or "-";
//  - kItemListOverflow, "Overflow": a number above 2147483647;
//  - kItemListOutOfMemory, "Out of memory": the ranges expand to more than
//    kMaxExpandedItems numbers.
// When several of these apply, the first range in the list that fails decides;
// a plain number that overflows is only looked at after all the ranges.
int32_t ParseToDoList(std::string& list, std::vector<std::string>& items, int32_t& count);

}  // namespace tabulon
