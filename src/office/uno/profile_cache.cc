#include "office/uno/profile_cache.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "office/uno/office_process.h"

namespace tabulon::office::uno {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kManifestName = "tabulon-profile.manifest";
constexpr const char* kManifestFirstLine = "tabulon prepared office profile 1";
constexpr const char* kBuildPrefix = ".build-";
constexpr const char* kStalePrefix = ".stale-";

std::atomic<int32_t> g_built{0};
std::atomic<int32_t> g_copied{0};

// FNV-1a, 64 bits: names folders after what they were made for and checks
// the files of a copy. Not a defence against anyone, only against damage.
class Fnv {
 public:
  void Add(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) {
      value_ ^= bytes[i];
      value_ *= 0x100000001b3ull;
    }
  }
  void Add(const std::string& text) { Add(text.data(), text.size()); }
  std::string Hex() const {
    char buf[17];
    snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(value_));
    return buf;
  }

 private:
  uint64_t value_ = 0xcbf29ce484222325ull;
};

// "size:mtime:inode" of a file, or "-" when it is missing: an office
// installed again or updated in place changes at least one of them.
std::string FileStamp(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return "-";
  return std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_sec) + "." +
         std::to_string(st.st_mtim.tv_nsec) + ":" + std::to_string(st.st_ino);
}

// The text of a property in the office's own configuration data, such as
// <prop oor:name="ooSetupVersion"><value>7.4</value>: read once per state of
// the file.
std::string ConfigValue(const std::string& text, const std::string& name) {
  const std::string at = "oor:name=\"" + name + "\">";
  const size_t prop = text.find(at);
  if (prop == std::string::npos) return {};
  const size_t open = text.find("<value>", prop + at.size());
  if (open == std::string::npos || open > prop + at.size() + 64) return {};
  const size_t begin = open + 7;
  const size_t end = text.find("</value>", begin);
  if (end == std::string::npos || end - begin > 64) return {};
  const std::string value = text.substr(begin, end - begin);
  if (value.find_first_not_of("0123456789.") != std::string::npos) return {};
  return value;
}

struct Versions {
  std::string version;
  std::string about;
};

Versions ReadVersions(const std::string& main_xcd, const std::string& stamp) {
  static std::mutex mutex;
  static auto* known = new std::map<std::string, Versions>();  // by path and stamp
  std::lock_guard<std::mutex> lock(mutex);
  const std::string id = main_xcd + "|" + stamp;
  if (auto it = known->find(id); it != known->end()) return it->second;
  std::ifstream in(main_xcd, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  Versions v{ConfigValue(text.str(), "ooSetupVersion"), ConfigValue(text.str(), "ooSetupVersionAboutBox")};
  (*known)[id] = v;
  return v;
}

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Copies one open file to another, returning its size and checksum.
bool CopyContent(int in, int out, uint64_t* size, std::string* hash) {
  Fnv fnv;
  std::vector<char> buf(64 * 1024);
  uint64_t total = 0;
  for (;;) {
    const ssize_t n = read(in, buf.data(), buf.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    fnv.Add(buf.data(), static_cast<size_t>(n));
    if (out >= 0 && !WriteAll(out, buf.data(), static_cast<size_t>(n))) return false;
    total += static_cast<uint64_t>(n);
  }
  *size = total;
  *hash = fnv.Hex();
  return true;
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }

 private:
  int fd_;
};

// One entry of a manifest: a folder, or a file with its size and checksum.
struct Entry {
  bool folder = false;
  uint64_t size = 0;
  std::string hash;
  std::string path;  // relative, without ".." or a leading "/"
};

struct Manifest {
  std::string key;
  std::vector<Entry> entries;
};

bool SafeRelative(const std::string& path) {
  if (path.empty() || path[0] == '/') return false;
  for (const auto& part : fs::path(path)) {
    if (part == ".." || part == ".") return false;
  }
  return true;
}

// Reads a manifest; false unless it is complete (its last line is "end")
// and every line is well formed.
bool ParseManifest(const std::string& text, Manifest* manifest) {
  std::istringstream in(text);
  std::string line;
  if (!std::getline(in, line) || line != kManifestFirstLine) return false;
  if (!std::getline(in, line) || line.rfind("key ", 0) != 0) return false;
  manifest->key = line.substr(4);
  while (std::getline(in, line)) {
    if (line == "end") return !std::getline(in, line);
    Entry entry;
    if (line.rfind("dir ", 0) == 0) {
      entry.folder = true;
      entry.path = line.substr(4);
    } else if (line.rfind("file ", 0) == 0) {
      std::istringstream fields(line.substr(5));
      fields >> entry.size >> entry.hash;
      if (!fields || entry.hash.size() != 16 || fields.get() != ' ') return false;
      std::getline(fields, entry.path);
    } else {
      return false;
    }
    if (!SafeRelative(entry.path)) return false;
    manifest->entries.push_back(std::move(entry));
  }
  return false;
}

bool ReadWhole(int dir_fd, const char* name, std::string* text) {
  Fd fd(openat(dir_fd, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd.ok()) return false;
  char buf[8192];
  for (;;) {
    const ssize_t n = read(fd.get(), buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    text->append(buf, static_cast<size_t>(n));
  }
}

// Copies the prepared profile in `source` into the empty `target` through
// its manifest, from one opened folder: should the folder be replaced
// meanwhile, the copy fails instead of mixing two of them. False when the
// folder is missing, incomplete, made for another key, or a file differs
// from the manifest.
bool CopyPrepared(const std::string& source, const std::string& key, const std::string& target) {
  Fd src(open(source.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!src.ok()) return false;
  std::string text;
  Manifest manifest;
  if (!ReadWhole(src.get(), kManifestName, &text) || !ParseManifest(text, &manifest) || manifest.key != key)
    return false;
  Fd dst(open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dst.ok()) return false;
  for (const Entry& entry : manifest.entries) {
    if (entry.folder) {
      if (mkdirat(dst.get(), entry.path.c_str(), 0700) != 0) return false;
      continue;
    }
    Fd in(openat(src.get(), entry.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!in.ok()) return false;
    struct stat st;
    if (fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) != entry.size)
      return false;
    Fd out(openat(dst.get(), entry.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!out.ok()) return false;
    uint64_t size = 0;
    std::string hash;
    if (!CopyContent(in.get(), out.get(), &size, &hash) || size != entry.size || hash != entry.hash)
      return false;
  }
  return true;
}

// Empties a folder without removing it.
void Empty(const std::string& dir) {
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code ignored;
    fs::remove_all(it->path(), ignored);
  }
}

// The manifest of a freshly prepared profile: every folder before what it
// holds, every regular file with its size and checksum. False when the
// folder holds anything else (links, sockets), which a copy could not
// reproduce.
bool WriteManifest(const std::string& dir, const std::string& key) {
  std::vector<Entry> entries;
  std::error_code ec;
  std::vector<fs::path> paths;
  for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    paths.push_back(it->path());
  if (ec) return false;
  std::sort(paths.begin(), paths.end());  // a folder sorts before its contents
  for (const fs::path& path : paths) {
    Entry entry;
    entry.path = path.lexically_relative(dir).string();
    if (entry.path == kManifestName) continue;
    const fs::file_status status = fs::symlink_status(path, ec);
    if (ec) return false;
    if (fs::is_directory(status)) {
      entry.folder = true;
    } else if (fs::is_regular_file(status)) {
      Fd in(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
      if (!in.ok() || !CopyContent(in.get(), -1, &entry.size, &entry.hash)) return false;
    } else {
      return false;
    }
    if (entry.path.find('\n') != std::string::npos || !SafeRelative(entry.path)) return false;
    entries.push_back(std::move(entry));
  }
  std::string text = std::string(kManifestFirstLine) + "\nkey " + key + "\n";
  for (const Entry& e : entries) {
    text += e.folder ? "dir " + e.path + "\n" : "file " + std::to_string(e.size) + " " + e.hash + " " + e.path + "\n";
  }
  text += "end\n";
  // Written last and flushed to the disk: a folder whose manifest is there
  // is complete, even after a crash of the machine.
  Fd out(open((fs::path(dir) / kManifestName).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  return out.ok() && WriteAll(out.get(), text.data(), text.size()) && fsync(out.get()) == 0;
}

// The items of `settings` (one per line) are all in the registry file the
// office wrote: it keeps what it was given, and a profile that lost a
// setting is never cached.
bool KeptSettings(const std::string& profile_dir, const std::string& settings) {
  std::ifstream in(fs::path(profile_dir) / "user" / "registrymodifications.xcu", std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  const std::string written = text.str();
  std::istringstream lines(settings);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind("<item ", 0) == 0 && written.find(line) == std::string::npos) return false;
  }
  return true;
}

// A new folder in `root` named after this program, so that what a killed
// program leaves is recognised and swept.
std::string NewOwnedFolder(const std::string& root, const char* prefix) {
  std::string tmpl = (fs::path(root) / (prefix + ProgramOwnerTag() + "XXXXXX")).string();
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) return {};
  return buf.data();
}

void SyncFolder(const std::string& dir) {
  Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.ok()) fsync(fd.get());
}

// Prepares the profile beside its final place and renames it there,
// replacing whatever was there (the caller holds the lock and found it
// unusable).
bool Build(const std::string& root, const std::string& final_dir, const OfficeIdentity& office,
           const std::string& program_dir, std::chrono::milliseconds limit, FreshProfileMaker make) {
  const std::string build = NewOwnedFolder(root, kBuildPrefix);
  if (build.empty()) return false;
  std::string reason;
  std::error_code ec;
  bool ok = make(program_dir, build, limit, &reason) && KeptSettings(build, ProfileSettings(office.version));
  if (ok) {
    // What belongs to one office only: its temporary folder, its lock.
    fs::remove_all(fs::path(build) / "tmp", ec);
    fs::remove(fs::path(build) / ".lock", ec);
    ok = WriteManifest(build, office.key);
  }
  if (ok && fs::exists(final_dir, ec)) {
    const std::string stale = NewOwnedFolder(root, kStalePrefix);
    ok = !stale.empty() && rename(final_dir.c_str(), stale.c_str()) == 0;
    if (!stale.empty()) fs::remove_all(stale, ec);
  }
  ok = ok && rename(build.c_str(), final_dir.c_str()) == 0;
  if (!ok) {
    fs::remove_all(build, ec);
    return false;
  }
  SyncFolder(root);
  ++g_built;
  return true;
}

// Waits for the lock of one prepared profile until the deadline.
bool LockUntil(int fd, Clock::time_point deadline) {
  for (;;) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::string Absolute(const std::string& path) {
  std::error_code ec;
  const fs::path abs = fs::absolute(path, ec);
  return ec ? std::string() : abs.lexically_normal().string();
}

}  // namespace

std::string ProfileCacheFolder() {
  const char* configured = std::getenv("TABULON_PROFILE_CACHE");
  if (configured != nullptr && *configured != '\0') {
    if (std::strcmp(configured, "off") == 0) return {};
    return Absolute(configured);
  }
  const char* xdg = std::getenv("XDG_CACHE_HOME");
  if (xdg != nullptr && xdg[0] == '/') return (fs::path(xdg) / "tabulon").string();
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return (fs::path(home) / ".cache" / "tabulon").string();
  return {};
}

OfficeIdentity IdentifyOffice(const std::string& program_dir) {
  OfficeIdentity office;
  std::error_code ec;
  const fs::path real = fs::canonical(program_dir, ec);
  office.program_dir = ec ? program_dir : real.string();
  const std::string main_xcd = (fs::path(office.program_dir).parent_path() / "share" / "registry" / "main.xcd").string();
  const std::string xcd_stamp = FileStamp(main_xcd);
  const Versions v = ReadVersions(main_xcd, xcd_stamp);
  office.version = v.version;
  office.about = v.about;
  office.key = "version=" + v.about + " locale=" + OfficeLocale() +
               " soffice.bin=" + FileStamp(office.program_dir + "/soffice.bin") + " main.xcd=" + xcd_stamp +
               " versionrc=" + FileStamp(office.program_dir + "/versionrc");
  return office;
}

std::string ProfileSettings(const std::string& version) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<oor:items xmlns:oor=\"http://openoffice.org/2001/registry\" "
      "xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
      // Document lock files are off: every office here is our own, and a
      // lock file left by an office that was killed would otherwise make
      // the next open of that file read-only.
      "<item oor:path=\"/org.openoffice.Office.Common/Misc\">"
      "<prop oor:name=\"UseLocking\" oor:op=\"fuse\"><value>false</value></prop></item>\n"
      // Application.Run runs the macros of the workbooks it opens, as
      // Excel does for a workbook opened by automation: the lowest macro
      // security (no question, no refusal), and the VBA code of Excel
      // workbooks loaded as runnable code, kept when they are saved.
      "<item oor:path=\"/org.openoffice.Office.Common/Security/Scripting\">"
      "<prop oor:name=\"MacroSecurityLevel\" oor:op=\"fuse\"><value>0</value></prop></item>\n"
      "<item oor:path=\"/org.openoffice.Office.Common/Security/Scripting\">"
      "<prop oor:name=\"DisableMacrosExecution\" oor:op=\"fuse\"><value>false</value></prop></item>\n"
      "<item oor:path=\"/org.openoffice.Office.Calc/Filter/Import/VBA\">"
      "<prop oor:name=\"Load\" oor:op=\"fuse\"><value>true</value></prop></item>\n"
      "<item oor:path=\"/org.openoffice.Office.Calc/Filter/Import/VBA\">"
      "<prop oor:name=\"Executable\" oor:op=\"fuse\"><value>true</value></prop></item>\n"
      "<item oor:path=\"/org.openoffice.Office.Calc/Filter/Import/VBA\">"
      "<prop oor:name=\"Save\" oor:op=\"fuse\"><value>true</value></prop></item>\n";
  // A profile that has not recorded the office's version counts as one left
  // by an older version, and the office then runs its graphics self-test
  // before it accepts anything: most of a start. Only the interactive
  // office ever records it.
  if (!version.empty()) {
    text +=
        "<item oor:path=\"/org.openoffice.Setup/Product\">"
        "<prop oor:name=\"ooSetupLastVersion\" oor:op=\"fuse\"><value>" +
        version + "</value></prop></item>\n";
  }
  text += "</oor:items>\n";
  return text;
}

bool WriteProfileSettings(const std::string& profile_dir, const std::string& version, std::string* reason) {
  std::error_code ec;
  const fs::path user = fs::path(profile_dir) / "user";
  fs::create_directories(user, ec);
  fs::create_directories(fs::path(profile_dir) / "tmp", ec);
  std::ofstream out(user / "registrymodifications.xcu", std::ios::binary | std::ios::trunc);
  out << ProfileSettings(version);
  if (!out.flush()) {
    *reason = "cannot write the office's settings in " + user.string();
    return false;
  }
  return true;
}

void SweepAbandonedPreparations(const std::string& cache_dir) {
  static std::mutex mutex;
  static auto* swept = new std::set<std::string>();
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (!swept->insert(cache_dir).second) return;
  }
  {
    std::error_code ec;
    for (fs::directory_iterator it(cache_dir, ec), end; !ec && it != end; it.increment(ec)) {
      const std::string name = it->path().filename().string();
      for (const char* prefix : {kBuildPrefix, kStalePrefix}) {
        if (name.rfind(prefix, 0) != 0 || !OwnedByEndedProgram(name.substr(std::strlen(prefix)))) continue;
        std::error_code ignored;
        fs::remove_all(it->path(), ignored);
        // A preparation killed with its office leaves the office's pipe.
        RemoveProfilePipeFiles(it->path().string());
      }
    }
  }
}

bool CopyPreparedProfile(const std::string& program_dir, const std::string& profile_dir,
                         std::chrono::milliseconds limit, FreshProfileMaker make) {
  const std::string root = ProfileCacheFolder();
  if (root.empty() || profile_dir.empty()) return false;
  const auto deadline = Clock::now() + limit;
  std::error_code ec;
  fs::create_directories(fs::path(root).parent_path(), ec);
  if (mkdir(root.c_str(), 0700) != 0 && errno != EEXIST) return false;
  SweepAbandonedPreparations(root);
  const OfficeIdentity office = IdentifyOffice(program_dir);
  // One prepared profile per office installation, locale and settings; a
  // new version of the office at the same place replaces it.
  Fnv name;
  name.Add(office.program_dir + "\n" + OfficeLocale() + "\n" + ProfileSettings("x"));
  const std::string final_dir = (fs::path(root) / ("office-" + name.Hex())).string();
  if (CopyPrepared(final_dir, office.key, profile_dir)) {
    ++g_copied;
    return true;
  }
  Empty(profile_dir);
  // Missing, damaged or made for another office: prepared again by one
  // program, which the others wait for.
  Fd lock(open((final_dir + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock.ok() || !LockUntil(lock.get(), deadline)) return false;
  bool ok = CopyPrepared(final_dir, office.key, profile_dir);
  if (!ok) {
    Empty(profile_dir);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    ok = left.count() > 0 && Build(root, final_dir, office, program_dir, left, make) &&
         CopyPrepared(final_dir, office.key, profile_dir);
  }
  flock(lock.get(), LOCK_UN);
  if (!ok) {
    Empty(profile_dir);
    return false;
  }
  ++g_copied;
  return true;
}

ProfileCacheCounts ProfileCacheCounters() { return {g_built.load(), g_copied.load()}; }

}  // namespace tabulon::office::uno
