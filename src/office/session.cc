#include "office/session.h"

#include <utility>

namespace tabulon::office {

Session::Session(std::shared_ptr<Factory> factory, SessionFlags& flags)
    : factory_(std::move(factory)), flags_(flags) {}

// Applications still held (a control released while keeping its office
// alive) end with their objects: an application object always ends its
// process when it is destroyed.
Session::~Session() = default;

bool Session::ExcelIsInstalled() {
  if (flags_.excel_known_installed) return true;
  if (!excel_probed_) {
    excel_probed_ = true;
    try {
      // Released at once, without Quit: the object ends its own process.
      std::unique_ptr<Application> probe = factory_->CreateExcel();
      excel_probe_result_ = probe != nullptr;
    } catch (const std::exception& e) {
      excel_probe_finding_ = e.what();
      excel_probe_result_ = false;
    }
  }
  if (!excel_probe_result_) NoteFinding(excel_probe_finding_);
  return excel_probe_result_;
}

bool Session::WordIsInstalled() {
  if (!word_probed_) {
    word_probed_ = true;
    try {
      std::unique_ptr<WordApplication> probe = factory_->CreateWord();
      if (probe) {
        probe->Quit();
        word_probe_result_ = true;
      }
    } catch (const std::exception& e) {
      word_probe_finding_ = e.what();
      word_probe_result_ = false;
    }
  }
  if (!word_probe_result_) NoteFinding(word_probe_finding_);
  return word_probe_result_;
}

bool Session::CreateExcelInto(std::unique_ptr<Application>& app) {
  try {
    std::unique_ptr<Application> created;
    if (!flags_.excel_known_installed && !excel_probed_ && !(app && app->IsAlive())) {
      // The application created here answers the install probe as well: it
      // is what the probe would have created and released, and starting an
      // office only to end it again would double the start of every call.
      excel_probed_ = true;
      try {
        created = factory_->CreateExcel();
      } catch (const std::exception& e) {
        excel_probe_finding_ = e.what();
      }
      excel_probe_result_ = created != nullptr;
      if (!created) {
        NoteFinding(excel_probe_finding_);
        return false;
      }
    } else {
      if (!ExcelIsInstalled()) return false;
      if (app && app->IsAlive()) return true;
      app.reset();  // an office that died between calls is never reused
      created = factory_->CreateExcel();
      if (!created) return false;
    }
    const bool verbose = flags_.verbose;
    created->SetDisplayAlerts(verbose);
    created->SetEnableEvents(false);
    created->SetVisible(false);
    created->SetDisplayAlerts(verbose);
    created->SetAskToUpdateLinks(verbose);
    created->SetAlertBeforeOverwriting(verbose);
    created->SetPromptForSummaryInfo(verbose);
    app = std::move(created);
    flags_.excel_known_installed = true;
    return true;
  } catch (const std::exception& e) {
    NoteFinding(e.what());
    return false;
  }
}

bool Session::DestroyExcelIn(std::unique_ptr<Application>& app) {
  try {
    if (!app) return true;
    if (!ExcelIsInstalled()) return false;
    // An office that died under the method is of no use to the next call,
    // whatever the optimisation flag says: drop it, and report the failure.
    if (!app->IsAlive()) {
      NoteFinding(app->Finding());
      app.reset();
      return false;
    }
    if (flags_.optimize_for_speed) return true;
    app->SetEnableEvents(true);
    app->Quit();
    app.reset();
    return true;
  } catch (const std::exception& e) {
    NoteFinding(e.what());
    // The object is released (and its process ended) even when Quit failed,
    // so a failed destroy never leaves an office behind.
    app.reset();
    return false;
  }
}

bool Session::CreateExcel() { return CreateExcelInto(xl_app_); }
bool Session::DestroyExcel() { return DestroyExcelIn(xl_app_); }
bool Session::CreateExcelTarget() { return CreateExcelInto(xl_app_target_); }
bool Session::DestroyExcelTarget() { return DestroyExcelIn(xl_app_target_); }

bool Session::WordIsAlive() {
  if (!wd_app_) return false;
  try {
    (void)wd_app_->Version();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool Session::CreateWord() {
  try {
    if (WordIsAlive()) return true;
    if (!WordIsInstalled()) return false;
    wd_app_.reset();  // a dead one is never reused
    std::unique_ptr<WordApplication> created = factory_->CreateWord();
    if (!created) return false;
    created->SetDisplayAlerts(static_cast<int16_t>(flags_.verbose ? -1 : 0));
    created->SetVisible(false);
    wd_app_ = std::move(created);
    return true;
  } catch (const std::exception& e) {
    NoteFinding(e.what());
    return false;
  }
}

bool Session::DestroyWord() {
  if (!WordIsAlive()) {
    if (wd_app_) NoteFinding(wd_app_->Finding());
    wd_app_.reset();
    return true;
  }
  if (!WordIsInstalled()) return false;
  if (!flags_.optimize_for_speed) {
    try {
      wd_app_->Quit();
    } catch (const std::exception& e) {
      NoteFinding(e.what());
      wd_app_.reset();
      return false;
    }
    wd_app_.reset();
  }
  return true;
}

}  // namespace tabulon::office
