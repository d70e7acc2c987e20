#include "control/applications.h"

namespace tabulon {

namespace {

void CloseWorkbooks(office::Application* app) {
  if (app == nullptr) return;
  try {
    app->GetWorkbooks().Close();
  } catch (const office::Error&) {
  }
}

}  // namespace

office::Application* Applications::Excel() {
  if (!state_.session.CreateExcel()) {
    state_.FailAndRaise(kExcelNotCreated, msg::kExcelNotCreated);
    return nullptr;
  }
  excel_ = true;
  return state_.session.xlApp();
}

office::Application* Applications::ExcelTarget() {
  if (!state_.session.CreateExcelTarget()) {
    state_.FailAndRaise(kExcelNotCreated, msg::kExcelNotCreated);
    return nullptr;
  }
  excel_target_ = true;
  return state_.session.xlAppTarget();
}

office::WordApplication* Applications::Word() {
  if (!state_.session.CreateWord()) {
    state_.FailAndRaise(kWordNotCreated, msg::kWordNotCreated);
    return nullptr;
  }
  word_ = true;
  return state_.session.wdApp();
}

int32_t Applications::CloseAll(int32_t code, bool raise) {
  if (excel_) CloseWorkbooks(state_.session.xlApp());
  if (excel_target_) CloseWorkbooks(state_.session.xlAppTarget());
  if (excel_target_ && !state_.session.DestroyExcelTarget()) {
    code = Replace(code, kExcelNotDestroyed, msg::kExcelNotDestroyed, raise);
  }
  if (excel_ && !state_.session.DestroyExcel()) {
    code = Replace(code, kExcelNotDestroyed, msg::kExcelNotDestroyed, raise);
  }
  if (word_ && !state_.session.DestroyWord()) {
    code = Replace(code, kWordNotDestroyed, msg::kWordNotDestroyed, raise);
  }
  excel_ = excel_target_ = word_ = false;
  return code;
}

int32_t Applications::Replace(int32_t, int32_t failure, std::string_view message, bool raise) {
  state_.Fail(failure, message);
  if (raise) state_.RaiseOnError(failure);
  return failure;
}

}  // namespace tabulon
