#include "convert/sheet_discovery.h"

#include <cstdint>
#include <optional>

#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "convert/sheet_selection.h"

namespace tabulon {

namespace {

// A store into the caller's array past its end: the walk ends there, as a
// failed store into a fixed array ends it.
struct ArrayFull {};

class NameSink {
 public:
  explicit NameSink(std::vector<std::string>& names) : names_(names) {}
  void Store(const std::string& name) {
    if (stored_ >= names_.size()) throw ArrayFull{};
    names_[stored_++] = name;
  }
  int32_t stored() const { return static_cast<int32_t>(stored_); }

 private:
  std::vector<std::string>& names_;
  size_t stored_ = 0;
};

}  // namespace

int32_t ResolveSheetNames(TabulonCtrl::State& state, const std::string& path, std::string& list,
                          std::vector<std::string>& names, bool input_passwords) {
  office::OpenOptions open = WorkbookMethod::SourceOpenOptions(state, path, path, input_passwords);
  open.read_only = true;
  WorkbookMethod method(state, path, path);
  method.SourceMissingText(msg::kOriginalFileMissing)
      .WithoutTargetFolder()
      .BeforeStart([&]() -> int32_t {
        if (list.empty()) return state.Fail(kInvalidSheet, msg::kInvalidSheetSelectionifiedEmpty);
        return kSuccess;
      })
      .OpenWith(open)
      .KeepCodeOnOfficeError();

  NameSink sink(names);
  const int32_t code = method.Run([&](MethodStep& step) {
    step.SkipSave();
    office::Workbook& book = step.book();
    try {
      const SheetSelection selection = SheetSelection::Parse(state.text_library, list);
      switch (selection.kind()) {
        case SheetSelection::Kind::kNumbers: {
          // The name tried when a number finds no sheet is the list itself,
          // the same for every number: look it up once.
          std::optional<std::string> fallback_name;
          bool fallback_tried = false;
          auto fallback = [&]() -> const std::optional<std::string>& {
            if (!fallback_tried) {
              fallback_tried = true;
              if (auto sheet = GetSheetByName(book, list)) fallback_name = sheet->Name();
            }
            return fallback_name;
          };
          const int64_t sheet_count = book.Sheets().Count();
          // Visits sheet n; false when n and every number above it cannot be
          // found, so a huge range ends at once.
          auto visit = [&](int64_t n) {
            if (n >= 1 && n <= sheet_count) {
              if (auto sheet = GetSheetByIndex(book, static_cast<int32_t>(n))) {
                sink.Store(sheet->Name());
                return true;
              }
            }
            if (const auto& name = fallback()) {
              sink.Store(*name);
              return true;
            }
            step.SetCode(kInvalidSheet);
            return n < sheet_count;
          };
          if (selection.count() < 2) {
            visit(selection.first_number());
          } else {
            selection.ForEachNumber(visit);
          }
          break;
        }
        case SheetSelection::Kind::kNames:
          for (const std::string& name : selection.names()) {
            if (auto sheet = GetSheetByName(book, name)) {
              sink.Store(sheet->Name());
            } else {
              step.SetCode(kInvalidSheet);
            }
          }
          break;
        case SheetSelection::Kind::kAll:
          ForEachSheet(book, INT32_MAX, [&](office::Worksheet& sheet) {
            sink.Store(sheet.Name());
            return true;
          });
          break;
      }
    } catch (const ArrayFull&) {
    } catch (const office::Error&) {
      // The walk ends with the code then current; a missing sheet found
      // before is still reported.
    }
    if (step.code() != kSuccess) {
      if (step.code() == kInvalidSheet) state.Fail(kInvalidSheet, msg::kInvalidSheetSelectionified);
      state.RaiseOnError(step.code());
    }
  });
  return code != kSuccess ? code : sink.stored();
}

bool TabulonCtrl::bDetectNamedSheets(std::string& sSheetsIn) {
  return DetectNamedSheets(state_->text_library, sSheetsIn);
}

int32_t TabulonCtrl::GetSheetNames(std::string& spath, std::string& sSheets, std::vector<std::string>& sSheetNames) {
  return ResolveSheetNames(*state_, spath, sSheets, sSheetNames, true);
}

}  // namespace tabulon

