// The hashes behind write reservations, against the published test vectors
// (FIPS 180-4 examples, RFC 6070) and against results of the office's own
// runtime, whose SHA-1 pads some message lengths its own way.
#include "office/uno/password_hash.h"

#include <gtest/gtest.h>

#include <string>

namespace tabulon::office::uno {
namespace {

std::string Hex(const Bytes &bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t b : bytes) {
    text += kDigits[b >> 4];
    text += kDigits[b & 15];
  }
  return text;
}

Bytes Counting(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

const std::string k448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string k896 =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjk"
    "lmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";

TEST(PasswordHash, DigestsMatchThePublishedVectors) {
  struct Case {
    HashAlgorithm algorithm;
    std::string message;
    const char *digest;
  };
  const Case cases[] = {
      {HashAlgorithm::kSha1, "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {HashAlgorithm::kSha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {HashAlgorithm::kSha1, k448, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {HashAlgorithm::kSha1, std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
      {HashAlgorithm::kSha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {HashAlgorithm::kSha256, k448, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {HashAlgorithm::kSha256, std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {HashAlgorithm::kSha384, "abc",
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072"
       "ba1e7cc2358baeca134c825a7"},
      {HashAlgorithm::kSha384, k896,
       "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712fcc7c71"
       "a557e2db966c3e9fa91746039"},
      {HashAlgorithm::kSha512, "",
       "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce47d0d13"
       "c5d85f2b0ff8318d2877eec2f63b931bd47417a"
       "81a538327af927da3e"},
      {HashAlgorithm::kSha512, "abc",
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992"
       "a274fc1a836ba3c23a3feebbd454d4423643ce8"
       "0e2a9ac94fa54ca49f"},
      {HashAlgorithm::kSha512, k896,
       "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018501d289"
       "e4900f7e4331b99dec4b5433ac7d329eeb6dd26"
       "545e96e55b874be909"},
      {HashAlgorithm::kSha512, std::string(1000000, 'a'),
       "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973ebde0ff24"
       "4877ea60a4cb0432ce577c31beb009c5c2c49aa"
       "2e4eadb217ad8cc09b"},
  };
  for (const Case &c : cases)
    EXPECT_EQ(Hex(Digest(c.algorithm, ToBytes(c.message))), c.digest) << c.message.substr(0, 20);
}

// Fed in two pieces split anywhere, every length up to three blocks gives
// the digest of the whole: the buffering across blocks is right.
TEST(PasswordHash, APieceByPieceDigestEqualsTheWholeOne) {
  for (HashAlgorithm algorithm :
       {HashAlgorithm::kSha1, HashAlgorithm::kSha256, HashAlgorithm::kSha384, HashAlgorithm::kSha512}) {
    for (size_t size = 0; size <= 384; size += 7) {
      const Bytes message = Counting(size);
      const Bytes whole = Digest(algorithm, message);
      for (size_t split : {size_t{0}, size / 3, size / 2, size}) {
        Hash hash(algorithm);
        hash.Update(message.data(), split);
        hash.Update(message.data() + split, size - split);
        ASSERT_EQ(hash.Final(), whole) << static_cast<int>(algorithm) << " " << size << " " << split;
      }
    }
  }
}

// The office's SHA-1 gives another digest exactly when the message ends 52
// to 55 bytes into its last block; the digests below are the office
// runtime's own (rtl_digest_SHA1 of 7.4).
TEST(PasswordHash, TheOfficeSha1DiffersOnlyWhereTheOfficesOwnDoes) {
  for (size_t size = 0; size <= 200; ++size) {
    const Bytes message(size, 'a');
    Hash office = Hash::OfficeSha1();
    office.Update(message);
    const bool quirk = size % 64 >= 52 && size % 64 <= 55;
    EXPECT_EQ(office.Final() != Digest(HashAlgorithm::kSha1, message), quirk) << size;
  }
  struct Case {
    size_t size;
    const char *digest;
  };
  for (const Case &c :
       {Case{52, "482f916c6e6bb881312b9f6e605822a93cc32b86"}, Case{55, "95e1bd51a218fc017dc138e5b214c6240d0c8ccb"}}) {
    Hash office = Hash::OfficeSha1();
    office.Update(Bytes(c.size, 'a'));
    EXPECT_EQ(Hex(office.Final()), c.digest) << c.size;
  }
}

TEST(PasswordHash, Pbkdf2MatchesRfc6070AndTheOfficesOwnResults) {
  struct Case {
    std::string password;
    Bytes salt;
    uint32_t count;
    size_t length;
    bool office;
    const char *key;
  };
  const Case cases[] = {
      // RFC 6070
      {"password", ToBytes("salt"), 1, 20, false, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
      {"password", ToBytes("salt"), 2, 20, false, "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957"},
      {"password", ToBytes("salt"), 4096, 20, false, "4b007901b765489abead49d926f721d065a429c1"},
      {"passwordPASSWORDpassword", ToBytes("saltSALTsaltSALTsaltSALTsaltSALTsalt"), 4096, 25, false,
       "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"},
      {std::string("pass\0word", 9), Bytes{'s', 'a', 0, 'l', 't'}, 4096, 16, false, "56fa6aa75548099dcc37d7f03425e0c3"},
      // The office runtime's rtl_digest_PBKDF2: the same where its SHA-1
      // agrees, its own where a hashed key (a password longer than a
      // block) or the first message (a 48-byte salt) ends in its quirk.
      {"wr1", Counting(16), 100000, 16, true, "f4f773b6a457d3b1031c097c0826cece"},
      {std::string(116, 'x'), Counting(16), 1000, 16, true, "82f3dc6e05f240700eabdac97727aff5"},
      {"wr1", Counting(48), 1000, 16, true, "89d1c45a9f1a80f62b8cdca1ec6d38af"},
      // ... and the standard's for those two.
      {std::string(116, 'x'), Counting(16), 1000, 16, false, "a2ffde1519865b1e785baad625684b78"},
      {"wr1", Counting(48), 1000, 16, false, "727733db8ec94cf0a202280adcd958e3"},
  };
  for (const Case &c : cases)
    EXPECT_EQ(Hex(Pbkdf2HmacSha1(ToBytes(c.password), c.salt, c.count, c.length, c.office)), c.key)
        << c.password.substr(0, 10) << " " << c.count << (c.office ? " office" : "");
}

// The spun hash of Open XML's fileSharing, compared with the documented
// procedure computed independently (Python's hashlib): SHA-512 of the salt
// and the UTF-16LE password, then H(H + i as 4 little-endian bytes).
TEST(PasswordHash, TheSpunHashFollowsTheOpenXmlProcedure) {
  EXPECT_EQ(Base64Encode(SpunHash(HashAlgorithm::kSha512, Counting(16), Utf16Le("wr1"), 100000)),
            "+Nw5WlZOmrpAOOUZ3AQIJrrTuyzS2pKNDZjaQhKquiKW5nk6xQVP/"
            "U4y7iJswscznPaiUUWp6gtF+6AQGXU2CA==");
  EXPECT_EQ(Base64Encode(SpunHash(HashAlgorithm::kSha1, Counting(16), Utf16Le("wr1"), 1000)),
            "ORxMWnBNhKMSAocaX7jpZGYq9y8=");
  EXPECT_EQ(Base64Encode(SpunHash(HashAlgorithm::kSha512, Counting(16),
                                  Utf16Le("p\xC3\xA4ssw\xC3\xB6rd\xE2\x82\xAC\xF0\x9F\x98\x80"), 10)),
            "GcCRnQek6Yu7pFinZwE8QdiaiptVqPmvm/qM5dQ/Y2f62/"
            "TUdL0DEgKecVuYJCtkDZ2Th4ir32IwZfMjlMj1oQ==");
  // No spins: the first hash alone.
  Bytes first = Counting(16);
  const Bytes password = Utf16Le("wr1");
  first.insert(first.end(), password.begin(), password.end());
  EXPECT_EQ(SpunHash(HashAlgorithm::kSha512, Counting(16), password, 0), Digest(HashAlgorithm::kSha512, first));
}

TEST(PasswordHash, Base64RoundTripsAndRefusesWhatIsNotBase64) {
  for (size_t size = 0; size < 70; ++size) {
    const Bytes data = Counting(size * 7);
    EXPECT_EQ(Base64Decode(Base64Encode(data)), data) << size;
  }
  EXPECT_EQ(Base64Encode(ToBytes("foobar")), "Zm9vYmFy");  // RFC 4648
  EXPECT_EQ(Base64Encode(ToBytes("fo")), "Zm8=");
  EXPECT_EQ(Base64Decode("Zm9v\r\nYmE="), ToBytes("fooba"));
  EXPECT_EQ(Base64Decode("Zm8"), ToBytes("fo"));
  for (const char *bad : {"Zm9v!", "Z", "Zm=9", "Zm9=", "Zm8===", "Zm9vYmFy===="})
    EXPECT_EQ(Base64Decode(bad), std::nullopt) << bad;
}

TEST(PasswordHash, Utf16LeEncodesEveryPlaneAndReplacesMalformedBytes) {
  EXPECT_EQ(Hex(Utf16Le("aZ")), "61005a00");
  EXPECT_EQ(Hex(Utf16Le("\xC3\xA4\xE2\x82\xAC")), "e400ac20");  // ä €
  EXPECT_EQ(Hex(Utf16Le("\xF0\x9F\x98\x80")),
            "3dd800de");                    // U+1F600 as a surrogate pair
  EXPECT_EQ(Hex(Utf16Le("\xC3")), "fdff");  // cut short
  EXPECT_EQ(Hex(Utf16Le("\xC0\xAF"
                        "a")),
            "fdfffdff6100");                                // overlong
  EXPECT_EQ(Hex(Utf16Le("\xED\xA0\x80")), "fdfffdfffdff");  // a lone surrogate
}

}  // namespace
}  // namespace tabulon::office::uno
