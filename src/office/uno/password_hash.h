// The hashes that write reservation passwords are kept as: SHA-1, SHA-256,
// SHA-384 and SHA-512 (FIPS 180-4), HMAC-SHA1 and PBKDF2-HMAC-SHA1
// (RFC 2104, RFC 8018), the spun hash of Open XML files, base64 and the
// UTF-16LE form of a password. Plain C++, no UNO; internal to the backend.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tabulon::office::uno {

using Bytes = std::vector<uint8_t>;

enum class HashAlgorithm { kSha1, kSha256, kSha384, kSha512 };

// The algorithm a file names ("SHA-512", also "SHA512"), case-insensitively;
// nullopt for one not implemented here.
std::optional<HashAlgorithm> HashAlgorithmNamed(std::string_view name);

// A message digest, fed in pieces.
class Hash {
 public:
  explicit Hash(HashAlgorithm algorithm);
  // The office's own SHA-1 finishes a message whose length is 52 to 55
  // bytes past a whole block with one block too many; the hashes it makes
  // for OpenDocument files come from it, so checking them needs the same.
  static Hash OfficeSha1();

  void Update(const uint8_t* data, size_t size);
  void Update(const Bytes& data) { Update(data.data(), data.size()); }
  Bytes Final();  // the digest; the object is spent
  size_t DigestSize() const;
  static constexpr size_t kMaxBlock = 128;
  size_t BlockSize() const {
    return algorithm_ == HashAlgorithm::kSha1 || algorithm_ == HashAlgorithm::kSha256 ? 64 : 128;
  }

 private:
  void Compress(const uint8_t* block);
  void Compress32(const uint8_t* block);
  void Compress64(const uint8_t* block);

  HashAlgorithm algorithm_;
  bool office_padding_ = false;
  uint32_t h32_[8] = {};
  uint64_t h64_[8] = {};
  uint8_t buffer_[kMaxBlock] = {};
  size_t buffered_ = 0;
  uint64_t length_ = 0;  // bytes fed so far
};

Bytes Digest(HashAlgorithm algorithm, const Bytes& data);

// PBKDF2 with HMAC-SHA1 as its pseudo-random function, `length` bytes of
// key; with `office_sha1` every SHA-1 inside is the office's own.
Bytes Pbkdf2HmacSha1(const Bytes& password, const Bytes& salt, uint32_t count, size_t length, bool office_sha1);

// The hash Open XML keeps a password as (fileSharing, sheet and workbook
// protection): H0 = H(salt + password), then `spin_count` times
// Hi = H(Hi-1 + i as a 32-bit little-endian number), i counting from 0.
Bytes SpunHash(HashAlgorithm algorithm, const Bytes& salt, const Bytes& password, uint32_t spin_count);

std::string Base64Encode(const Bytes& data);
// Decodes standard base64 (padding optional, white space ignored); nullopt
// for anything else.
std::optional<Bytes> Base64Decode(std::string_view text);

// The UTF-16LE bytes of UTF-8 text (a malformed sequence becomes U+FFFD).
Bytes Utf16Le(std::string_view utf8);

Bytes ToBytes(std::string_view text);

}  // namespace tabulon::office::uno
