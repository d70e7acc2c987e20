// Finds and loads the sheet selection dialog's plug-in. The plug-in lives in
// the "tabulon" folder beside libtabulon.so (in the build tree and in an
// installed layout alike), unless the control was given a folder of its own.
// A loaded plug-in stays loaded for the life of the process: a widget
// toolkit cannot be unloaded safely once it has run.
#pragma once

#include <string>

#include "sheets/sheet_dialog_plugin.h"

namespace tabulon {

struct SheetDialogPlugin {
  tabulon_sheet_dialog_probe_fn probe = nullptr;
  tabulon_sheet_dialog_show_fn show = nullptr;
};

// The folder the plug-in is looked for in: `folder` when not empty, else
// "<folder of libtabulon.so>/tabulon".
std::string SheetDialogPluginFolder(const std::string& folder);

// Loads the plug-in from that folder. False, with `error` saying why, when
// the file is missing, cannot be loaded (its toolkit is not installed) or
// lacks an entry point.
bool LoadSheetDialogPlugin(const std::string& folder, SheetDialogPlugin& plugin, std::string& error);

}  // namespace tabulon
