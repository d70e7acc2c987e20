// The C exports: argument checks first, then one call into the library; no
// exception crosses this line.
#include <new>

#include "concatenate.h"
#include "encoding.h"
#include "item_list.h"
#include "ravelin/ravelin.h"
#include "rewrite_file.h"
#include "transforms.h"

namespace ravelin {
namespace {

constexpr int32_t kMaxFixedLength = 65536;

bool IsPath(const char* path) { return path != nullptr && path[0] != '\0'; }

// One ASCII byte, 0x01 to 0x7F: never a part of a UTF-8 character.
bool OneAsciiChar(const char* text, char* c) {
  if (text == nullptr || text[0] == '\0' || text[1] != '\0') return false;
  if (static_cast<unsigned char>(text[0]) > 0x7F) return false;
  *c = text[0];
  return true;
}

bool IsLineBreak(char c) { return c == '\r' || c == '\n'; }

bool IsBlankText(const char* text) {
  for (; *text != '\0'; ++text) {
    if (*text != ' ' && *text != '\t') return false;
  }
  return true;
}

template <typename Body>
int32_t Guard(Body body) {
  try {
    return ToCode(body());
  } catch (const std::bad_alloc&) {
    return RAVELIN_E_MEMORY;
  } catch (...) {
    return RAVELIN_E_INTERNAL;
  }
}

template <typename Rewrite>
int32_t Rewrite2(const char* in, const char* out, Rewrite rewrite) {
  return Guard([&] {
    if (!IsPath(in) || !IsPath(out)) return Status::kArgument;
    return RewriteFile(in, out, rewrite);
  });
}

int32_t Join(const char* inputs, const char* out, const JoinOptions& options) {
  return Guard([&] {
    if (inputs == nullptr || !IsPath(out)) return Status::kArgument;
    std::vector<std::string> paths;
    RAVELIN_RETURN_IF_ERROR(ExpandInputList(inputs, out, &paths));
    return JoinFiles(paths, out, options);
  });
}

}  // namespace
}  // namespace ravelin

using ravelin::Input;
using ravelin::Output;
using ravelin::Status;

extern "C" {

RAVELIN_EXPORT int32_t TXTFileChangeDelimitationChar(const char* in, const char* out, const char* character,
                                                     const char* replacement) {
  return ravelin::Guard([&] {
    char from = 0, to = 0;
    if (!ravelin::IsPath(in) || !ravelin::IsPath(out) || !ravelin::OneAsciiChar(character, &from) ||
        !ravelin::OneAsciiChar(replacement, &to) || from == '"' || to == '"') {
      return Status::kArgument;
    }
    return ravelin::RewriteFile(
        in, out, [&](Input& i, Output& o) { return ravelin::ChangeCharacter(i, o, from, to, false); });
  });
}

RAVELIN_EXPORT int32_t CSVFileChangeDelimitationChar(const char* in, const char* out, const char* character) {
  return ravelin::Guard([&] {
    char to = 0;
    if (!ravelin::IsPath(in) || !ravelin::IsPath(out) || !ravelin::OneAsciiChar(character, &to) || to == '"' ||
        ravelin::IsLineBreak(to)) {
      return Status::kArgument;
    }
    return ravelin::RewriteFile(
        in, out, [&](Input& i, Output& o) { return ravelin::ChangeCharacter(i, o, ',', to, true); });
  });
}

RAVELIN_EXPORT int32_t EncaseEachFieldWithQuotes(const char* in, const char* out) {
  return ravelin::Rewrite2(in, out, ravelin::EncaseFields);
}

RAVELIN_EXPORT int32_t PadCSVFileWithASpaces(const char* in, const char* out) {
  return ravelin::Rewrite2(in, out, ravelin::PadEmptyFields);
}

RAVELIN_EXPORT int32_t RemoveEmptyLinesFromCSVFile(const char* in, const char* out) {
  return ravelin::Rewrite2(in, out, ravelin::RemoveEmptyRecords);
}

RAVELIN_EXPORT int32_t CropCSVFileToSpecificRows(const char* in, const char* out, const char* rowlist) {
  return ravelin::Guard([&] {
    if (!ravelin::IsPath(in) || !ravelin::IsPath(out) || rowlist == nullptr) return Status::kArgument;
    ravelin::RangeSet rows;
    RAVELIN_RETURN_IF_ERROR(ravelin::RangeSet::Parse(rowlist, &rows));
    return ravelin::RewriteFile(in, out, [&](Input& i, Output& o) { return ravelin::KeepRows(i, o, rows); });
  });
}

RAVELIN_EXPORT int32_t CropCSVFileToSpecificColumns(const char* in, const char* out, const char* collist) {
  return ravelin::Guard([&] {
    if (!ravelin::IsPath(in) || !ravelin::IsPath(out) || collist == nullptr) return Status::kArgument;
    ravelin::RangeSet columns;
    RAVELIN_RETURN_IF_ERROR(ravelin::RangeSet::Parse(collist, &columns));
    return ravelin::RewriteFile(in, out,
                                [&](Input& i, Output& o) { return ravelin::KeepColumns(i, o, columns); });
  });
}

RAVELIN_EXPORT int32_t PadCSVFileForFixedLengthFields(const char* in, const char* out, int32_t length,
                                                      const char* padchar, int32_t padleft,
                                                      const char* columnlist) {
  return ravelin::Guard([&] {
    char pad = 0;
    if (!ravelin::IsPath(in) || !ravelin::IsPath(out) || columnlist == nullptr || length < 1 ||
        length > ravelin::kMaxFixedLength || !ravelin::OneAsciiChar(padchar, &pad) || pad == '"' || pad == ',' ||
        ravelin::IsLineBreak(pad)) {
      return Status::kArgument;
    }
    ravelin::FixedLength layout{static_cast<uint32_t>(length), pad, padleft != 0, ravelin::RangeSet::All()};
    if (!ravelin::IsBlankText(columnlist)) {
      RAVELIN_RETURN_IF_ERROR(ravelin::RangeSet::Parse(columnlist, &layout.columns));
    }
    return ravelin::RewriteFile(in, out,
                                [&](Input& i, Output& o) { return ravelin::PadToFixedLength(i, o, layout); });
  });
}

RAVELIN_EXPORT int32_t RemoveControlCharactersFromFileInQuotesOnly(const char* in, const char* out) {
  return ravelin::Rewrite2(in, out, ravelin::RemoveQuotedControls);
}

RAVELIN_EXPORT int32_t TrimCSVFile(const char* in, const char* out) {
  return ravelin::Rewrite2(in, out, ravelin::TrimFields);
}

RAVELIN_EXPORT int32_t ConcatenateTwoTextFiles(const char* source, const char* target) {
  return ConcatenateTwoTextFilesEx(source, target, 0, 0);
}

RAVELIN_EXPORT int32_t ConcatenateTwoTextFilesEx(const char* source, const char* target, int32_t lAddPageBreak,
                                                 int32_t lPlaceFilePath) {
  return ravelin::Guard([&] {
    if (!ravelin::IsPath(source) || !ravelin::IsPath(target)) return Status::kArgument;
    return ravelin::AppendFile(source, target, lAddPageBreak != 0, lPlaceFilePath != 0);
  });
}

RAVELIN_EXPORT int32_t DeleteEmptyLinesFromTextFile(const char* source, const char* target) {
  return ravelin::Rewrite2(source, target, ravelin::RemoveBlankLines);
}

RAVELIN_EXPORT int32_t IsUnicodeFile(const char* path) {
  if (!ravelin::IsPath(path)) return RAVELIN_E_ARGUMENT;
  ravelin::Fd fd;
  uint64_t size = 0;
  Status s = ravelin::OpenInput(path, &fd, &size);
  if (!ravelin::Ok(s)) return ravelin::ToCode(s);
  ravelin::Encoding encoding = ravelin::Encoding::k8Bit;
  s = ravelin::DetectFileEncoding(fd.get(), &encoding);
  if (!ravelin::Ok(s)) return ravelin::ToCode(s);
  return ravelin::TextKind(encoding);
}

RAVELIN_EXPORT int32_t FillToDoItemsArray(const char* list, int32_t* array, int32_t capacity) {
  if (list == nullptr || array == nullptr || capacity < 0) return RAVELIN_E_ARGUMENT;
  int32_t pairs = 0;
  ravelin::ForEachItem(list, [&](ravelin::ItemKind kind, ravelin::ItemRange range) {
    if (kind != ravelin::ItemKind::kRange) return true;
    // Pair k takes elements 2k and 2k+1; the element `capacity` and any
    // beyond belong to the caller.
    if (2 * int64_t{pairs} + 1 >= capacity) return false;
    array[2 * pairs] = range.first;
    array[2 * pairs + 1] = range.last;
    ++pairs;
    return true;
  });
  return pairs;
}

RAVELIN_EXPORT int32_t ConcatenateAll(const char* inputs, const char* out) {
  return ravelin::Join(inputs, out, {ravelin::JoinMode::kWhole, {}});
}

RAVELIN_EXPORT int32_t ConcatenateAllSkipFirstLine(const char* inputs, const char* out) {
  return ravelin::Join(inputs, out, {ravelin::JoinMode::kSkipFirstRecord, {}});
}

RAVELIN_EXPORT int32_t ConcatenateSpreadsheet(const char* inputs, const char* out) {
  return ravelin::Join(inputs, out, {ravelin::JoinMode::kSkipRepeatedHeader, {}});
}

RAVELIN_EXPORT int32_t ConcatenateSpreadsheetAddColumnWithOriginalFileName(const char* inputs, const char* out,
                                                                          const char* columntitle) {
  return ravelin::Join(inputs, out,
                       {ravelin::JoinMode::kAddFileName, columntitle != nullptr ? columntitle : ""});
}

}  // extern "C"
