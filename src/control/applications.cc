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

bool Applications::Started(bool created, bool& held, int32_t failure, std::string_view message) {
  if (!created) {
    state_.FailAndRaise(failure, message);
    return false;
  }
  held = true;
  return true;
}

office::Application* Applications::Excel() {
  const bool ok = Started(state_.session.CreateExcel(), excel_, kExcelNotCreated, msg::kExcelNotCreated);
  return ok ? state_.session.xlApp() : nullptr;
}

office::Application* Applications::ExcelTarget() {
  const bool ok = Started(state_.session.CreateExcelTarget(), excel_target_, kExcelNotCreated, msg::kExcelNotCreated);
  return ok ? state_.session.xlAppTarget() : nullptr;
}

office::WordApplication* Applications::Word() {
  const bool ok = Started(state_.session.CreateWord(), word_, kWordNotCreated, msg::kWordNotCreated);
  return ok ? state_.session.wdApp() : nullptr;
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
