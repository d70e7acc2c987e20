#include "streams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

#include "command.h"

namespace tabulon::cli {

namespace fs = std::filesystem;

TempFolder::~TempFolder() {
  if (path_.empty()) return;
  std::error_code ec;
  fs::remove_all(path_, ec);
}

std::string TempFolder::Path(std::string& error) {
  if (!path_.empty()) return path_;
  std::error_code ec;
  std::string pattern = (fs::temp_directory_path(ec) / "tabulon-XXXXXX").string();
  if (ec) pattern = "/tmp/tabulon-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    error = "cannot make a temporary folder: " + std::string(std::strerror(errno));
    return {};
  }
  path_ = buffer.data();
  return path_;
}

bool MadeFolders::Make(const std::string& folder, std::string& error) {
  std::error_code ec;
  std::vector<std::string> missing;
  fs::path start = fs::path(folder).lexically_normal();
  if (!start.has_filename()) start = start.parent_path();  // "out/"
  for (fs::path p = start; !p.empty() && !fs::exists(fs::symlink_status(p, ec)); p = p.parent_path()) {
    missing.insert(missing.begin(), p.string());
    if (p == p.parent_path()) break;
  }
  for (const std::string& path : missing) {
    const bool made = fs::create_directory(path, ec);
    if (ec) {
      error = "cannot make the folder " + path + ": " + ec.message();
      RemoveEmpty();
      return false;
    }
    if (made) made_.push_back(path);  // else another process made it meanwhile
  }
  return true;
}

void MadeFolders::RemoveEmpty() {
  for (auto it = made_.rbegin(); it != made_.rend(); ++it) {
    std::error_code ec;
    if (!fs::is_empty(*it, ec) || ec) break;
    fs::remove(*it, ec);
  }
  made_.clear();
}

std::string TextSource(const std::string& given, TempFolder& temp, const std::string& name, std::string& error) {
  if (given != "-") return Absolute(given);
  const std::string folder = temp.Path(error);
  if (folder.empty()) return {};
  const std::string path = folder + "/" + name;
  std::ofstream out(path, std::ios::binary);
  std::vector<char> buffer(1 << 16);
  while (In().read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || In().gcount() > 0) {
    out.write(buffer.data(), In().gcount());
  }
  out.flush();
  if (!out.good() || In().bad()) {
    error = "cannot save standard input to " + path;
    return {};
  }
  return path;
}

std::string FollowLinks(const std::string& path) {
  std::error_code ec;
  fs::path current = path;
  for (int depth = 0; depth < 40 && fs::is_symlink(fs::symlink_status(current, ec)); ++depth) {
    const fs::path link = fs::read_symlink(current, ec);
    if (ec) return current.string();
    current = link.is_absolute() ? link : (current.parent_path() / link);
    current = current.lexically_normal();
  }
  return current.string();
}

bool IsSpecialFile(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return false;
  return S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode) || S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode);
}

bool CopyInto(const std::string& file, const std::string& target, std::string& error) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    error = "cannot read the result " + file;
    return false;
  }
  if (target == "-") {
    // Block by block: streaming an empty file would mark stdout failed.
    std::vector<char> buffer(1 << 16);
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
      Out().write(buffer.data(), in.gcount());
    }
    Out().flush();
    if (!Out().good()) {
      error = "cannot write standard output";
      return false;
    }
    return true;
  }
  const int fd = open(target.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    error = "cannot open " + target + " for writing: " + std::strerror(errno);
    return false;
  }
  std::vector<char> buffer(1 << 16);
  bool ok = true;
  while (ok && in) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const char* data = buffer.data();
    size_t left = static_cast<size_t>(in.gcount());
    while (left > 0) {
      const ssize_t n = write(fd, data, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        error = "cannot write " + target + ": " + std::strerror(errno);
        ok = false;
        break;
      }
      data += n;
      left -= static_cast<size_t>(n);
    }
  }
  close(fd);
  return ok;
}

TextOutput::TextOutput(const std::string& given, TempFolder& temp, const std::string& name) : given_(given) {
  std::string error;
  if (given == "-" || IsSpecialFile(Absolute(given))) {
    const std::string folder = temp.Path(error);
    if (folder.empty()) {
      refusal_ = error;
      return;
    }
    kind_ = given == "-" ? Kind::kStdout : Kind::kInPlace;
    path_ = folder + "/" + name;
    return;
  }
  const std::string followed = FollowLinks(Absolute(given));
  std::error_code ec;
  if (fs::is_directory(followed, ec)) {
    refusal_ = "is a folder";
    return;
  }
  if (fs::exists(fs::symlink_status(followed, ec)) && !fs::is_regular_file(followed, ec)) {
    refusal_ = "is not a regular file";
    return;
  }
  path_ = followed;
}

bool TextOutput::Finish(std::string& error) {
  if (kind_ == Kind::kDirect) return true;
  return CopyInto(path_, kind_ == Kind::kStdout ? "-" : Absolute(given_), error);
}

}  // namespace tabulon::cli
