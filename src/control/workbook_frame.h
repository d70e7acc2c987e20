// The frame every workbook method follows around its own steps: validate the
// source and the target folder, start the spreadsheet application, open the
// source with the password pair and the read-only rule, work, close, quit.
// Each piece stores its code and message the way the result-code table
// says, so a method only adds its own steps in between.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/control_state.h"
#include "office/office.h"

namespace tabulon {

class WorkbookFrame {
 public:
  explicit WorkbookFrame(TabulonCtrl::State& state) : state_(state) {}

  // 0, or -202 with `missing_message` (no event).
  [[nodiscard]] int32_t CheckSource(const std::string& source, std::string_view missing_message);
  // 0, or -208 "Target path folder does not exist" once creating the folder
  // and its missing ancestors did not make it exist (no event).
  [[nodiscard]] int32_t CheckTargetFolder(const std::string& target);
  // Runs CreateExcel; on failure stores -3, raises OnError and returns null.
  office::Application* StartExcel();

  // Open arguments of a source workbook: `Password`/`WriteResPassword` from the
  // input (or the output) password pair, `ReadOnly` True when the target is
  // another file (paths compared without regard to case), omitted otherwise.
  office::OpenOptions SourceOpenOptions(const std::string& source, const std::string& target,
                                        bool input_passwords = true) const;

  // Closes every workbook (errors ignored) and runs DestroyExcel. A failed
  // destroy stores -4 and its message, raises OnError when `raise` is set, and
  // replaces `code`; returns the code to return.
  int32_t CloseAndQuit(int32_t code, bool raise);

  // Runs `work`, the body of a method under its error trap: an office error
  // ends the work and leaves the code then current; returns false then.
  template <typename Work>
  bool Trap(Work&& work) {
    try {
      work();
      return true;
    } catch (const office::Error& e) {
      last_office_error_ = e.what();
      return false;
    }
  }
  const std::string& last_office_error() const { return last_office_error_; }

  TabulonCtrl::State& state() { return state_; }

 private:
  TabulonCtrl::State& state_;
  std::string last_office_error_;
};

}  // namespace tabulon
