// CopySheetData: the cells of a range of one workbook's sheet (the original)
// copied, as values or formulas, into a sheet of another workbook (the
// target), which is made when missing and then saved. The target is held by
// one application and the original opened in a second one.
#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <string>

#include "control/applications.h"
#include "control/control_state.h"
#include "control/office_ahead.h"
#include "control/workbook_method.h"
#include "convert/sheet_list.h"
#include "convert/sheet_lookup.h"
#include "sheets/copy_target.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

bool ContainsNoCase(const std::string& text, std::string_view word) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower.find(word) != std::string::npos;
}

// The address of the cells to copy: the used range for an empty text; for a
// text ending in ":*", its first cell to the sheet's last used cell, without
// "$" signs; otherwise the text as given. Areas are separated by ",".
std::string SourceAddress(office::Worksheet& sheet, const std::string& range) {
  if (range.empty()) return sheet.UsedRange()->Address();
  const size_t star = range.find(":*");
  if (star == std::string::npos) return range;
  std::string address =
      range.substr(0, star) + ":" + sheet.Cells()->SpecialCells(office::kXlCellTypeLastCell)->Address();
  std::erase(address, '$');
  return address;
}

bool IsEmptyCell(const office::Block& block) {
  if (block.empty() || block[0].empty()) return true;
  const office::Cell& cell = block[0][0];
  if (const auto* text = std::get_if<std::string>(&cell)) return text->empty();
  return std::holds_alternative<std::monostate>(cell);
}

// The first cell of the destination of `area` on `target`: the area's own
// place for an empty text; under (or right of) the target's used range for
// a text holding "below" (or "right"), or at the used range's one cell when
// the sheet is empty; otherwise the top-left cell of the text's range.
std::unique_ptr<office::Range> DestinationStart(office::Worksheet& target, office::Range& area,
                                                const std::string& to) {
  if (to.empty()) return target.Cells(area.Row(), area.Column());
  const bool below = ContainsNoCase(to, "below");
  if (below || ContainsNoCase(to, "right")) {
    const auto used = target.UsedRange();
    auto first = used->Cells(1, 1);
    if (used->RowsCount() == 1 && used->ColumnsCount() == 1 && IsEmptyCell(used->Formula()) &&
        IsEmptyCell(used->Value())) {
      return first;
    }
    return below ? first->Offset(used->RowsCount(), 0) : first->Offset(0, used->ColumnsCount());
  }
  return target.GetRange(Split(to, ',').front())->Cells(1, 1);
}

// One area copied: its values (or formulas) written in one block at the
// destination, in the area's shape. No clipboard, no formats.
void CopyArea(office::Worksheet& original, const std::string& address, office::Worksheet& target,
              const std::string& to, bool formulas) {
  const auto area = original.GetRange(address);
  const auto start = DestinationStart(target, *area, to);
  const auto end = start->Offset(area->RowsCount() - 1, area->ColumnsCount() - 1);
  const auto destination = target.GetRange(start->Address() + ":" + end->Address());
  if (formulas) {
    destination->SetFormula(area->Formula());
  } else {
    destination->CopyValueFrom(*area);
  }
}

}  // namespace

int32_t TabulonCtrl::CopySheetData(std::string& sPathOriginal, std::string& sSheetOriginal,
                                   std::string& sRangeToCopyFrom, std::string& sPathTarget, std::string& sSheetTarget,
                                   std::string& sRangeToCopyTo, bool& bDoFormula, bool& bCopyNameOfSheet,
                                   bool& bAddSheetsIfNecessary) {
  State& s = *state_;
  if (!FileExists(sPathOriginal)) return s.Fail(kFileMissing, msg::kOriginalFileMissing);
  if (const int32_t code = CheckCopyTarget(s, sPathTarget); code != kSuccess) return code;
  sSheetOriginal = RemoveDoubleQuotes(sSheetOriginal);
  sSheetTarget = RemoveDoubleQuotes(sSheetTarget);
  const bool target_is_new = !FileExists(sPathTarget);

  // xlAppTarget holds the target; xlApp opens the original.
  Applications apps(s);
  office::Application* target_app = apps.ExcelTarget();
  office::Application* original_app = target_app != nullptr ? apps.Excel() : nullptr;
  if (original_app == nullptr) return apps.CloseAll(kExcelNotCreated);

  const office::OpenOptions original_open = WorkbookMethod::SourceOpenOptions(s, sPathOriginal, sPathTarget);
  int32_t code = kSuccess;
  try {
    // The steps end, on every path, only once the original's open is done.
    code = [&]() -> int32_t {
      office::Workbook* target_book = nullptr;
      std::optional<OfficeAhead> original_opening;
      if (target_is_new) {
        // The original's office opens it while the target's office makes
        // the new target and saves it: two processes at work at once.
        original_opening.emplace([&] { original_app->GetWorkbooks().Open(sPathOriginal, original_open); });
        // Written at once; a failure further on leaves it as an empty workbook.
        const int32_t made = AddTargetWorkbook(s, *target_app, sPathTarget, sSheetTarget);
        if (made != kSuccess) return made;
        target_book = &target_app->ActiveWorkbook();
      } else {
        office::OpenOptions open;
        open.read_only = false;
        open.password = s.output_password;
        open.write_res_password = s.output_password_tw;
        target_book = &target_app->GetWorkbooks().Open(sPathTarget, open);
      }

      if (original_opening) {
        original_opening->Wait();
      } else {
        original_app->GetWorkbooks().Open(sPathOriginal, original_open);
      }
      const auto original_sheet = GetSheetByNameOrIndex(original_app->GetWorkbooks().Item(1), sSheetOriginal);
      if (!original_sheet) return s.Fail(kSheetMissing, msg::kOriginalSheetMissing);

      auto target_sheet = GetSheetByNameOrIndex(*target_book, sSheetTarget);
      if (!target_sheet) {
        if (!bAddSheetsIfNecessary) return s.Fail(kTargetSheetMissing, msg::kTargetSheetMissing);
        target_sheet = target_book->GetWorksheets().Add(nullptr, nullptr, office::kXlWorksheet);
      }

      for (const std::string& area : Split(SourceAddress(*original_sheet, sRangeToCopyFrom), ',')) {
        CopyArea(*original_sheet, area, *target_sheet, sRangeToCopyTo, bDoFormula);
      }

      if (bCopyNameOfSheet) {
        const std::string name = original_sheet->Name();
        try {
          target_sheet->SetName(name);
        } catch (const office::Error& error) {
          if (error.kind() != office::ErrorKind::kAutomation && error.kind() != office::ErrorKind::kNotFound) throw;
        }
        // The copied cells stay in the open target, which is not saved.
        if (target_sheet->Name() != name) return s.Fail(kDuplicateSheetName, msg::kDuplicateSheetName);
      }

      // The original is done with: its office closes it while the other
      // one saves the target (the clean-up would close it after the save).
      OfficeAhead original_closing([&] { original_app->GetWorkbooks().Close(); });
      office::SaveAsOptions save;
      save.file_format = office::kXlWorkbookNormal;
      save.access_mode = office::kXlNoChange;
      target_book->SaveAs(sPathTarget, save);
      target_book->SetSaved(true);
      return kSuccess;
    }();
  } catch (const office::Error& error) {
    code = FailWithOfficeError(s, error);
  }
  return apps.CloseAll(code);
}

}  // namespace tabulon
