#include "textproc/ravelin_loader.h"

#include <dlfcn.h>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tabulon/automation_error.h"

namespace tabulon {

namespace {

constexpr const char* kLibraryName = "libravelin.so";

// The folder this library was loaded from. The text library ships beside it;
// looking there first keeps that true even where the dynamic loader cannot
// tell who called dlopen (an interposed dlopen hides the caller's RUNPATH).
std::string OwnFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&OwnFolder), &info) == 0 || info.dli_fname == nullptr) return {};
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

RavelinLibrary::RavelinLibrary(std::string folder) : folder_(std::move(folder)) {}

RavelinLibrary::~RavelinLibrary() {
  if (handle_ != nullptr) dlclose(handle_);
}

void* RavelinLibrary::Resolve(const char* name) {
  if (handle_ == nullptr) {
    if (folder_.empty()) {
      // Beside the control's code; for a program that carries that code
      // itself (bin/), in the library folder of the same tree (bin/../lib).
      const std::string own = OwnFolder();
      for (const std::string& folder : {own, own + "/../lib"}) {
        if (own.empty() || handle_ != nullptr) break;
        const std::string path = folder + "/" + kLibraryName;
        if (access(path.c_str(), F_OK) == 0) handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
      }
      if (handle_ == nullptr) handle_ = dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
    } else {
      const std::string path = folder_ + "/" + kLibraryName;
      handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    if (handle_ == nullptr) {
      const char* why = dlerror();
      throw AutomationError(AutomationError::kFileNotFound,
                            std::string("File not found: ") + kLibraryName + (why ? std::string(" (") + why + ")" : ""));
    }
  }
  dlerror();
  void* entry = dlsym(handle_, name);
  if (entry == nullptr) {
    throw AutomationError(AutomationError::kEntryPointNotFound,
                          std::string("Can't find DLL entry point ") + name + " in " + kLibraryName);
  }
  return entry;
}

namespace {

// The codeset of the environment's locale, without touching the process's
// own locale (that belongs to the host).
std::string SystemCodeset() {
  static const std::string codeset = [] {
    locale_t loc = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(nullptr));
    if (loc == static_cast<locale_t>(nullptr)) return std::string("ANSI_X3.4-1968");
    std::string name = nl_langinfo_l(CODESET, loc);
    freelocale(loc);
    return name;
  }();
  return codeset;
}

bool IsUtf8(const std::string& codeset) {
  return strcasecmp(codeset.c_str(), "UTF-8") == 0 || strcasecmp(codeset.c_str(), "utf8") == 0;
}

// Converts with iconv; a character the target cannot hold becomes "?" and the
// rest goes on, as the system's own conversion to 8-bit text does.
std::string Convert(const std::string& text, const char* to, const char* from) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return text;
  std::string out;
  out.reserve(text.size());
  char* in = const_cast<char*>(text.data());
  size_t in_left = text.size();
  char buffer[256];
  while (in_left > 0) {
    char* dst = buffer;
    size_t dst_left = sizeof buffer;
    size_t r = iconv(cd, &in, &in_left, &dst, &dst_left);
    out.append(buffer, dst - buffer);
    if (r == static_cast<size_t>(-1)) {
      if (errno == E2BIG) continue;
      // EILSEQ / EINVAL: skip one input character (a whole UTF-8 sequence
      // when the input is UTF-8) and put "?" in its place.
      size_t skip = 1;
      if (strcasecmp(from, "UTF-8") == 0) {
        auto lead = static_cast<unsigned char>(*in);
        skip = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        if (skip > in_left) skip = in_left;
      }
      in += skip;
      in_left -= skip;
      out.push_back('?');
    }
  }
  iconv_close(cd);
  return out;
}

}  // namespace

std::string ToAnsi(const std::string& text) {
  const std::string codeset = SystemCodeset();
  if (IsUtf8(codeset)) return text;
  return Convert(text, codeset.c_str(), "UTF-8");
}

std::string FromAnsi(const std::string& text) {
  const std::string codeset = SystemCodeset();
  if (IsUtf8(codeset)) return text;
  return Convert(text, "UTF-8", codeset.c_str());
}

}  // namespace tabulon
