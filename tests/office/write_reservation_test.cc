// Write reservations without an office: which password lifts which kind,
// which kinds cannot be checked, where each kind can be written, and the
// reservations made for a new password.
#include "office/uno/write_reservation.h"

#include <gtest/gtest.h>

#include "office/office.h"
#include "office/uno/file_formats.h"

namespace tabulon::office::uno {
namespace {

Bytes Counting(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

WriteReservation Verifier(const std::string &password) {
  WriteReservation r;
  r.verifier = ExcelModifyPasswordHash(password);
  return r;
}

// As Excel writes fileSharing: a spun hash (spun fewer times here, for
// speed).
WriteReservation Spun(const std::string &algorithm, HashAlgorithm hash, const std::string &password, uint32_t spins) {
  WriteReservation r;
  r.algorithm = algorithm;
  r.salt = Counting(16);
  r.count = spins;
  r.hash = SpunHash(hash, r.salt, Utf16Le(password), spins);
  return r;
}

WriteReservation Pbkdf2(const std::string &password, uint32_t count) {
  WriteReservation r;
  r.algorithm = "PBKDF2";
  r.salt = Counting(16);
  r.count = count;
  r.hash = Pbkdf2HmacSha1(ToBytes(password), r.salt, count, 16, true);
  return r;
}

using Verdict = WriteReservation::Verdict;

TEST(WriteReservation, OnlyItsOwnPasswordLiftsEachKind) {
  struct Case {
    const char *name;
    WriteReservation reservation;
  };
  const Case cases[] = {
      {"verifier", Verifier("wr1")},
      {"SHA-512", Spun("SHA-512", HashAlgorithm::kSha512, "wr1", 1000)},
      {"SHA-1", Spun("SHA-1", HashAlgorithm::kSha1, "wr1", 1000)},
      {"SHA256 (spelled without a dash)", Spun("SHA256", HashAlgorithm::kSha256, "wr1", 10)},
      {"SHA-384", Spun("SHA-384", HashAlgorithm::kSha384, "wr1", 10)},
      {"PBKDF2", Pbkdf2("wr1", 1000)},
  };
  for (const Case &c : cases) {
    EXPECT_TRUE(c.reservation.reserved()) << c.name;
    EXPECT_EQ(c.reservation.Check("wr1"), Verdict::kAccepted) << c.name;
    for (const char *wrong : {"wr2", "WR1", "wr1 ", "w"})
      EXPECT_EQ(c.reservation.Check(wrong), Verdict::kRejected) << c.name << " " << wrong;
  }
  EXPECT_FALSE(WriteReservation{}.reserved());
}

// Open XML hashes the password's UTF-16 code units, the office's
// OpenDocument hash its UTF-8 bytes: a password beyond ASCII works in both.
TEST(WriteReservation, PasswordsBeyondAsciiAreHashedAsEachFormatEncodesThem) {
  const std::string password = "p\xC3\xA4ss \xE2\x82\xAC\xF0\x9F\x98\x80";
  WriteReservation spun = Spun("SHA-512", HashAlgorithm::kSha512, password, 10);
  EXPECT_EQ(spun.Check(password), Verdict::kAccepted);
  EXPECT_EQ(spun.Check("pass \xE2\x82\xAC\xF0\x9F\x98\x80"), Verdict::kRejected);
  WriteReservation derived = Pbkdf2(password, 10);
  EXPECT_EQ(derived.Check(password), Verdict::kAccepted);
  EXPECT_EQ(derived.Check("p\xC3\xA4ss"), Verdict::kRejected);
}

// A file with both the verifier and a salted hash (fileSharing with
// reservationPassword and hashValue) is checked by the salted hash, as the
// office and Excel check it.
TEST(WriteReservation, TheSaltedHashDecidesWhenAFileKeepsBoth) {
  WriteReservation both = Spun("SHA-512", HashAlgorithm::kSha512, "salted", 10);
  both.verifier = ExcelModifyPasswordHash("legacy");
  EXPECT_EQ(both.Check("salted"), Verdict::kAccepted);
  EXPECT_EQ(both.Check("legacy"), Verdict::kRejected);
}

TEST(WriteReservation, KindsThatCannotBeCheckedSaySo) {
  struct Case {
    const char *name;
    WriteReservation reservation;
    const char *why;
  };
  WriteReservation md5 = Spun("MD5", HashAlgorithm::kSha1, "wr1", 10);
  WriteReservation unnamed = Spun("(none named)", HashAlgorithm::kSha512, "wr1", 10);
  WriteReservation endless = Spun("SHA-512", HashAlgorithm::kSha512, "wr1", 10);
  endless.count = kMaxReservationRounds + 1;
  WriteReservation endless_pbkdf2 = Pbkdf2("wr1", 10);
  endless_pbkdf2.count = 4000000000U;
  WriteReservation no_hash = Spun("SHA-512", HashAlgorithm::kSha512, "wr1", 10);
  no_hash.hash.clear();
  WriteReservation no_salt = Pbkdf2("wr1", 10);
  no_salt.salt.clear();
  const Case cases[] = {
      {"MD5", md5, "hash algorithm MD5"},
      {"unnamed", unnamed, "hash algorithm (none named)"},
      {"too many spins", endless, "10000001 rounds, more than 10000000"},
      {"too many iterations", endless_pbkdf2, "4000000000 rounds"},
      {"no hash", no_hash, "its hash is missing"},
      {"PBKDF2 without salt", no_salt, "no salt or no iterations"},
  };
  for (const Case &c : cases) {
    std::string why;
    EXPECT_EQ(c.reservation.Check("wr1", &why), Verdict::kUncheckable) << c.name;
    EXPECT_NE(why.find(c.why), std::string::npos) << c.name << ": " << why;
  }
}

TEST(WriteReservation, EveryWorkbookFilterOfTheFormatTableHasItsStore) {
  struct Case {
    int32_t number;
    ReservationStore store;
  };
  for (const Case &c :
       {Case{56, ReservationStore::kBinary}, Case{-4143, ReservationStore::kBinary},
        Case{17, ReservationStore::kBinary}, Case{51, ReservationStore::kOpenXml}, Case{52, ReservationStore::kOpenXml},
        Case{53, ReservationStore::kOpenXml}, Case{54, ReservationStore::kOpenXml},
        Case{61, ReservationStore::kOpenXml}, Case{60, ReservationStore::kOpenDocument},
        Case{6, ReservationStore::kNone}, Case{46, ReservationStore::kNone}, Case{44, ReservationStore::kNone},
        Case{57, ReservationStore::kNone}}) {
    const FileFormat *format = FindFileFormat(c.number);
    ASSERT_NE(format, nullptr) << c.number;
    EXPECT_EQ(ReservationStoreOf(format->filter), c.store) << c.number;
  }
  EXPECT_EQ(ReservationStoreOf(nullptr), ReservationStore::kNone);
}

TEST(WriteReservation, ANewReservationIsTheKindItsFormatKeepsWithAFreshSalt) {
  const WriteReservation binary = NewReservation(ReservationStore::kBinary, "wr1");
  EXPECT_FALSE(binary.salted());
  EXPECT_EQ(binary.verifier, ExcelModifyPasswordHash("wr1"));

  const WriteReservation open_xml = NewReservation(ReservationStore::kOpenXml, "wr1");
  EXPECT_EQ(open_xml.algorithm, "SHA-512");
  EXPECT_EQ(open_xml.count, 100000u);
  EXPECT_EQ(open_xml.salt.size(), 16u);
  EXPECT_EQ(open_xml.hash.size(), 64u);
  EXPECT_EQ(open_xml.Check("wr1"), Verdict::kAccepted);
  EXPECT_EQ(open_xml.Check("wr2"), Verdict::kRejected);
  EXPECT_TRUE(open_xml.FitsIn(ReservationStore::kOpenXml));

  const WriteReservation document = NewReservation(ReservationStore::kOpenDocument, "wr1");
  EXPECT_TRUE(document.pbkdf2());
  EXPECT_EQ(document.count, 100000u);
  EXPECT_EQ(document.salt.size(), 16u);
  EXPECT_EQ(document.hash.size(), 16u);
  EXPECT_EQ(document.Check("wr1"), Verdict::kAccepted);
  EXPECT_TRUE(document.FitsIn(ReservationStore::kOpenDocument));

  EXPECT_NE(NewReservation(ReservationStore::kOpenDocument, "wr1").salt, document.salt);
  EXPECT_THROW(NewReservation(ReservationStore::kNone, "wr1"), Error);
  EXPECT_THROW(NewReservation(ReservationStore::kOpenXml, ""), Error);
}

}  // namespace
}  // namespace tabulon::office::uno
