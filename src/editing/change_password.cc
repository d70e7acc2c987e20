// ChangePassword: a copy of a workbook under new passwords, in the normal
// workbook format.
#include "control/control_state.h"
#include "control/workbook_method.h"

namespace tabulon {

int32_t TabulonCtrl::ChangePassword(std::string& sSourceFile, std::string& sTargetFile, std::string& sOriginalFilePW,
                                    std::string& sOriginalFilePWToWrite, std::string& sTargetFilePW,
                                    std::string& sTargetFilePWToWrite) {
  // The six arguments alone decide: the source is opened writable with the
  // old pair, whatever the control's password properties say.
  office::OpenOptions open;
  open.password = sOriginalFilePW;
  open.write_res_password = sOriginalFilePWToWrite;
  office::SaveAsOptions save;
  save.file_format = office::kXlWorkbookNormal;
  save.password = sTargetFilePW;
  save.write_res_password = sTargetFilePWToWrite;
  save.access_mode = office::kXlNoChange;
  return WorkbookMethod(*state_, sSourceFile, sTargetFile).OpenWith(open).SaveWith(save).Run([](MethodStep&) {});
}

}  // namespace tabulon
