// Sheet lists: "*" or blank for every sheet, numbers and ranges ("1-3,5"),
// or names separated by "," (each optionally in double quotes).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "textproc/ravelin_loader.h"

namespace tabulon {

// Pairs (low, high) at 2k and 2k+1; index 1000 is never written.
using SheetTodoList = std::array<int32_t, 1001>;
inline constexpr int32_t kSheetTodoCapacity = 1000;

// Parses a list of numbers and ranges with the text library; returns the
// number of pairs. The list travels in the system's 8-bit character set.
int32_t FillSheetTodoList(RavelinLibrary& library, const std::string& list, SheetTodoList& pairs);

// True when the list names sheets (or is "*"); a blank list becomes "*".
bool DetectNamedSheets(RavelinLibrary& library, std::string& list);

// Eleven passes that turn ", " and " ," into ",": blanks next to the commas
// of a name list go, blanks inside names stay.
void NormaliseNameList(std::string& list);
// The pieces of `text` between the separators, empty ones included ("a,,b"
// gives "a", "", "b"; "" gives one empty piece).
std::vector<std::string> Split(const std::string& text, char separator);
// Quotes removed, split at ",".
std::vector<std::string> SplitNameList(const std::string& list);

}  // namespace tabulon
