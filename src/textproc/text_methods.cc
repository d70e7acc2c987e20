// The text methods: each hands its arguments to one function of the text
// library and returns that function's result unchanged. No ErrorString, no
// event, no check of its own: the meaning of the result is the library's.
#include <cstdint>
#include <string>
#include <vector>

#include "control/control_state.h"
#include "tabulon/tabulon_ctrl.h"
#include "textproc/ravelin_loader.h"

namespace tabulon {

namespace {

// One text argument on its way to the library: the caller's text in the
// system's 8-bit character set, in a buffer the library may change in place;
// WriteBack() returns the (possibly changed) text to the caller's variable.
class AnsiArg {
 public:
  explicit AnsiArg(std::string& caller) : caller_(caller) {
    const std::string ansi = ToAnsi(caller);
    buffer_.assign(ansi.begin(), ansi.end());
    buffer_.push_back('\0');
  }
  char* get() { return buffer_.data(); }
  void WriteBack() { caller_ = FromAnsi(std::string(buffer_.data())); }

 private:
  std::string& caller_;
  std::vector<char> buffer_;
};

using Fn1 = int32_t(char*);
using Fn2 = int32_t(char*, char*);
using Fn3 = int32_t(char*, char*, char*);
using Fn4 = int32_t(char*, char*, char*, char*);
using Fn2ii = int32_t(char*, char*, int32_t, int32_t);
using FnPad = int32_t(char*, char*, int32_t, char*, int32_t, char*);

int32_t Call2(RavelinLibrary& lib, const char* name, std::string& a, std::string& b) {
  auto* fn = lib.Entry<Fn2>(name);
  AnsiArg x(a), y(b);
  const int32_t result = fn(x.get(), y.get());
  x.WriteBack();
  y.WriteBack();
  return result;
}

int32_t Call3(RavelinLibrary& lib, const char* name, std::string& a, std::string& b, std::string& c) {
  auto* fn = lib.Entry<Fn3>(name);
  AnsiArg x(a), y(b), z(c);
  const int32_t result = fn(x.get(), y.get(), z.get());
  x.WriteBack();
  y.WriteBack();
  z.WriteBack();
  return result;
}

}  // namespace

int32_t TabulonCtrl::txtChangeCharacterIgnoreWithinQuotes(std::string& sInputFile, std::string& sOutputFile,
                                                          std::string& sChar, std::string& sCharReplace) {
  auto* fn = state_->text_library.Entry<Fn4>("TXTFileChangeDelimitationChar");
  AnsiArg in(sInputFile), out(sOutputFile), ch(sChar), rep(sCharReplace);
  const int32_t result = fn(in.get(), out.get(), ch.get(), rep.get());
  in.WriteBack();
  out.WriteBack();
  ch.WriteBack();
  rep.WriteBack();
  return result;
}

int32_t TabulonCtrl::csvEncaseEachFieldWithQuotes(std::string& sPathOriginal, std::string& sPathTarget) {
  return Call2(state_->text_library, "EncaseEachFieldWithQuotes", sPathOriginal, sPathTarget);
}

int32_t TabulonCtrl::csvChangeDelimitationCharacter(std::string& sInputFile, std::string& sOutputFile,
                                                    std::string& sChar) {
  return Call3(state_->text_library, "CSVFileChangeDelimitationChar", sInputFile, sOutputFile, sChar);
}

int32_t TabulonCtrl::csvPadWithSpaces(std::string& sInputFile, std::string& sOutputFile) {
  return Call2(state_->text_library, "PadCSVFileWithASpaces", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvRemoveEmptyLines(std::string& sInputFile, std::string& sOutputFile) {
  return Call2(state_->text_library, "RemoveEmptyLinesFromCSVFile", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvCropCSVFileRows(std::string& sInputFile, std::string& sOutputFile, std::string& sRowsToUse) {
  return Call3(state_->text_library, "CropCSVFileToSpecificRows", sInputFile, sOutputFile, sRowsToUse);
}

int32_t TabulonCtrl::csvCropCSVFileCols(std::string& sInputFile, std::string& sOutputFile, std::string& sColsToUse) {
  return Call3(state_->text_library, "CropCSVFileToSpecificColumns", sInputFile, sOutputFile, sColsToUse);
}

int32_t TabulonCtrl::csvPadForFixedLengthFields(std::string& sInputFile, std::string& sOutputFile, int32_t& lLength,
                                                std::string& sCharToUse, bool& bPadLeft, std::string& sColumn) {
  auto* fn = state_->text_library.Entry<FnPad>("PadCSVFileForFixedLengthFields");
  AnsiArg in(sInputFile), out(sOutputFile), pad(sCharToUse), column(sColumn);
  const int32_t pad_left = bPadLeft ? 1 : 0;
  const int32_t result = fn(in.get(), out.get(), lLength, pad.get(), pad_left, column.get());
  in.WriteBack();
  out.WriteBack();
  pad.WriteBack();
  column.WriteBack();
  return result;
}

int32_t TabulonCtrl::csvRemoveControlCharactersFromFile(std::string& sInputFile, std::string& sOutputFile) {
  return Call2(state_->text_library, "RemoveControlCharactersFromFileInQuotesOnly", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvTrimCSVFile(std::string& sInputFile, std::string& sOutputFile) {
  return Call2(state_->text_library, "TrimCSVFile", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::ConcatenateTwoTextFiles(std::string& sSourceFile, std::string& sTargetFile) {
  return Call2(state_->text_library, "ConcatenateTwoTextFiles", sSourceFile, sTargetFile);
}

int32_t TabulonCtrl::ConcatenateTwoTextFilesEx(std::string& sSourceFile, std::string& sTargetFile,
                                               int32_t& lAddPageBreak, int32_t& lPlaceFilePath) {
  auto* fn = state_->text_library.Entry<Fn2ii>("ConcatenateTwoTextFilesEx");
  AnsiArg source(sSourceFile), target(sTargetFile);
  const int32_t result = fn(source.get(), target.get(), lAddPageBreak, lPlaceFilePath);
  source.WriteBack();
  target.WriteBack();
  return result;
}

int32_t TabulonCtrl::DeleteEmptyLinesFromTextFile(std::string& sSourceFile, std::string& sTargetFile) {
  return Call2(state_->text_library, "DeleteEmptyLinesFromTextFile", sSourceFile, sTargetFile);
}

bool TabulonCtrl::IsFileUnicode(std::string& sFileToTest) {
  auto* fn = state_->text_library.Entry<Fn1>("IsUnicodeFile");
  AnsiArg path(sFileToTest);
  const int32_t result = fn(path.get());
  path.WriteBack();
  return result != 0;
}

}  // namespace tabulon
