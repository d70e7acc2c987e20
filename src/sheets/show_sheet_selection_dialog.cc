// ShowSheetSelectionDialog: the sheet names of a workbook, read by an office
// application of the dialog's own, shown in the modal window frmSelectSheet
// of the dialog's plug-in; the picked names come back quoted and joined by
// ",". Every failure of the preparation is -10 with the window's error text.
//
// The method does not follow the workbook-method skeleton: it never touches
// the control's session (its applications, OptimizeForSpeed, Verbose), opens
// without passwords and saves nothing, and its only failure code is -10.
#include <memory>
#include <string>
#include <vector>

#include "control/control_state.h"
#include "control/translator.h"
#include "sheets/sheet_dialog_loader.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// What the plug-in calls back with.
struct DialogReply {
  std::string selected;
  std::string error;
};

void StoreSelected(void* context, const char* text) { static_cast<DialogReply*>(context)->selected = text; }
void StoreError(void* context, const char* text) { static_cast<DialogReply*>(context)->error = text; }

// Filling the lists: the names of every worksheet, from an application that
// is started for this and always quit again. False on any office error; the
// error text stays as it was then, as the window's error trap leaves it.
bool ReadSheetNames(office::Factory& factory, const std::string& path, std::vector<std::string>& names) {
  std::unique_ptr<office::Application> app;
  try {
    app = factory.CreateExcel();
    if (!app) return false;
    app->SetDisplayAlerts(false);
    app->SetVisible(false);
    office::OpenOptions open;
    open.read_only = true;
    office::Workbook& book = app->GetWorkbooks().Open(path, open);
    names.clear();
    office::Worksheets& sheets = book.GetWorksheets();
    const int32_t count = sheets.Count();
    for (int32_t i = 1; i <= count; ++i) names.push_back(sheets.Item(i)->Name());
    app->GetWorkbooks().Close();
    app->Quit();
    return true;
  } catch (const std::exception&) {
    // Releasing the object ends its office process whatever state it is in.
    return false;
  }
}

}  // namespace

std::string TabulonCtrl::ShowSheetSelectionDialog(std::string& sXLSFile, bool& bMultipleSelect) {
  std::string result;
  DialogReply reply;
  tabulon_sheet_dialog_request request{};
  request.interface_version = TABULON_SHEET_DIALOG_INTERFACE;
  request.context = &reply;
  request.on_selected = StoreSelected;
  request.on_error = StoreError;

  auto fail = [&]() {
    state_->FailAndRaise(kSelectionDialogFailed, reply.error);
    return std::string();
  };

  if (!FileExists(sXLSFile)) {
    reply.error = std::string(msg::kDialogSourceMissingPrefix) + sXLSFile;
    return fail();
  }
  // Whether a window can be shown at all is known before an office starts.
  SheetDialogPlugin plugin;
  if (!LoadSheetDialogPlugin(state_->dialog_plugin_folder, plugin, reply.error)) return fail();
  if (plugin.probe(&request) != 0) return fail();

  std::vector<std::string> names;
  if (!ReadSheetNames(state_->session.factory(), sXLSFile, names)) return fail();

  std::vector<const char*> name_texts;
  for (const std::string& name : names) name_texts.push_back(name.c_str());
  const auto texts = TranslatedTexts("frmSelectSheet");
  std::vector<const char*> keys;
  std::vector<const char*> values;
  for (const auto& [key, value] : texts) {
    keys.push_back(key.c_str());
    values.push_back(value.c_str());
  }
  request.sheet_names = name_texts.data();
  request.sheet_count = static_cast<int>(name_texts.size());
  request.multiple_select = bMultipleSelect ? 1 : 0;
  request.text_keys = keys.data();
  request.text_values = values.data();
  request.text_count = static_cast<int>(keys.size());
  if (plugin.show(&request) != 0) return fail();
  result = reply.selected;
  return result;
}

}  // namespace tabulon
