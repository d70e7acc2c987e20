// A workbook's write reservation (the office's password to modify): what
// a loaded document holds of it and how a password is checked against it.
// Internal to the backend.
#pragma once

#include <cstdint>
#include <string>

#include <com/sun/star/lang/XComponent.hpp>

#include "office/uno/session.h"

namespace tabulon::office::uno {

// The 16-bit verifier of a write reservation password that Excel's binary
// format keeps in its FILESHARING record (the office computes the same from
// the password's UTF-8 bytes).
uint16_t ExcelModifyPasswordHash(const std::string& password);

struct WriteReservation {
  // The verifier of Excel's binary formats; 0 when there is none.
  uint32_t verifier = 0;
  // Another kind of reservation (the salted hashes of OpenDocument and Open
  // XML files), which is not checked here.
  bool other_kind = false;

  bool reserved() const { return verifier != 0 || other_kind; }
  // Whether `password` lifts a reservation of the verifier kind.
  bool Accepts(const std::string& password) const {
    return verifier != 0 && ExcelModifyPasswordHash(password) == verifier;
  }
};

// The reservation of a loaded spreadsheet document, as its import filter
// left it in the document's settings (inside a call).
WriteReservation ReservationOf(const Reference<css::lang::XComponent>& document);

}  // namespace tabulon::office::uno
