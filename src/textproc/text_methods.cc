// The text methods: each hands its arguments to one function of the text
// library and returns that function's result unchanged. No ErrorString, no
// event, no check of its own: the meaning of the result is the library's.
#include <cstdint>
#include <string>
#include <tuple>
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

// A whole number goes by value and comes back unchanged.
class IntArg {
 public:
  explicit IntArg(int32_t value) : value_(value) {}
  int32_t get() const { return value_; }
  void WriteBack() {}

 private:
  int32_t value_;
};

template <typename T>
struct ArgFor;
template <>
struct ArgFor<std::string&> {
  using Held = AnsiArg;
  using Passed = char*;
};
template <>
struct ArgFor<int32_t&> {
  using Held = IntArg;
  using Passed = int32_t;
};
template <>
struct ArgFor<const int32_t&> {
  using Held = IntArg;
  using Passed = int32_t;
};

// Calls the text library's `name` with the caller's arguments in order: text
// in the system's 8-bit set (handed back afterwards), numbers by value.
template <typename... Args>
int32_t CallText(RavelinLibrary& library, const char* name, Args&&... args) {
  using Fn = int32_t(typename ArgFor<Args>::Passed...);
  auto* fn = library.Entry<Fn>(name);
  std::tuple<typename ArgFor<Args>::Held...> held(args...);
  const int32_t result = std::apply([&](auto&... a) { return fn(a.get()...); }, held);
  std::apply([](auto&... a) { (a.WriteBack(), ...); }, held);
  return result;
}

}  // namespace

int32_t TabulonCtrl::txtChangeCharacterIgnoreWithinQuotes(std::string& sInputFile, std::string& sOutputFile,
                                                          std::string& sChar, std::string& sCharReplace) {
  return CallText(state_->text_library, "TXTFileChangeDelimitationChar", sInputFile, sOutputFile, sChar, sCharReplace);
}

int32_t TabulonCtrl::csvEncaseEachFieldWithQuotes(std::string& sPathOriginal, std::string& sPathTarget) {
  return CallText(state_->text_library, "EncaseEachFieldWithQuotes", sPathOriginal, sPathTarget);
}

int32_t TabulonCtrl::csvChangeDelimitationCharacter(std::string& sInputFile, std::string& sOutputFile,
                                                    std::string& sChar) {
  return CallText(state_->text_library, "CSVFileChangeDelimitationChar", sInputFile, sOutputFile, sChar);
}

int32_t TabulonCtrl::csvPadWithSpaces(std::string& sInputFile, std::string& sOutputFile) {
  return CallText(state_->text_library, "PadCSVFileWithASpaces", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvRemoveEmptyLines(std::string& sInputFile, std::string& sOutputFile) {
  return CallText(state_->text_library, "RemoveEmptyLinesFromCSVFile", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvCropCSVFileRows(std::string& sInputFile, std::string& sOutputFile, std::string& sRowsToUse) {
  return CallText(state_->text_library, "CropCSVFileToSpecificRows", sInputFile, sOutputFile, sRowsToUse);
}

int32_t TabulonCtrl::csvCropCSVFileCols(std::string& sInputFile, std::string& sOutputFile, std::string& sColsToUse) {
  return CallText(state_->text_library, "CropCSVFileToSpecificColumns", sInputFile, sOutputFile, sColsToUse);
}

int32_t TabulonCtrl::csvPadForFixedLengthFields(std::string& sInputFile, std::string& sOutputFile, int32_t& lLength,
                                                std::string& sCharToUse, bool& bPadLeft, std::string& sColumn) {
  // The flag is 1 only for True.
  const int32_t pad_left = bPadLeft ? 1 : 0;
  return CallText(state_->text_library, "PadCSVFileForFixedLengthFields", sInputFile, sOutputFile, lLength,
                  sCharToUse, pad_left, sColumn);
}

int32_t TabulonCtrl::csvRemoveControlCharactersFromFile(std::string& sInputFile, std::string& sOutputFile) {
  return CallText(state_->text_library, "RemoveControlCharactersFromFileInQuotesOnly", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::csvTrimCSVFile(std::string& sInputFile, std::string& sOutputFile) {
  return CallText(state_->text_library, "TrimCSVFile", sInputFile, sOutputFile);
}

int32_t TabulonCtrl::ConcatenateTwoTextFiles(std::string& sSourceFile, std::string& sTargetFile) {
  return CallText(state_->text_library, "ConcatenateTwoTextFiles", sSourceFile, sTargetFile);
}

int32_t TabulonCtrl::ConcatenateTwoTextFilesEx(std::string& sSourceFile, std::string& sTargetFile,
                                               int32_t& lAddPageBreak, int32_t& lPlaceFilePath) {
  return CallText(state_->text_library, "ConcatenateTwoTextFilesEx", sSourceFile, sTargetFile, lAddPageBreak,
                  lPlaceFilePath);
}

int32_t TabulonCtrl::DeleteEmptyLinesFromTextFile(std::string& sSourceFile, std::string& sTargetFile) {
  return CallText(state_->text_library, "DeleteEmptyLinesFromTextFile", sSourceFile, sTargetFile);
}

bool TabulonCtrl::IsFileUnicode(std::string& sFileToTest) {
  return CallText(state_->text_library, "IsUnicodeFile", sFileToTest) != 0;
}

}  // namespace tabulon
