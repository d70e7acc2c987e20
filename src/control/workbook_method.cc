#include "control/workbook_method.h"

#include "control/workbook_frame.h"

namespace tabulon {

int32_t FailWithOfficeError(TabulonCtrl::State& state, const office::Error& error) {
  const bool lost = error.kind() == office::ErrorKind::kDied || error.kind() == office::ErrorKind::kTimeout;
  return state.FailAndRaise(lost ? kOfficeUnavailable : kAutomationError, error.what());
}

WorkbookMethod::WorkbookMethod(TabulonCtrl::State& state, const std::string& source, const std::string& target)
    : state_(state), source_(source), target_(target), source_missing_(msg::kSourceFileMissing) {
  save_.file_format = office::kXlWorkbookNormal;
}

WorkbookMethod& WorkbookMethod::SourceMissingText(std::string_view text) {
  source_missing_ = text;
  return *this;
}

WorkbookMethod& WorkbookMethod::WithoutTargetFolder() {
  check_target_folder_ = false;
  return *this;
}

WorkbookMethod& WorkbookMethod::BeforeStart(std::function<void()> prepare) {
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

int32_t WorkbookMethod::Run(const Steps& steps) {
  WorkbookFrame frame(state_);
  if (int32_t code = frame.CheckSource(source_, source_missing_); code != kSuccess) return code;
  if (check_target_folder_) {
    if (int32_t code = frame.CheckTargetFolder(target_); code != kSuccess) return code;
  }
  if (prepare_) prepare_();

  Applications apps(state_);
  office::Application* app = apps.Excel();
  if (app == nullptr) return kExcelNotCreated;

  int32_t code = kSuccess;
  try {
    app->GetWorkbooks().Open(source_, open_ ? *open_ : frame.SourceOpenOptions(source_, target_));
    MethodStep step(state_, *app, save_);
    code = steps(step);
    if (code == kSuccess && !step.save_skipped()) {
      office::Workbook& active = app->ActiveWorkbook();
      active.SaveAs(target_, save_);
      active.SetSaved(true);
    }
  } catch (const office::Error& error) {
    code = FailWithOfficeError(state_, error);
  }
  return apps.CloseAll(code);
}

}  // namespace tabulon
