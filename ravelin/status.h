// The result of every internal step: one of the library's public codes.
#pragma once

#include <cstdint>

#include "ravelin/ravelin.h"

namespace ravelin {

enum class [[nodiscard]] Status : int32_t {
  kOk = RAVELIN_OK,
  kInputMissing = RAVELIN_E_INPUT_MISSING,
  kOutput = RAVELIN_E_OUTPUT,
  kArgument = RAVELIN_E_ARGUMENT,
  kList = RAVELIN_E_LIST,
  kRead = RAVELIN_E_READ,
  kWrite = RAVELIN_E_WRITE,
  kEncoding = RAVELIN_E_ENCODING,
  kMemory = RAVELIN_E_MEMORY,
  kInternal = RAVELIN_E_INTERNAL,
};

inline bool Ok(Status s) { return s == Status::kOk; }
inline int32_t ToCode(Status s) { return static_cast<int32_t>(s); }

#define RAVELIN_RETURN_IF_ERROR(expr)          \
  do {                                         \
    const ::ravelin::Status status_ = (expr);  \
    if (!::ravelin::Ok(status_)) return status_; \
  } while (0)

}  // namespace ravelin
