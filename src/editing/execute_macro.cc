// ExecuteMacro: a macro of a workbook run with up to eight text arguments,
// the workbook saved afterwards when asked.
#include <array>
#include <functional>
#include <vector>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// The arguments up to the last non-empty one, so that a macro always gets a
// contiguous list; none when all are empty.
std::vector<std::string> MacroArguments(const std::array<std::reference_wrapper<std::string>, 8>& args) {
  size_t count = args.size();
  while (count > 0 && args[count - 1].get().empty()) --count;
  std::vector<std::string> given;
  for (size_t i = 0; i < count; ++i) given.push_back(args[i].get());
  return given;
}

}  // namespace

int32_t TabulonCtrl::ExecuteMacro(std::string& sSourceFile, std::string& sTargetFile, std::string& sMacroName,
                                  bool& bSaveAfterExecution, std::string& sArg1, std::string& sArg2, std::string& sArg3,
                                  std::string& sArg4, std::string& sArg5, std::string& sArg6, std::string& sArg7,
                                  std::string& sArg8) {
  sSourceFile = RemoveDoubleQuotes(sSourceFile);
  // The input pair, and nothing else: the workbook is opened writable.
  office::OpenOptions open;
  open.password = state_->input_password;
  open.write_res_password = state_->input_password_tw;
  return WorkbookMethod(*state_, sSourceFile, sTargetFile).OpenWith(open).Run([&](MethodStep& step) {
    sMacroName = RemoveDoubleQuotes(sMacroName);
    step.app().Run(sMacroName, MacroArguments({sArg1, sArg2, sArg3, sArg4, sArg5, sArg6, sArg7, sArg8}));
    // The source is never written unless asked: then the skeleton's save
    // writes the target in the normal workbook format.
    if (!bSaveAfterExecution) step.SkipSave();
  });
}

}  // namespace tabulon
