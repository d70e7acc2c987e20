#include "tabulon/tabulon_ctrl.h"

#include <cstdlib>
#include <string>
#include <utility>

#include "control/control_state.h"
#include "control/translator.h"

namespace tabulon {

namespace {

// The control's icon; the control always takes exactly its size.
constexpr int32_t kIconWidth = 32;
constexpr int32_t kIconHeight = 32;

std::shared_ptr<office::Factory> FactoryOrDefault(const std::shared_ptr<office::Factory>& given) {
  return given ? given : office::DefaultFactory();
}

}  // namespace

std::string DefaultStateFilePath() {
  std::string base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && *xdg != '\0') {
    base = xdg;
  } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    base = std::string(home) + "/.config";
  } else {
    base = ".config";
  }
  return base + "/Brevant, Inc/Tabu.INI";
}

TabulonCtrl::State::State(ControlOptions options)
    : session(FactoryOrDefault(options.office), session_flags), text_library(std::move(options.text_library_folder)),
      dialog_plugin_folder(std::move(options.dialog_plugin_folder)),
      second_application_on_demand(options.start_second_application_on_demand) {}

void TabulonCtrl::State::ResetProperties() {
  session_flags.excel_known_installed = false;
  delimiter_code = 44;
  multi_file_output = false;
  range_text.clear();
  state_file = DefaultStateFilePath();
  // Verbose is not reset: it keeps whatever it had (False from creation).
  use_state_file = true;
  session_flags.optimize_for_speed = false;
  skip_empty_sheets = false;
  input_password.clear();
  input_password_tw.clear();
  output_password.clear();
  output_password_tw.clear();
  multifile_processing = false;
  error_text = " ";
}

int32_t TabulonCtrl::State::Fail(int32_t code, std::string_view message) {
  error_text.assign(message);
  return code;
}

void TabulonCtrl::State::RaiseOnError(int32_t code) {
  // The sinks share one pair of variables, so what one sink changes the next
  // one sees; the control's own result and ErrorString stay as they were.
  int32_t lErr = code;
  std::string sErr = error_text;
  // A sink may add or remove sinks; walk a snapshot.
  std::vector<OnErrorSink> snapshot;
  snapshot.reserve(sinks.size());
  for (const auto& [cookie, sink] : sinks) snapshot.push_back(sink);
  for (const OnErrorSink& sink : snapshot) sink(lErr, sErr);
}

int32_t TabulonCtrl::State::FailAndRaise(int32_t code, std::string_view message) {
  Fail(code, message);
  RaiseOnError(code);
  return code;
}

TabulonCtrl::TabulonCtrl() : TabulonCtrl(ControlOptions{}) {}

TabulonCtrl::TabulonCtrl(ControlOptions options) : state_(std::make_unique<State>(std::move(options))) {
  InitProperties();
}

TabulonCtrl::TabulonCtrl(PropertyBag& bag, ControlOptions options)
    : state_(std::make_unique<State>(std::move(options))) {
  ReadProperties(bag);
}

TabulonCtrl::~TabulonCtrl() {
  if (state_->use_state_file) StateFileSave();
}

void TabulonCtrl::InitProperties() {
  state_->ResetProperties();
  state_->session.ClearFinding();
}

namespace {

std::string AsText(const std::optional<PropertyValue>& value) {
  if (!value) return {};
  if (const auto* s = std::get_if<std::string>(&*value)) return *s;
  if (const auto* b = std::get_if<bool>(&*value)) return *b ? "True" : "False";
  return std::to_string(std::get<int32_t>(*value));
}

bool AsBool(const std::optional<PropertyValue>& value) {
  if (!value) return false;
  if (const auto* b = std::get_if<bool>(&*value)) return *b;
  if (const auto* n = std::get_if<int32_t>(&*value)) return *n != 0;
  const std::string& s = std::get<std::string>(*value);
  return s == "True" || s == "true" || s == "TRUE" || (!s.empty() && std::atoi(s.c_str()) != 0);
}

}  // namespace

void TabulonCtrl::ReadProperties(PropertyBag& bag) {
  state_->state_file = AsText(bag.ReadProperty("msStateFile"));
  state_->use_state_file = AsBool(bag.ReadProperty("bUseStateFile"));
  if (!state_->use_state_file) {
    state_->ResetProperties();
  } else {
    StateFileLoad();
  }
}

void TabulonCtrl::WriteProperties(PropertyBag& bag) {
  bag.WriteProperty("msStateFile", state_->state_file);
  bag.WriteProperty("bUseStateFile", state_->use_state_file);
  if (state_->use_state_file) StateFileSave();
}

int32_t TabulonCtrl::get_CO_DelimitationCharacter() { return state_->delimiter_code; }
void TabulonCtrl::put_CO_DelimitationCharacter(int32_t value) { state_->delimiter_code = value; }
bool TabulonCtrl::get_CO_MultiFileOutput() { return state_->multi_file_output; }
void TabulonCtrl::put_CO_MultiFileOutput(bool value) { state_->multi_file_output = value; }
std::string TabulonCtrl::get_CO_Range() { return state_->range_text; }
void TabulonCtrl::put_CO_Range(const std::string& value) { state_->range_text = value; }
bool TabulonCtrl::get_Verbose() { return state_->session_flags.verbose; }
void TabulonCtrl::put_Verbose(bool value) { state_->session_flags.verbose = value; }
std::string TabulonCtrl::get_StateFile() { return state_->state_file; }
void TabulonCtrl::put_StateFile(const std::string& value) { state_->state_file = value; }
bool TabulonCtrl::get_UseStateFile() { return state_->use_state_file; }
void TabulonCtrl::put_UseStateFile(bool value) { state_->use_state_file = value; }
std::string TabulonCtrl::get_ErrorString() { return state_->error_text; }
void TabulonCtrl::put_ErrorString(const std::string& value) { state_->error_text = value; }
bool TabulonCtrl::get_SkipEmptySheets() { return state_->skip_empty_sheets; }
void TabulonCtrl::put_SkipEmptySheets(bool value) { state_->skip_empty_sheets = value; }
std::string TabulonCtrl::get_InputFile_PassWord() { return state_->input_password; }
void TabulonCtrl::put_InputFile_PassWord(const std::string& value) { state_->input_password = value; }
std::string TabulonCtrl::get_InputFile_PassWord_TW() { return state_->input_password_tw; }
void TabulonCtrl::put_InputFile_PassWord_TW(const std::string& value) { state_->input_password_tw = value; }
void TabulonCtrl::put_OutputFile_PassWord(const std::string& value) { state_->output_password = value; }
std::string TabulonCtrl::get_OutputFile_PassWord_TW() { return state_->output_password_tw; }
void TabulonCtrl::put_OutputFile_PassWord_TW(const std::string& value) { state_->output_password_tw = value; }

// Reading the output password hands it to the input write-reservation
// password and answers "": hosts depend on this.
std::string TabulonCtrl::get_OutputFile_PassWord() {
  put_InputFile_PassWord_TW(state_->output_password);
  return {};
}

bool TabulonCtrl::get_MultifileProcessing() { return false; }
void TabulonCtrl::put_MultifileProcessing(bool value) {
  state_->multifile_processing = value;
  state_->multifile_text.clear();
}

int32_t TabulonCtrl::get_Width() { return kIconWidth; }
int32_t TabulonCtrl::get_Height() { return kIconHeight; }
void TabulonCtrl::put_Width(int32_t) {}
void TabulonCtrl::put_Height(int32_t) {}

bool TabulonCtrl::get_OptimizeForSpeed() { return state_->session_flags.optimize_for_speed; }

void TabulonCtrl::put_OptimizeForSpeed(bool value) {
  // Every step runs whatever the one before did; failures are ignored here
  // and show in the value read back.
  state_->session_flags.optimize_for_speed = false;
  if (!value) {
    (void)state_->session.DestroyExcel();
    (void)state_->session.DestroyExcelTarget();
    (void)state_->session.DestroyWord();
    return;
  }
  const bool excel = state_->session.CreateExcel();
  const bool target = state_->second_application_on_demand || state_->session.CreateExcelTarget();
  if (excel && target) state_->session_flags.optimize_for_speed = true;
}

namespace {

std::string ListItem(const std::vector<std::string>& list, int32_t index) {
  if (index < 1 || static_cast<size_t>(index) > list.size()) {
    throw AutomationError(AutomationError::kInvalidProcedureCall, "Invalid procedure call or argument");
  }
  return list[static_cast<size_t>(index) - 1];
}

}  // namespace

int32_t TabulonCtrl::get_FilesJustCreatedCount() { return static_cast<int32_t>(state_->files_just_created.size()); }
std::string TabulonCtrl::get_FilesJustCreated(int32_t lIndex) { return ListItem(state_->files_just_created, lIndex); }
int32_t TabulonCtrl::get_SheetsJustProcessedCount() {
  return static_cast<int32_t>(state_->sheets_just_processed.size());
}
std::string TabulonCtrl::get_SheetsJustProcessed(int32_t lIndex) {
  return ListItem(state_->sheets_just_processed, lIndex);
}

uint32_t TabulonCtrl::AdviseOnError(OnErrorSink sink) {
  const uint32_t cookie = state_->next_cookie++;
  state_->sinks.emplace(cookie, std::move(sink));
  return cookie;
}

void TabulonCtrl::UnadviseOnError(uint32_t cookie) { state_->sinks.erase(cookie); }

bool TabulonCtrl::ExcelIsInstalled() {
  state_->session.ClearFinding();
  return state_->session.ExcelIsInstalled();
}

bool TabulonCtrl::WordIsInstalled() {
  state_->session.ClearFinding();
  return state_->session.WordIsInstalled();
}

std::string TabulonCtrl::OfficeFinding() { return state_->session.finding(); }

void KillEveryOffice() { office::KillEveryOffice(); }

namespace {

// "7.4" -> 7.4, read the way the en-US locale writes numbers; text that is
// not a number gives 0.
double VersionNumber(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return end == text.c_str() ? 0.0 : value;
}

}  // namespace

namespace {

// The frame of the two version properties: start the application, read one
// number from it with errors ignored, quit. The number read is returned even
// when the quit fails.
template <typename Read>
double ReadFromExcel(TabulonCtrl::State& s, Read read) {
  s.session.ClearFinding();
  if (!s.session.CreateExcel()) {
    s.FailAndRaise(kExcelNotCreated, msg::kExcelNotCreated);
    return 0;
  }
  double number = 0;
  try {
    number = read(*s.session.xlApp());
  } catch (const std::exception& e) {
    s.session.NoteFinding(e.what());
  }
  if (!s.session.DestroyExcel()) s.FailAndRaise(kExcelNotDestroyed, msg::kExcelNotDestroyed);
  return number;
}

}  // namespace

double TabulonCtrl::get_ExcelVersion() {
  return ReadFromExcel(*state_, [](office::Application& app) { return VersionNumber(app.Version()); });
}

double TabulonCtrl::get_ExcelBuild() {
  return ReadFromExcel(*state_, [](office::Application& app) { return static_cast<double>(app.Build()); });
}

std::monostate TabulonCtrl::StateFileSave() { return {}; }

std::monostate TabulonCtrl::StateFileLoad() {
  // The state file is named but never read; the buffer it would be read into
  // is all that remains of the load.
  std::string buffer(500, '\0');
  (void)buffer;
  return {};
}

bool TabulonCtrl::InitTranslator(std::string& sParentIniFile, std::string& sLanguageFile) {
  SetTranslatorSettings(sParentIniFile, sLanguageFile);
  InitializeTranslator();
  return false;
}

}  // namespace tabulon
