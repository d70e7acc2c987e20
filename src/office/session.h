// The control's office session: the application objects it holds, the
// install probes with their per-instance caches, and the routines that start,
// configure and quit the applications. Each routine answers with a plain
// success flag; office errors never leave them. The calling method turns a
// false into its own result code (-3/-4, -12/-13).
#pragma once

#include <memory>

#include "office/office.h"

namespace tabulon::office {

// The control's fields the session reads or sets. They belong to the control
// (its property reset clears them), the session only refers to them.
struct SessionFlags {
  bool verbose = false;
  bool optimize_for_speed = false;
  bool excel_known_installed = false;
};

class Session {
 public:
  Session(std::shared_ptr<Factory> factory, SessionFlags& flags);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Probes start an application once per session and end it again before
  // they return; the answer is kept for the life of the session. The
  // spreadsheet probe is skipped once an application was created.
  bool ExcelIsInstalled();
  bool WordIsInstalled();

  // Create reuses a running application (settings are not applied again).
  // The first spreadsheet application of a session that has not probed yet
  // is the probe: its creation answers it, and no office is started only to
  // be ended. Destroy leaves it running while optimize_for_speed is set.
  bool CreateExcel();
  bool DestroyExcel();
  bool CreateExcelTarget();
  bool DestroyExcelTarget();
  bool CreateWord();
  bool DestroyWord();
  bool WordIsAlive();

  Application* xlApp() { return xl_app_.get(); }
  Application* xlAppTarget() { return xl_app_target_.get(); }
  WordApplication* wdApp() { return wd_app_.get(); }
  bool ExcelCreated() const { return xl_app_ != nullptr; }

  // What was found about the offices since ClearFinding, beside the
  // methods' own results: why one could not be started, the office error a
  // method's error trap kept, how one died or that the watchdog stopped it.
  // The first finding of a call is kept (it is the cause of what follows).
  const std::string& finding() const { return finding_; }
  void ClearFinding() { finding_.clear(); }
  void NoteFinding(const std::string& text) {
    if (finding_.empty()) finding_ = text;
  }
  bool ExcelTargetCreated() const { return xl_app_target_ != nullptr; }
  // Starts applications that are not the session's (the selection dialog
  // reads its workbook in an office of its own).
  Factory& factory() { return *factory_; }

 private:
  bool CreateExcelInto(std::unique_ptr<Application>& app);
  bool DestroyExcelIn(std::unique_ptr<Application>& app);

  std::shared_ptr<Factory> factory_;
  SessionFlags& flags_;
  std::unique_ptr<Application> xl_app_;
  std::unique_ptr<Application> xl_app_target_;
  std::unique_ptr<WordApplication> wd_app_;
  bool excel_probed_ = false;
  bool excel_probe_result_ = false;
  bool word_probed_ = false;
  bool word_probe_result_ = false;
  std::string excel_probe_finding_;
  std::string word_probe_finding_;
  std::string finding_;
};

}  // namespace tabulon::office
