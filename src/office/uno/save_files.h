// The files of a save in progress and how the finished one takes its
// target's place. Internal to the backend.
#pragma once

#include <string>
#include <vector>

#include "office/uno/file_formats.h"

namespace tabulon::office::uno {

// The two files of a save in progress, in a private folder of the office's
// profile: what the filter writes and what post-processing makes of it.
// Removed whatever happens; a killed office takes them with its profile, so
// nothing half written is ever left beside the target.
struct SaveTemporaries {
  SaveTemporaries(const std::string& profile_dir, const char* extension);
  ~SaveTemporaries();
  SaveTemporaries(const SaveTemporaries&) = delete;
  SaveTemporaries& operator=(const SaveTemporaries&) = delete;
  const std::string written;
  const std::string finished;
};

// Post-processes the filter's text into `finished` and puts it back in
// `written`'s place.
void FinishTextInPlace(const std::string& written, const std::string& finished, const std::string& target,
                       const FileFormat& format, const std::vector<int>& widths);

// Puts the finished file in the target's place, replacing any older one only
// by a complete file: a rename, or across file systems a copy beside the
// target renamed over it.
void MoveIntoPlace(const std::string& written, const std::string& target);

}  // namespace tabulon::office::uno
