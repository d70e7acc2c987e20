// The prepared office profile: made once per office installation, copied
// into the private profile folder of every office. Plain POSIX.
//
// An office started on an empty profile folder first sets the profile up (a
// start of its own that exits, asking to be started again), and every start
// of a profile that has never recorded this office's version runs the
// office's graphics self-test. Both cost more than the rest of a start. The
// cache keeps one profile that has been through that, with Tabulon's settings
// in it, and each office gets a copy: it still has a profile of its own.
//
// The cache folder holds, per office installation (program folder, locale
// and settings), one folder `office-<hash>` with a manifest written last:
// what it was made for (the office's version and the identity of its files)
// and every file with its size. A folder without a complete manifest, made
// for another office, or with a file whose size differs is rebuilt. It is
// built beside its final name and renamed into place under a lock file, so
// two programs starting offices at once neither break it nor each other; a
// copy is made through the manifest from one opened folder, so a folder
// replaced meanwhile is never mixed with its successor.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tabulon::office::uno {

// The folder of prepared profiles: the environment variable
// TABULON_PROFILE_CACHE (the value "off" turns the cache off), else
// $XDG_CACHE_HOME/tabulon, else $HOME/.cache/tabulon. Empty when the cache is
// off or there is no home folder.
std::string ProfileCacheFolder();

// The office installed in a program folder, as the cache tells it apart.
struct OfficeIdentity {
  std::string program_dir;  // with symbolic links resolved
  std::string version;      // "7.4" (ooSetupVersion); empty when unknown
  std::string about;        // "7.4.7.2" (ooSetupVersionAboutBox)
  std::string key;          // version, locale and the size and time of the office's files
};
OfficeIdentity IdentifyOffice(const std::string& program_dir);

// The settings every office of Tabulon runs with, as the office's own
// registry file (user/registrymodifications.xcu). `version` is the office's
// version, recorded so that the office does not take its profile for one
// left by an older version (which makes it run its graphics self-test at
// every start); empty leaves it out.
std::string ProfileSettings(const std::string& version);

// Writes the settings and the profile's temporary folder into a new profile
// folder.
bool WriteProfileSettings(const std::string& profile_dir, const std::string& version, std::string* reason);

// Prepares a fresh profile in `dir` (the settings, then the office's first
// start). Supplied by the office process; the cache calls it to build.
using FreshProfileMaker = bool (*)(const std::string& program_dir, const std::string& dir,
                                   std::chrono::milliseconds limit, std::string* reason);

// Fills `profile_dir` (existing and empty) with a copy of the prepared
// profile of the office in `program_dir`, preparing it first (with `make`)
// when the cache has none, a damaged one or one made for another office.
// False when the cache cannot be used (turned off, not writable, the
// preparation failed, the lock not had in time): `profile_dir` is then empty
// again and the caller prepares a fresh profile itself.
bool CopyPreparedProfile(const std::string& program_dir, const std::string& profile_dir,
                         std::chrono::milliseconds limit, FreshProfileMaker make);

// Removes what programs killed while preparing a profile left in the cache
// folder. Runs once per program, the first time the cache is used.
void SweepAbandonedPreparations(const std::string& cache_dir);

// What the cache did in this program, for tests and benchmarks.
struct ProfileCacheCounts {
  int32_t built = 0;   // prepared profiles put into the cache
  int32_t copied = 0;  // offices given a copy
};
ProfileCacheCounts ProfileCacheCounters();

}  // namespace tabulon::office::uno
