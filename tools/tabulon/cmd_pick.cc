// tabulon pick (ShowSheetSelectionDialog): lets the person at the desktop
// pick sheets of a workbook in the selection dialog and prints what was
// picked, for scripts. Cancelling prints nothing and succeeds.
#include <memory>
#include <string>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

struct PickOptions {
  std::string book;
  bool multiple = false;
  std::string language;
  std::string settings;
};

int RunPick(TabulonCtrl& control, const PickOptions& o) {
  if (!o.language.empty()) {
    std::string settings = o.settings.empty() ? control.get_StateFile() : Absolute(o.settings);
    std::string language = o.language;
    control.InitTranslator(settings, language);
  }
  std::string book = Absolute(o.book);
  bool multiple = o.multiple;
  // The method answers "" both for a cancelled window and for a failure;
  // only the event tells them apart.
  bool failed = false;
  const uint32_t cookie = control.AdviseOnError([&](int32_t&, std::string&) { failed = true; });
  const std::string picked = control.ShowSheetSelectionDialog(book, multiple);
  control.UnadviseOnError(cookie);
  if (failed) return Report("pick", kSelectionDialogFailed, control.get_ErrorString());
  if (!picked.empty()) Out() << picked << "\n";
  return kExitSuccess;
}

void AddPickCommand(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<PickOptions>();
  CLI::App* command = parser.add_subcommand(
      "pick", "Show the sheet selection dialog and print the picked sheets as \"Name\",\"Name\"");
  command->alias("ShowSheetSelectionDialog");
  command->add_option("BOOK", o->book, "Workbook whose sheets are listed (sXLSFile)")->required();
  command->add_flag("-m,--multiple", o->multiple, "Let several sheets be picked (bMultipleSelect)");
  command->add_option("-l,--language", o->language,
                      "Language file, e.g. German.lng, read from the Languages folder beside --settings");
  command->add_option("--settings", o->settings,
                      "Settings file whose folder holds Languages/ (default: the control's StateFile)");
  commands.push_back({command, [o](TabulonCtrl& control) { return RunPick(control, *o); }});
}

const CommandGroup kPick(40, AddPickCommand);

}  // namespace

}  // namespace tabulon::cli
