// Loads the text library libravelin.so at run time, by name, the first time a
// text method needs it, and finds its entry points. A missing library or
// entry point is a failed call for the host (AutomationError), not a result
// code: the text methods have no code of their own for it.
#pragma once

#include <string>

namespace tabulon {

class RavelinLibrary {
 public:
  // folder empty: load "libravelin.so" by name (beside libtabulon.so through
  // its RUNPATH, or the usual search path); otherwise from that folder only.
  explicit RavelinLibrary(std::string folder);
  ~RavelinLibrary();
  RavelinLibrary(const RavelinLibrary&) = delete;
  RavelinLibrary& operator=(const RavelinLibrary&) = delete;

  // The entry point `name`, typed. Throws AutomationError 53 when the library
  // cannot be loaded and 453 when it lacks the entry point.
  template <typename Fn>
  Fn* Entry(const char* name) {
    return reinterpret_cast<Fn*>(Resolve(name));
  }

 private:
  void* Resolve(const char* name);

  std::string folder_;
  void* handle_ = nullptr;
};

// Text between the caller (UTF-8) and the text library (the system's 8-bit
// character set, the locale's codeset). Under a UTF-8 locale both are the
// identity. Characters the 8-bit set cannot hold become "?".
std::string ToAnsi(const std::string& text);
std::string FromAnsi(const std::string& text);

}  // namespace tabulon
