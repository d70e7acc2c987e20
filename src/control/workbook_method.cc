#include "control/workbook_method.h"

#include "convert/sheet_lookup.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t FailWithOfficeError(TabulonCtrl::State& state, const office::Error& error) {
  const bool lost = error.kind() == office::ErrorKind::kDied || error.kind() == office::ErrorKind::kTimeout;
  state.session.NoteFinding(error.what());
  return state.FailAndRaise(lost ? kOfficeUnavailable : kAutomationError, error.what());
}

WorkbookMethod::WorkbookMethod(TabulonCtrl::State& state, const std::string& source, const std::string& target)
    : state_(state), source_(source), target_(target) {
  SourceMissingText(msg::kSourceFileMissing);
  save_.file_format = office::kXlWorkbookNormal;
}

WorkbookMethod& WorkbookMethod::SourceMissingText(std::string_view text) {
  return OnSourceMissing([this, text] { return state_.Fail(kFileMissing, text); });
}

WorkbookMethod& WorkbookMethod::OnSourceMissing(std::function<int32_t()> fail) {
  source_missing_ = std::move(fail);
  return *this;
}

WorkbookMethod& WorkbookMethod::WithoutTargetFolder() {
  check_target_folder_ = false;
  return *this;
}

WorkbookMethod& WorkbookMethod::BeforeStart(std::function<int32_t()> prepare) {
  prepare_ = std::move(prepare);
  return *this;
}

WorkbookMethod& WorkbookMethod::OpenWith(office::OpenOptions options) {
  open_ = std::move(options);
  return *this;
}

WorkbookMethod& WorkbookMethod::SaveWith(office::SaveAsOptions options) {
  save_ = std::move(options);
  if (!save_.file_format) save_.file_format = office::kXlWorkbookNormal;
  return *this;
}

WorkbookMethod& WorkbookMethod::OnSheet(std::string& sheet, std::string_view missing_text) {
  sheet_name_ = &sheet;
  sheet_missing_text_ = missing_text;
  return *this;
}

WorkbookMethod& WorkbookMethod::KeepCodeOnOfficeError() {
  keep_code_on_office_error_ = true;
  return *this;
}

WorkbookMethod& WorkbookMethod::RaiseOnFailedClose() {
  raise_on_failed_close_ = true;
  return *this;
}

office::OpenOptions WorkbookMethod::SourceOpenOptions(const TabulonCtrl::State& state, const std::string& source,
                                                      const std::string& target, bool input_passwords) {
  office::OpenOptions options;
  options.password = input_passwords ? state.input_password : state.output_password;
  options.write_res_password = input_passwords ? state.input_password_tw : state.output_password_tw;
  if (!SamePathText(source, target)) options.read_only = true;
  return options;
}

int32_t MakeTargetFolder(TabulonCtrl::State& state, const std::string& target) {
  const std::string folder = GetFolderOfPath(target);
  if (FolderExists(folder)) return kSuccess;
  MakeFolderPath(folder);
  if (FolderExists(folder)) return kSuccess;
  return state.Fail(kTargetFolderMissing, msg::kTargetFolderMissing);
}

int32_t WorkbookMethod::Run(const Steps& steps) {
  if (!FileExists(source_)) return source_missing_();
  if (check_target_folder_) {
    if (int32_t code = MakeTargetFolder(state_, target_); code != kSuccess) return code;
  }
  if (prepare_) {
    if (int32_t code = prepare_(); code != kSuccess) return code;
  }

  Applications apps(state_);
  office::Application* app = apps.Excel();
  if (app == nullptr) return kExcelNotCreated;

  int32_t code = kSuccess;
  MethodStep step(state_, *app, save_);
  try {
    app->GetWorkbooks().Open(source_, open_ ? *open_ : SourceOpenOptions(state_, source_, target_));
    if (sheet_name_ != nullptr) {
      *sheet_name_ = RemoveDoubleQuotes(*sheet_name_);
      step.set_sheet(GetSheetByName(step.book(), *sheet_name_));
      if (!step.has_sheet()) step.Fail(kSheetMissing, sheet_missing_text_);
    }
    if (step.code() == kSuccess) steps(step);
    code = step.code();
    if (code == kSuccess && !step.save_skipped()) {
      office::Workbook& active = app->ActiveWorkbook();
      active.SaveAs(target_, save_);
      active.SetSaved(true);
    }
  } catch (const office::Error& error) {
    last_office_error_ = error.what();
    state_.session.NoteFinding(error.what());
    code = keep_code_on_office_error_ ? step.code() : FailWithOfficeError(state_, error);
  }
  return apps.CloseAll(code, raise_on_failed_close_);
}

}  // namespace tabulon
