// The spreadsheet application of the backend: one office process and the
// workbooks open in it. Internal to the backend.
#pragma once

#include <cstring>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <com/sun/star/lang/XComponent.hpp>

#include "office/office.h"
#include "office/uno/calc_load.h"
#include "office/uno/calc_unborn.h"
#include "office/uno/calc_workbooks.h"
#include "office/uno/session.h"
#include "office/uno/uno_factory.h"

namespace tabulon::office::uno {

class CalcWorkbook;

class CalcApplication : public UnoApplication {
 public:
  explicit CalcApplication(const UnoOptions& options);
  ~CalcApplication() override;

  void SetDisplayAlerts(bool value) override { Record("DisplayAlerts", value); }
  void SetEnableEvents(bool value) override { Record("EnableEvents", value); }
  void SetVisible(bool value) override { Record("Visible", value); }
  void SetAskToUpdateLinks(bool value) override { Record("AskToUpdateLinks", value); }
  void SetAlertBeforeOverwriting(bool value) override { Record("AlertBeforeOverwriting", value); }
  void SetPromptForSummaryInfo(bool value) override { Record("PromptForSummaryInfo", value); }
  std::string Version() override;
  int32_t Build() override;
  Workbooks& GetWorkbooks() override { return workbooks_; }
  Workbook& ActiveWorkbook() override;
  std::unique_ptr<Worksheet> ActiveSheet() override;
  void SetDisplayFormulas(bool value) override;
  std::unique_ptr<Range> Selection() override;
  void Run(const std::string& macro, const std::vector<std::string>& arguments) override;  // calc_macros.cc
  void Quit() override;
  bool IsAlive() override;
  std::string Finding() override;

  int32_t ProcessId() override;
  std::vector<SwitchRecord> Switches() override { return switches_; }
  bool DisplayFormulas() override;
  void SetCallTimeLimit(std::chrono::milliseconds limit) override;
  int32_t OfficeStarts() override { return office_starts_; }
  int32_t DirectTextExports() override { return direct_exports; }

  // ---- for the other classes of this side ----
  // Any call first gives a workbook waiting with copied values its document,
  // so that the values are copied before anything can change them.
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f()) {
    if (!session_) throw Error(ErrorKind::kDied, std::string(what) + ": the office has quit");
    if (waiting_ != nullptr && session_->depth() == 0) {
      UnbornState* book = waiting_;
      const ReadingScope changing(*this, false);
      session_->Call(what, [&] { book->Bear(); });
    }
    if (session_->depth() > 0) return session_->Call(what, std::forward<F>(f));
    const ReadingScope scope(*this, ReadsOnly(what));
    return session_->Call(what, std::forward<F>(f));
  }
  // A call that leaves a workbook waiting with copied values as it is: only
  // for what an unborn workbook answers without its document.
  template <typename F>
  auto CallKeepingCopy(const char* what, F&& f) -> decltype(f()) {
    if (!session_) throw Error(ErrorKind::kDied, std::string(what) + ": the office has quit");
    if (session_->depth() > 0) return session_->Call(what, std::forward<F>(f));
    const ReadingScope scope(*this, true);
    return session_->Call(what, std::forward<F>(f));
  }
  // Whether the call under way changes no open document, and a count of the
  // calls that may have: what a workbook read from the office during a
  // reading call stays true until the count moves (see
  // CalcWorkbook::UsedArea).
  bool reading() const { return reading_; }
  uint64_t change_count() const { return change_count_; }
  // The unborn workbook waiting with copied values, if any.
  UnbornState* waiting() const { return waiting_; }
  void SetWaiting(UnbornState* book) { waiting_ = book; }
  WorkbookLoader& loader() { return loader_; }
  // Sheets written straight from another workbook's sheet (see
  // CalcWorkbook::SaveCopyDirectly), for tests and benchmarks.
  int32_t direct_exports = 0;
  Session& session() { return *session_; }
  const UnoOptions& options() const { return options_; }
  std::vector<CalcWorkbook*>& open_books() { return open_; }
  CalcWorkbook* active() const { return active_; }
  void SetActive(CalcWorkbook* book) { active_ = book; }
  // Takes a new office document (none: an unborn workbook) into the open
  // workbooks; it becomes active.
  CalcWorkbook& Adopt(Reference<css::lang::XComponent> component, std::string name,
                      std::string path, int32_t format);
  void Forget(CalcWorkbook* book);  // after its document was closed
  // Restarts the office when it has served enough documents and none is open.
  void RecycleIfDue();
  std::string NextBookName() { return "Book" + std::to_string(++books_added_); }
  int32_t max_rows = 0;
  int32_t max_columns = 0;

 private:
  void Record(const char* name, bool value) { switches_.push_back({name, value ? 1 : 0}); }
  // Calls that only look: a range's address, sheets and ranges looked up,
  // the used range. The others may change a document.
  static bool ReadsOnly(const char* what) {
    for (const char* name : {"Worksheet.UsedRange", "Worksheet.Cells", "Worksheet.Range", "Range.Address",
                             "Worksheets.Item", "Worksheets.Count"})
      if (std::strcmp(what, name) == 0) return true;
    return false;
  }
  // Marks a call reading or changing while it runs; a changing one counts
  // before and after (a call that failed halfway may still have changed).
  class ReadingScope {
   public:
    ReadingScope(CalcApplication& app, bool reading) : app_(app), reading_(reading) {
      if (!reading_) ++app_.change_count_;
      app_.reading_ = reading_;
    }
    ~ReadingScope() {
      if (!reading_) ++app_.change_count_;
      app_.reading_ = false;
    }
    ReadingScope(const ReadingScope&) = delete;
    ReadingScope& operator=(const ReadingScope&) = delete;

   private:
    CalcApplication& app_;
    bool reading_;
  };

  UnoOptions options_;
  std::unique_ptr<Session> session_;
  CalcWorkbooks workbooks_;
  std::vector<CalcWorkbook*> open_;  // in opening order
  // Every workbook ever opened here, so that a Workbook& held by a caller
  // stays a valid (closed) object after Close.
  std::deque<std::unique_ptr<CalcWorkbook>> all_;
  CalcWorkbook* active_ = nullptr;
  UnbornState* waiting_ = nullptr;
  bool reading_ = false;
  uint64_t change_count_ = 0;
  WorkbookLoader loader_;
  std::vector<SwitchRecord> switches_;
  int32_t documents_since_start_ = 0;
  int32_t office_starts_ = 1;
  int32_t books_added_ = 0;
};

}  // namespace tabulon::office::uno
