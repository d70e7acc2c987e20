// The error a host receives where the control fails a call instead of
// returning a result code: a bad index into a result list, a missing text
// library, a type mismatch in an item list.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tabulon/export.h"

namespace tabulon {

class TABULON_EXPORT AutomationError : public std::runtime_error {
 public:
  // Error numbers the control raises.
  static constexpr int32_t kInvalidProcedureCall = 5;  // "Invalid procedure call or argument"
  static constexpr int32_t kTypeMismatch = 13;         // "Type mismatch"
  static constexpr int32_t kFileNotFound = 53;         // "File not found" (a library)
  static constexpr int32_t kEntryPointNotFound = 453;  // "Can't find DLL entry point"

  AutomationError(int32_t number, const std::string& description)
      : std::runtime_error(description), number_(number) {}

  int32_t number() const { return number_; }
  const char* description() const { return what(); }

 private:
  int32_t number_;
};

}  // namespace tabulon
