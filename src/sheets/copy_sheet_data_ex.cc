// CopySheetDataEx: CopySheetData for every pair of a target sheet and an
// original sheet, both given as sheet lists, the target loop outside.
#include <string>
#include <vector>

#include "control/applications.h"
#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_discovery.h"
#include "convert/sheet_list.h"
#include "sheets/copy_target.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// Names a list can hold (indexes 0 to 1000).
constexpr size_t kListSlots = 1001;

// A single plain name: not "*", not empty, and no "," or "-" (no list, no
// range of numbers).
bool IsPlainName(const std::string& list) {
  return !list.empty() && list != "*" && list.find_first_of(",-") == std::string::npos;
}

// Writes a missing target with the office's new-workbook sheets. The cut to
// one sheet and its naming happen in the open workbook only: it is marked
// saved and closed without another save, so they never reach the disk.
int32_t CreateTarget(TabulonCtrl::State& state, const std::string& target, const std::string& sheet_list) {
  Applications apps(state);
  office::Application* app = apps.Excel();
  if (app == nullptr) return kExcelNotCreated;
  int32_t code = kSuccess;
  try {
    code = AddTargetWorkbook(state, *app, target, IsPlainName(sheet_list) ? sheet_list : std::string());
    if (code == kSuccess) {
      app->ActiveWorkbook().SetSaved(true);
      app->GetWorkbooks().Close();
    }
  } catch (const office::Error& error) {
    code = FailWithOfficeError(state, error);
  }
  return apps.CloseAll(code);
}

}  // namespace

int32_t TabulonCtrl::CopySheetDataEx(std::string& sPathOriginal, std::string& sSheetOriginal,
                                     std::string& sRangeToCopyFrom, std::string& sPathTarget,
                                     std::string& sSheetTarget, std::string& sRangeToCopyTo, bool& bDoFormula,
                                     bool& bCopyNameOfSheet, bool& bAddSheetsIfNecessary) {
  State& s = *state_;
  std::vector<std::string> originals(kListSlots);
  const int32_t original_count = ResolveSheetNames(s, sPathOriginal, sSheetOriginal, originals, true);
  if (original_count < 1) return original_count;

  // The target rules of each copy, applied before a missing target is
  // written, so that a refused path leaves nothing on the disk.
  if (const int32_t code = CheckCopyTarget(s, sPathTarget); code != kSuccess) return code;
  if (!FileExists(sPathTarget)) {
    if (const int32_t code = CreateTarget(s, sPathTarget, sSheetTarget); code != kSuccess) return code;
  }

  std::vector<std::string> targets(kListSlots);
  int32_t target_count = ResolveSheetNames(s, sPathTarget, sSheetTarget, targets, false);
  if (target_count < 1) {
    if (bAddSheetsIfNecessary && target_count != kInvalidSheet) return target_count;
    // Sheets still to be added, or to be reported missing by the copy.
    targets = SplitNameList(sSheetTarget);
    if (targets.size() > kListSlots) {
      return FailWithOfficeError(s, office::Error(office::ErrorKind::kAutomation, "Subscript out of range"));
    }
    target_count = static_cast<int32_t>(targets.size());
  }

  for (int32_t i = 0; i < target_count; ++i) {
    for (int32_t j = 0; j < original_count; ++j) {
      std::string original_sheet = originals[j];
      std::string target_sheet = targets[i];
      const int32_t code = CopySheetData(sPathOriginal, original_sheet, sRangeToCopyFrom, sPathTarget, target_sheet,
                                         sRangeToCopyTo, bDoFormula, bCopyNameOfSheet, bAddSheetsIfNecessary);
      if (code < 0) return code;
    }
  }
  return kSuccess;
}

}  // namespace tabulon
