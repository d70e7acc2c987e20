// The skeleton of every method that opens one workbook, works on it and saves
// it under a target path (the sheet structure methods, the cell edits,
// printing, macros and passwords):
//   1. the source must exist: -202 and the method's text, no event;
//   2. the target's folder is made with its missing ancestors when absent:
//      -208, no event;
//   3. the spreadsheet application is created: -3, with the event;
//   4. the source is opened with the input password pair, read-only when
//      the target is another file (paths compared without regard to case);
//   5. the method's own steps, on Workbooks(1);
//   6. ActiveWorkbook.SaveAs(target, normal workbook format), Saved = True;
//   7. Workbooks.Close and the application closed: a failed close gives -4,
//      which replaces any earlier code.
// An office error in steps 4 to 6 ends the method through the general error
// path (kAutomationError or kOfficeUnavailable, with the office's own text
// and the event); nothing is saved then. A method states only what differs
// (its texts, its open and save arguments) and gives its steps.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "control/applications.h"
#include "control/control_state.h"
#include "office/office.h"

namespace tabulon {

// What the steps of a method see and decide.
class MethodStep {
 public:
  MethodStep(TabulonCtrl::State& state, office::Application& app, office::SaveAsOptions& save)
      : state_(state), app_(app), save_(save) {}

  TabulonCtrl::State& state() { return state_; }
  office::Application& app() { return app_; }
  // The workbook worked on: Workbooks(1).
  office::Workbook& book() { return app_.GetWorkbooks().Item(1); }

  // Stores the code and message and raises OnError; the method will return
  // the code, and nothing is saved.
  int32_t Fail(int32_t code, std::string_view message) {
    code_ = state_.FailAndRaise(code, message);
    return code_;
  }
  // The same without the event.
  int32_t FailQuietly(int32_t code, std::string_view message) {
    code_ = state_.Fail(code, message);
    return code_;
  }
  // A code whose message is stored later (a walk that goes on after a
  // missing sheet).
  void SetCode(int32_t code) { code_ = code; }
  int32_t code() const { return code_; }

  // The sheet found by WorkbookMethod::OnSheet; only valid when that was
  // asked for.
  office::Worksheet& sheet() { return *sheet_; }
  bool has_sheet() const { return sheet_ != nullptr; }
  void set_sheet(std::unique_ptr<office::Worksheet> sheet) { sheet_ = std::move(sheet); }

  // The SaveAs arguments of step 6, for steps that add to them.
  office::SaveAsOptions& save() { return save_; }
  // Step 6 is left out: the workbook is closed without saving.
  void SkipSave() { skip_save_ = true; }
  bool save_skipped() const { return skip_save_; }

 private:
  TabulonCtrl::State& state_;
  office::Application& app_;
  office::SaveAsOptions& save_;
  std::unique_ptr<office::Worksheet> sheet_;
  int32_t code_ = 0;
  bool skip_save_ = false;
};

class WorkbookMethod {
 public:
  // The method's own steps; a failure goes through MethodStep::Fail (or
  // SetCode) and leaves the workbook unsaved.
  using Steps = std::function<void(MethodStep&)>;

  WorkbookMethod(TabulonCtrl::State& state, const std::string& source, const std::string& target);

  // The -202 text; "Source File does not exist" unless set.
  WorkbookMethod& SourceMissingText(std::string_view text);
  // Replaces step 1's failure: `fail` stores the method's own code and text
  // (and raises the event where the method does) and returns the code.
  WorkbookMethod& OnSourceMissing(std::function<int32_t()> fail);
  // No folder check: the target is not written (printing on paper).
  WorkbookMethod& WithoutTargetFolder();
  // Runs after the checks, before the application is created (the methods
  // that clean or test their arguments there); returns 0 to go on, or a
  // code already stored.
  WorkbookMethod& BeforeStart(std::function<int32_t()> prepare);
  // Replaces the open arguments of step 4.
  WorkbookMethod& OpenWith(office::OpenOptions options);
  // The SaveAs arguments of step 6; FileFormat the normal workbook format
  // unless set.
  WorkbookMethod& SaveWith(office::SaveAsOptions options);

  // Before the method's steps: double quotes are removed from `sheet` (the
  // caller's text is rewritten) and the sheet of that name is looked up in
  // Workbooks(1); the steps find it in MethodStep::sheet(). A missing sheet
  // stores -204 with `missing_text`, raises OnError and ends the method
  // unsaved (a failed close then gives -4 instead, without the event).
  WorkbookMethod& OnSheet(std::string& sheet, std::string_view missing_text);

  // An office error ends the work with the code then current instead of the
  // general error path (the conversion and the sheet resolver say so). The
  // office's text is kept in last_office_error().
  WorkbookMethod& KeepCodeOnOfficeError();
  // A failed close of the application raises OnError too (the conversion).
  WorkbookMethod& RaiseOnFailedClose();

  // Runs the skeleton around `steps`; returns the method's result code.
  int32_t Run(const Steps& steps);

  const std::string& last_office_error() const { return last_office_error_; }

  // Open arguments of a source: the input password pair (or the output
  // pair), ReadOnly True when the target is another file (paths compared
  // without regard to case), omitted otherwise.
  static office::OpenOptions SourceOpenOptions(const TabulonCtrl::State& state, const std::string& source,
                                               const std::string& target, bool input_passwords = true);

 private:
  TabulonCtrl::State& state_;
  const std::string& source_;
  const std::string& target_;
  std::function<int32_t()> source_missing_;
  bool check_target_folder_ = true;
  bool keep_code_on_office_error_ = false;
  bool raise_on_failed_close_ = false;
  std::string last_office_error_;
  std::string* sheet_name_ = nullptr;
  std::string_view sheet_missing_text_;
  std::function<int32_t()> prepare_;
  std::optional<office::OpenOptions> open_;
  office::SaveAsOptions save_;
};

// The general error path: stores the office error's code and text, raises
// OnError, returns the code.
int32_t FailWithOfficeError(TabulonCtrl::State& state, const office::Error& error);

// The folder of `target`, made with its missing ancestors when absent; 0, or
// -208 with its text stored and no event.
int32_t MakeTargetFolder(TabulonCtrl::State& state, const std::string& target);

}  // namespace tabulon
