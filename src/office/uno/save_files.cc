#include "office/uno/save_files.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>

#include "office/office.h"
#include "office/uno/text_output.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

std::atomic<unsigned> counter{0};

std::string Temporary(const std::string& profile_dir, const char* tag, const char* extension) {
  // Letters, digits and "_" only before the extension: the dBase writer
  // takes the stem as its table name.
  const fs::path folder = fs::path(profile_dir) / "saves";
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec) throw Error(ErrorKind::kAutomation, "cannot make the office's save folder: " + ec.message());
  return (folder / ("tabulon_" + std::string(tag) + "_" + std::to_string(counter++) + "." + extension)).string();
}

void RemoveQuietly(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
}

}  // namespace

SaveTemporaries::SaveTemporaries(const std::string& profile_dir, const char* extension)
    : written(Temporary(profile_dir, "office", extension)), finished(Temporary(profile_dir, "text", extension)) {}

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
  if (!ec) return;
  if (ec != std::errc::cross_device_link)
    throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
  // Another file system: copied beside the target under a hidden name, then
  // renamed over it, so the target is never seen half written.
  const fs::path t(target);
  const fs::path beside = t.parent_path() / ("." + t.filename().string() + ".tabulon_" +
                                              std::to_string(getpid()) + "_" + std::to_string(counter++));
  fs::copy_file(written, beside, fs::copy_options::overwrite_existing, ec);
  if (!ec) fs::rename(beside, target, ec);
  if (ec) {
    RemoveQuietly(beside);
    throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
  }
  RemoveQuietly(written);
}

}  // namespace tabulon::office::uno
