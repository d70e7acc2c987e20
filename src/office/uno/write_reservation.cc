#include "office/uno/write_reservation.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>

#include "office/office.h"

namespace tabulon::office::uno {

namespace {

// What the office and Excel write today.
constexpr uint32_t kNewRounds = 100000;
constexpr size_t kSaltSize = 16;
constexpr size_t kPbkdf2KeySize = 16;

Bytes RandomBytes(size_t size) {
  Bytes bytes(size);
  size_t filled = 0;
  while (filled < size) {
    const ssize_t n = getrandom(bytes.data() + filled, size - filled, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw Error(ErrorKind::kAutomation, std::string("no random salt: ") + std::strerror(errno));
    filled += static_cast<size_t>(n);
  }
  return bytes;
}

}  // namespace

uint16_t ExcelModifyPasswordHash(const std::string& password) {
  uint16_t hash = 0;
  for (size_t i = password.size(); i-- > 0;) {
    hash = static_cast<uint16_t>(((hash >> 14) & 0x01) | ((hash << 1) & 0x7FFF));
    hash ^= static_cast<unsigned char>(password[i]);
  }
  hash = static_cast<uint16_t>(((hash >> 14) & 0x01) | ((hash << 1) & 0x7FFF));
  hash ^= static_cast<uint16_t>(0x8000 | ('N' << 8) | 'K');
  hash ^= static_cast<uint16_t>(password.size());
  return hash;
}

ReservationStore ReservationStoreOf(const char* filter) {
  const std::string name = filter == nullptr ? "" : filter;
  if (name.rfind("MS Excel 97", 0) == 0) return ReservationStore::kBinary;
  if (name.rfind("Calc MS Excel 2007", 0) == 0 || name == "Calc Office Open XML") return ReservationStore::kOpenXml;
  if (name == "calc8") return ReservationStore::kOpenDocument;
  return ReservationStore::kNone;
}

const char* StoreName(ReservationStore store) {
  switch (store) {
    case ReservationStore::kBinary:
      return "Excel binary";
    case ReservationStore::kOpenXml:
      return "Open XML";
    case ReservationStore::kOpenDocument:
      return "OpenDocument";
    case ReservationStore::kNone:
      break;
  }
  return "no";
}

WriteReservation::Verdict WriteReservation::Check(const std::string& password, std::string* why) const {
  auto uncheckable = [&](const std::string& reason) {
    if (why != nullptr) *why = reason;
    return Verdict::kUncheckable;
  };
  if (!salted())
    return verifier != 0 && ExcelModifyPasswordHash(password) == verifier ? Verdict::kAccepted : Verdict::kRejected;
  if (count > kMaxReservationRounds)
    return uncheckable("its hash asks for " + std::to_string(count) + " rounds, more than " +
                       std::to_string(kMaxReservationRounds));
  if (hash.empty()) return uncheckable("its hash is missing");
  Bytes computed;
  if (pbkdf2()) {
    if (count == 0 || salt.empty()) return uncheckable("its PBKDF2 hash has no salt or no iterations");
    // The office made these with its own SHA-1 and checks them with it.
    computed = Pbkdf2HmacSha1(ToBytes(password), salt, count, hash.size(), true);
  } else {
    const std::optional<HashAlgorithm> named = HashAlgorithmNamed(algorithm);
    if (!named) return uncheckable("hash algorithm " + algorithm);
    computed = SpunHash(*named, salt, Utf16Le(password), count);
  }
  return computed == hash ? Verdict::kAccepted : Verdict::kRejected;
}

bool WriteReservation::FitsIn(ReservationStore store) const {
  switch (store) {
    case ReservationStore::kBinary:
      return !salted();
    case ReservationStore::kOpenXml:
      return !pbkdf2();
    case ReservationStore::kOpenDocument:
      return salted();
    case ReservationStore::kNone:
      break;
  }
  return false;
}

WriteReservation NewReservation(ReservationStore store, const std::string& password) {
  if (password.empty()) throw Error(ErrorKind::kAutomation, "an empty write reservation password");
  WriteReservation made;
  switch (store) {
    case ReservationStore::kBinary:
      made.verifier = ExcelModifyPasswordHash(password);
      break;
    case ReservationStore::kOpenXml:
      made.algorithm = "SHA-512";
      made.salt = RandomBytes(kSaltSize);
      made.count = kNewRounds;
      made.hash = SpunHash(HashAlgorithm::kSha512, made.salt, Utf16Le(password), made.count);
      break;
    case ReservationStore::kOpenDocument:
      made.algorithm = "PBKDF2";
      made.salt = RandomBytes(kSaltSize);
      made.count = kNewRounds;
      made.hash = Pbkdf2HmacSha1(ToBytes(password), made.salt, made.count, kPbkdf2KeySize, true);
      break;
    case ReservationStore::kNone:
      throw Error(ErrorKind::kAutomation, "this file format keeps no write reservation");
  }
  return made;
}

}  // namespace tabulon::office::uno
