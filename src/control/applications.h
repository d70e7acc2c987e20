// The application objects one call of a method holds, and the clean-up that
// every method ends with: each application's workbooks (or documents) closed
// without saving, errors ignored, then each application closed through the
// session; a failed close gives -4 (-13 for the word processor) and its
// message, which replace any earlier code.
#pragma once

#include <cstdint>

#include "control/control_state.h"
#include "office/office.h"

namespace tabulon {

class Applications {
 public:
  // A method's findings about the office start here.
  explicit Applications(TabulonCtrl::State& state) : state_(state) { state_.session.ClearFinding(); }

  // CreateExcel / CreateExcelTarget; on failure -3 is stored, OnError is
  // raised, and null is returned.
  office::Application* Excel();
  office::Application* ExcelTarget();
  // CreateWord; on failure -12 is stored, OnError is raised, and null is
  // returned.
  office::WordApplication* Word();

  // Closes what this call created, the target application's workbooks
  // after the primary one's and the target application before the primary
  // one, Word last. `raise`: OnError for a failed close as well. Returns the
  // code the method returns.
  int32_t CloseAll(int32_t code, bool raise = false);

 private:
  // Stores the failure and raises OnError when `created` is false; marks the
  // application as held by this call otherwise.
  bool Started(bool created, bool& held, int32_t failure, std::string_view message);
  int32_t Replace(int32_t code, int32_t failure, std::string_view message, bool raise);

  TabulonCtrl::State& state_;
  bool excel_ = false;
  bool excel_target_ = false;
  bool word_ = false;
};

}  // namespace tabulon
