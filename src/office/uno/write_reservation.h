// A workbook's write reservation (the office's password to modify): the
// kinds the file formats keep, how a password is checked against one, and
// which kinds each format can be written with. Plain C++, no UNO; the
// office's side of it (its document settings and store arguments) is in
// calc_load.cc and calc_save.cc. Internal to the backend.
//
// The kinds:
// - Excel's binary formats keep a 16-bit verifier of the password (the
//   FILESHARING record); Open XML files may keep the same
//   (fileSharing/@reservationPassword).
// - Open XML files written by Excel keep a salted, spun hash
//   (fileSharing/@algorithmName, @hashValue, @saltValue, @spinCount):
//   H0 = H(salt + password as UTF-16LE), then H(Hi-1 + i) `spinCount` times.
// - OpenDocument files keep the office's own: PBKDF2-HMAC-SHA1 of the
//   password's UTF-8 bytes (algorithm "PBKDF2", a 16-byte salt and key).
#pragma once

#include <cstdint>
#include <string>

#include "office/uno/password_hash.h"

namespace tabulon::office::uno {

// The 16-bit verifier of a write reservation password that Excel's binary
// format keeps in its FILESHARING record (the office computes the same from
// the password's UTF-8 bytes).
uint16_t ExcelModifyPasswordHash(const std::string& password);

// Where a file format keeps a write reservation, as the office writes it.
enum class ReservationStore {
  kNone,          // the format has none (text, HTML, PDF, ...)
  kBinary,        // Excel's binary formats: the verifier only
  kOpenXml,       // the verifier or a spun hash
  kOpenDocument,  // a salted hash (PBKDF2 or a spun hash)
};
// The store of the office's export filter `filter`.
ReservationStore ReservationStoreOf(const char* filter);
const char* StoreName(ReservationStore store);  // for messages: "Excel binary", ...

struct WriteReservation {
  // The verifier of Excel's binary formats; 0 when there is none.
  uint16_t verifier = 0;
  // A salted hash: "PBKDF2" or a hash algorithm's name ("SHA-512"); empty
  // when there is none. A file with both is checked by the salted hash.
  std::string algorithm;
  Bytes salt;
  Bytes hash;
  uint32_t count = 0;  // PBKDF2 iterations or spin count

  bool salted() const { return !algorithm.empty(); }
  bool reserved() const { return verifier != 0 || salted(); }
  bool pbkdf2() const { return algorithm == "PBKDF2"; }

  enum class Verdict { kAccepted, kRejected, kUncheckable };
  // Whether `password` lifts the reservation; kUncheckable (with the
  // reason in `why`) for a kind the password cannot be checked against
  // here: an unknown hash algorithm, or more rounds than Excel allows.
  Verdict Check(const std::string& password, std::string* why = nullptr) const;
  // Whether the office writes this reservation as it is into `store`.
  bool FitsIn(ReservationStore store) const;
};

// Excel allows at most this many rounds; a file asking for more is not
// spent time on.
constexpr uint32_t kMaxReservationRounds = 10000000;

// A new reservation of `password` of the kind the office and Excel write
// into `store` (a fresh random salt): the verifier for the binary formats,
// SHA-512 spun 100000 times for Open XML, PBKDF2 with 100000 iterations for
// OpenDocument. Throws Error(kAutomation) for kNone or an empty password.
WriteReservation NewReservation(ReservationStore store, const std::string& password);

}  // namespace tabulon::office::uno
