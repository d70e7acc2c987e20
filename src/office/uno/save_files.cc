#include "office/uno/save_files.h"

#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "office/office.h"
#include "office/uno/text_output.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

std::string Temporary(const std::string& target, const char* tag, const char* extension) {
  // Letters, digits and "_" only before the extension: the dBase writer
  // takes the stem as its table name.
  static std::atomic<unsigned> counter{0};
  const fs::path t(target);
  return (t.parent_path() / ("tabulon_" + std::string(tag) + "_" + std::to_string(getpid()) + "_" +
                             std::to_string(counter++) + "." + extension))
      .string();
}

void RemoveQuietly(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
}

}  // namespace

SaveTemporaries::SaveTemporaries(const std::string& target, const char* extension)
    : written(Temporary(target, "office", extension)), finished(Temporary(target, "text", extension)) {}

SaveTemporaries::~SaveTemporaries() {
  RemoveQuietly(written);
  RemoveQuietly(finished);
}

void FinishTextInPlace(const std::string& written, const std::string& finished, const std::string& target,
                       const FileFormat& format, const std::vector<int>& widths) {
  std::string error;
  if (!FinishText(written, finished, format, widths, &error)) throw Error(ErrorKind::kAutomation, error);
  std::error_code ec;
  fs::rename(finished, written, ec);
  if (ec) throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
}

void MoveIntoPlace(const std::string& written, const std::string& target) {
  std::error_code ec;
  if (!fs::exists(written, ec)) throw Error(ErrorKind::kAutomation, "the office wrote nothing to " + target);
  fs::rename(written, target, ec);
  if (ec) throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
}

}  // namespace tabulon::office::uno
