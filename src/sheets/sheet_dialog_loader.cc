#include "sheets/sheet_dialog_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <map>
#include <mutex>

namespace tabulon {

namespace {

std::string OwnFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&OwnFolder), &info) == 0 || info.dli_fname == nullptr) return ".";
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

}  // namespace

std::string SheetDialogPluginFolder(const std::string& folder) {
  return folder.empty() ? OwnFolder() + "/" TABULON_PLUGIN_FOLDER : folder;
}

bool LoadSheetDialogPlugin(const std::string& folder, SheetDialogPlugin& plugin, std::string& error) {
  // One handle per path for the process; never closed (see the header).
  static std::mutex mutex;
  static std::map<std::string, void*> handles;
  const std::string path = SheetDialogPluginFolder(folder) + "/" TABULON_SHEET_DIALOG_LIBRARY;
  std::lock_guard lock(mutex);
  void*& handle = handles[path];
  if (handle == nullptr) {
    if (access(path.c_str(), F_OK) != 0) {
      error = "The sheet selection dialog is not installed: " + path + " is missing";
      return false;
    }
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      const char* why = dlerror();
      error = "The sheet selection dialog cannot be loaded: " + std::string(why ? why : path);
      return false;
    }
  }
  plugin.probe = reinterpret_cast<tabulon_sheet_dialog_probe_fn>(dlsym(handle, TABULON_SHEET_DIALOG_PROBE));
  plugin.show = reinterpret_cast<tabulon_sheet_dialog_show_fn>(dlsym(handle, TABULON_SHEET_DIALOG_SHOW));
  if (plugin.probe == nullptr || plugin.show == nullptr) {
    error = "The sheet selection dialog's library " + path + " lacks its entry points";
    return false;
  }
  return true;
}

}  // namespace tabulon
