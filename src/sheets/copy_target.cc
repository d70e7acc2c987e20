#include "sheets/copy_target.h"

#include "control/workbook_method.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t CheckCopyTarget(TabulonCtrl::State& state, const std::string& target) {
  if (target.find('*') != std::string::npos) return state.Fail(kWildcardTarget, msg::kWildcardTarget);
  return MakeTargetFolder(state, target);
}

int32_t AddTargetWorkbook(TabulonCtrl::State& state, office::Application& app, const std::string& target,
                          const std::string& sheet_name) {
  office::Workbook& book = app.GetWorkbooks().Add();
  office::SaveAsOptions save;
  save.file_format = office::kXlWorkbookNormal;
  app.ActiveWorkbook().SaveAs(target, save);
  if (!FileExists(target)) return state.Fail(kTargetFileMissing, msg::kTargetFileMissing);

  app.SetDisplayAlerts(false);
  const int32_t count = book.GetWorksheets().Count();
  for (int32_t i = 1; i < count; ++i) book.GetWorksheets().Item(1)->Delete();
  if (!sheet_name.empty()) {
    const auto sheet = app.ActiveSheet();
    sheet->SetName(sheet_name);
    // The office can refuse a name without a word; the spreadsheet
    // application it stands in for raises an error then.
    if (sheet->Name() != sheet_name) {
      throw office::Error(office::ErrorKind::kAutomation, "the sheet cannot be named \"" + sheet_name + "\"");
    }
  }
  app.SetDisplayAlerts(state.session_flags.verbose);
  return kSuccess;
}

}  // namespace tabulon
