#include "control/workbook_frame.h"

#include "util/file_helpers.h"

namespace tabulon {

int32_t WorkbookFrame::CheckSource(const std::string& source, std::string_view missing_message) {
  if (FileExists(source)) return kSuccess;
  return state_.Fail(kFileMissing, missing_message);
}

int32_t WorkbookFrame::CheckTargetFolder(const std::string& target) {
  const std::string folder = GetFolderOfPath(target);
  if (FolderExists(folder)) return kSuccess;
  MakeFolderPath(folder);
  if (FolderExists(folder)) return kSuccess;
  return state_.Fail(kTargetFolderMissing, msg::kTargetFolderMissing);
}

office::Application* WorkbookFrame::StartExcel() {
  if (!state_.session.CreateExcel()) {
    state_.FailAndRaise(kExcelNotCreated, msg::kExcelNotCreated);
    return nullptr;
  }
  return state_.session.xlApp();
}

office::OpenOptions WorkbookFrame::SourceOpenOptions(const std::string& source, const std::string& target,
                                                     bool input_passwords) const {
  office::OpenOptions options;
  options.password = input_passwords ? state_.input_password : state_.output_password;
  options.write_res_password = input_passwords ? state_.input_password_tw : state_.output_password_tw;
  if (!SamePathText(source, target)) options.read_only = true;
  return options;
}

int32_t WorkbookFrame::CloseAndQuit(int32_t code, bool raise) {
  if (office::Application* app = state_.session.xlApp()) {
    try {
      app->GetWorkbooks().Close();
    } catch (const office::Error&) {
    }
  }
  if (!state_.session.DestroyExcel()) {
    code = state_.Fail(kExcelNotDestroyed, msg::kExcelNotDestroyed);
    if (raise) state_.RaiseOnError(code);
  }
  return code;
}

}  // namespace tabulon
