#include "convert/sheet_list.h"

#include <vector>

#include "convert/sheet_lookup.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  size_t pos = 0;
  while ((pos = text.find(from, pos)) != std::string::npos) {
    text.replace(pos, from.size(), to);
    pos += to.size();
  }
}

bool IsBlank(const std::string& text) { return text.find_first_not_of(' ') == std::string::npos; }

}  // namespace

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t next = text.find(separator, start);
    parts.push_back(text.substr(start, next == std::string::npos ? std::string::npos : next - start));
    if (next == std::string::npos) break;
    start = next + 1;
  }
  return parts;
}

int32_t FillSheetTodoList(RavelinLibrary& library, const std::string& list, SheetTodoList& pairs) {
  using Fill = int32_t(char*, int32_t*, int32_t);
  auto* fill = library.Entry<Fill>("FillToDoItemsArray");
  std::string ansi = ToAnsi(list);
  std::vector<char> buffer(ansi.begin(), ansi.end());
  buffer.push_back('\0');
  return fill(buffer.data(), pairs.data(), kSheetTodoCapacity);
}

void NormaliseNameList(std::string& list) {
  for (int pass = 0; pass <= 10; ++pass) {
    ReplaceAll(list, ", ", ",");
    ReplaceAll(list, " ,", ",");
  }
}

std::vector<std::string> SplitNameList(const std::string& list) { return Split(RemoveDoubleQuotes(list), ','); }

bool DetectNamedSheets(RavelinLibrary& library, std::string& list) {
  if (IsBlank(list)) {
    list = "*";
    return true;
  }
  if (list.find('*') != std::string::npos) return true;
  if (list.find('"') != std::string::npos) return true;
  if (list.find('-') != std::string::npos) {
    SheetTodoList pairs{};
    const int32_t count = FillSheetTodoList(library, list, pairs);
    if (count == 0) return true;
    return pairs[0] + pairs[1] == 0;
  }
  std::string copy = RemoveDoubleQuotes(list);
  NormaliseNameList(copy);
  const std::vector<std::string> parts = Split(copy, ',');
  return !IsNumeric(parts.front());
}

}  // namespace tabulon
