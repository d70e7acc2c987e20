#include "convert/sheet_spec.h"

namespace tabulon {

SheetSpec SheetSpec::Parse(RavelinLibrary& library, std::string& text) {
  SheetSpec spec;
  if (!DetectNamedSheets(library, text)) {
    spec.kind_ = Kind::kNumbers;
    spec.count_ = FillSheetTodoList(library, text, spec.pairs_);
  } else if (text.find('*') == std::string::npos) {
    spec.kind_ = Kind::kNames;
    NormaliseNameList(text);
    spec.names_ = SplitNameList(text);
    spec.count_ = static_cast<int32_t>(spec.names_.size());
  }
  return spec;
}

bool SheetSpec::SeveralItems() const {
  return static_cast<int64_t>(pairs_[1]) - pairs_[0] > 0 || count_ >= 2;
}

}  // namespace tabulon
