#include "office/uno/calc_application.h"

#include <algorithm>
#include <charconv>

#include "office/uno/calc_range.h"
#include "office/uno/calc_workbook.h"
#include "office/uno/calc_worksheet.h"

namespace tabulon::office::uno {

CalcApplication::CalcApplication(const UnoOptions& options)
    : options_(options), session_(Session::Start(options)), workbooks_(this) {}

CalcApplication::~CalcApplication() {
  if (session_) session_->Kill();
}

CalcWorkbook& CalcApplication::Adopt(Reference<css::lang::XComponent> component, std::string name,
                                     std::string path, int32_t format) {
  all_.push_back(std::make_unique<CalcWorkbook>(this, std::move(component), std::move(name),
                                                std::move(path), format));
  CalcWorkbook* book = all_.back().get();
  open_.push_back(book);
  active_ = book;
  ++documents_since_start_;
  return *book;
}

void CalcApplication::Forget(CalcWorkbook* book) {
  open_.erase(std::remove(open_.begin(), open_.end(), book), open_.end());
  if (active_ == book) active_ = open_.empty() ? nullptr : open_.back();
}

void CalcApplication::RecycleIfDue() {
  if (!session_ || options_.recycle_after <= 0 || documents_since_start_ < options_.recycle_after ||
      !open_.empty())
    return;
  session_->Quit();
  session_.reset();
  session_ = Session::Start(options_);
  documents_since_start_ = 0;
  ++office_starts_;
  loader_.ForgetOffice();
  max_rows = max_columns = 0;
}

std::string CalcApplication::Version() {
  return Call("Application.Version", [&] { return session_->ProductSetting("ooSetupVersion"); });
}

int32_t CalcApplication::Build() {
  return Call("Application.Build", [&] {
    // "7.4.7.2": the build is the last part.
    const std::string about = session_->ProductSetting("ooSetupVersionAboutBox");
    const size_t dot = about.rfind('.');
    const std::string last = dot == std::string::npos ? about : about.substr(dot + 1);
    int32_t build = 0;
    std::from_chars(last.data(), last.data() + last.size(), build);
    return build;
  });
}

Workbook& CalcApplication::ActiveWorkbook() {
  return CallKeepingCopy("Application.ActiveWorkbook", [&]() -> Workbook& {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    return *active_;
  });
}

std::unique_ptr<Worksheet> CalcApplication::ActiveSheet() {
  return Call("Application.ActiveSheet", [&]() -> std::unique_ptr<Worksheet> {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    return std::make_unique<CalcWorksheet>(active_, active_->ActiveSheetRef());
  });
}

void CalcApplication::SetDisplayFormulas(bool value) {
  CallKeepingCopy("ActiveWindow.DisplayFormulas", [&] {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no window is active");
    active_->set_display_formulas(value);
  });
}

bool CalcApplication::DisplayFormulas() { return active_ != nullptr && active_->display_formulas(); }

std::unique_ptr<Range> CalcApplication::Selection() {
  return Call("Application.Selection", [&]() -> std::unique_ptr<Range> {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    auto [sheet, rect] = active_->SelectionRef();
    return std::make_unique<CalcRange>(active_, sheet, rect);
  });
}

void CalcApplication::Quit() {
  if (!session_) return;
  open_.clear();
  active_ = nullptr;
  loader_.ForgetOffice();
  session_->Quit();
}

bool CalcApplication::IsAlive() { return session_ && session_->Alive(); }

std::string CalcApplication::Finding() { return session_ ? session_->finding() : std::string(); }

int32_t CalcApplication::ProcessId() { return session_ ? static_cast<int32_t>(session_->pid()) : -1; }

void CalcApplication::SetCallTimeLimit(std::chrono::milliseconds limit) {
  options_.call_time_limit = limit;
  if (session_) session_->SetCallTimeLimit(limit);
}

}  // namespace tabulon::office::uno
