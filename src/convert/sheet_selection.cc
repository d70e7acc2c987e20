#include "convert/sheet_selection.h"

namespace tabulon {

SheetSelection SheetSelection::Parse(RavelinLibrary& library, std::string& text) {
  SheetSelection selection;
  if (!DetectNamedSheets(library, text)) {
    selection.kind_ = Kind::kNumbers;
    selection.count_ = FillSheetTodoList(library, text, selection.pairs_);
  } else if (text.find('*') == std::string::npos) {
    selection.kind_ = Kind::kNames;
    NormaliseNameList(text);
    selection.names_ = SplitNameList(text);
    selection.count_ = static_cast<int32_t>(selection.names_.size());
  }
  return selection;
}

bool SheetSelection::SeveralItems() const {
  return static_cast<int64_t>(pairs_[1]) - pairs_[0] > 0 || count_ >= 2;
}

}  // namespace tabulon
