#include "office/uno/password_hash.h"

#include <algorithm>
#include <cstring>

namespace tabulon::office::uno {
namespace {

// FIPS 180-4, 4.2.2 and 4.2.3: the first bits of the fractional parts of the
// cube roots of the first primes.
constexpr uint32_t kK256[64] = {
    0x428a2f98U, 0x71374491U, 0xb5c0fbcfU, 0xe9b5dba5U, 0x3956c25bU, 0x59f111f1U, 0x923f82a4U, 0xab1c5ed5U,
    0xd807aa98U, 0x12835b01U, 0x243185beU, 0x550c7dc3U, 0x72be5d74U, 0x80deb1feU, 0x9bdc06a7U, 0xc19bf174U,
    0xe49b69c1U, 0xefbe4786U, 0x0fc19dc6U, 0x240ca1ccU, 0x2de92c6fU, 0x4a7484aaU, 0x5cb0a9dcU, 0x76f988daU,
    0x983e5152U, 0xa831c66dU, 0xb00327c8U, 0xbf597fc7U, 0xc6e00bf3U, 0xd5a79147U, 0x06ca6351U, 0x14292967U,
    0x27b70a85U, 0x2e1b2138U, 0x4d2c6dfcU, 0x53380d13U, 0x650a7354U, 0x766a0abbU, 0x81c2c92eU, 0x92722c85U,
    0xa2bfe8a1U, 0xa81a664bU, 0xc24b8b70U, 0xc76c51a3U, 0xd192e819U, 0xd6990624U, 0xf40e3585U, 0x106aa070U,
    0x19a4c116U, 0x1e376c08U, 0x2748774cU, 0x34b0bcb5U, 0x391c0cb3U, 0x4ed8aa4aU, 0x5b9cca4fU, 0x682e6ff3U,
    0x748f82eeU, 0x78a5636fU, 0x84c87814U, 0x8cc70208U, 0x90befffaU, 0xa4506cebU, 0xbef9a3f7U, 0xc67178f2U,
};
constexpr uint64_t kK512[80] = {
    0x428a2f98d728ae22ULL, 0x7137449123ef65cdULL, 0xb5c0fbcfec4d3b2fULL, 0xe9b5dba58189dbbcULL, 0x3956c25bf348b538ULL,
    0x59f111f1b605d019ULL, 0x923f82a4af194f9bULL, 0xab1c5ed5da6d8118ULL, 0xd807aa98a3030242ULL, 0x12835b0145706fbeULL,
    0x243185be4ee4b28cULL, 0x550c7dc3d5ffb4e2ULL, 0x72be5d74f27b896fULL, 0x80deb1fe3b1696b1ULL, 0x9bdc06a725c71235ULL,
    0xc19bf174cf692694ULL, 0xe49b69c19ef14ad2ULL, 0xefbe4786384f25e3ULL, 0x0fc19dc68b8cd5b5ULL, 0x240ca1cc77ac9c65ULL,
    0x2de92c6f592b0275ULL, 0x4a7484aa6ea6e483ULL, 0x5cb0a9dcbd41fbd4ULL, 0x76f988da831153b5ULL, 0x983e5152ee66dfabULL,
    0xa831c66d2db43210ULL, 0xb00327c898fb213fULL, 0xbf597fc7beef0ee4ULL, 0xc6e00bf33da88fc2ULL, 0xd5a79147930aa725ULL,
    0x06ca6351e003826fULL, 0x142929670a0e6e70ULL, 0x27b70a8546d22ffcULL, 0x2e1b21385c26c926ULL, 0x4d2c6dfc5ac42aedULL,
    0x53380d139d95b3dfULL, 0x650a73548baf63deULL, 0x766a0abb3c77b2a8ULL, 0x81c2c92e47edaee6ULL, 0x92722c851482353bULL,
    0xa2bfe8a14cf10364ULL, 0xa81a664bbc423001ULL, 0xc24b8b70d0f89791ULL, 0xc76c51a30654be30ULL, 0xd192e819d6ef5218ULL,
    0xd69906245565a910ULL, 0xf40e35855771202aULL, 0x106aa07032bbd1b8ULL, 0x19a4c116b8d2d0c8ULL, 0x1e376c085141ab53ULL,
    0x2748774cdf8eeb99ULL, 0x34b0bcb5e19b48a8ULL, 0x391c0cb3c5c95a63ULL, 0x4ed8aa4ae3418acbULL, 0x5b9cca4f7763e373ULL,
    0x682e6ff3d6b2b8a3ULL, 0x748f82ee5defb2fcULL, 0x78a5636f43172f60ULL, 0x84c87814a1f0ab72ULL, 0x8cc702081a6439ecULL,
    0x90befffa23631e28ULL, 0xa4506cebde82bde9ULL, 0xbef9a3f7b2c67915ULL, 0xc67178f2e372532bULL, 0xca273eceea26619cULL,
    0xd186b8c721c0c207ULL, 0xeada7dd6cde0eb1eULL, 0xf57d4f7fee6ed178ULL, 0x06f067aa72176fbaULL, 0x0a637dc5a2c898a6ULL,
    0x113f9804bef90daeULL, 0x1b710b35131c471bULL, 0x28db77f523047d84ULL, 0x32caab7b40c72493ULL, 0x3c9ebe0a15c9bebcULL,
    0x431d67c49c100d4cULL, 0x4cc5d4becb3e42b6ULL, 0x597f299cfc657e2aULL, 0x5fcb6fab3ad6faecULL, 0x6c44198c4a475817ULL,
};

constexpr uint32_t Rotl32(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }
constexpr uint32_t Rotr32(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }
constexpr uint64_t Rotr64(uint64_t x, int n) { return (x >> n) | (x << (64 - n)); }

uint32_t Load32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
         p[3];
}
uint64_t Load64(const uint8_t* p) { return static_cast<uint64_t>(Load32(p)) << 32 | Load32(p + 4); }

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::optional<HashAlgorithm> HashAlgorithmNamed(std::string_view name) {
  std::string key;
  for (const char c : name)
    if (c != '-') key += Lower(c);
  if (key == "sha1") return HashAlgorithm::kSha1;
  if (key == "sha256") return HashAlgorithm::kSha256;
  if (key == "sha384") return HashAlgorithm::kSha384;
  if (key == "sha512") return HashAlgorithm::kSha512;
  return std::nullopt;
}

Hash::Hash(HashAlgorithm algorithm) : algorithm_(algorithm) {
  static constexpr uint32_t kH1[5] = {0x67452301U, 0xefcdab89U, 0x98badcfeU, 0x10325476U, 0xc3d2e1f0U};
  static constexpr uint32_t kH256[8] = {0x6a09e667U, 0xbb67ae85U, 0x3c6ef372U, 0xa54ff53aU,
                                        0x510e527fU, 0x9b05688cU, 0x1f83d9abU, 0x5be0cd19U};
  static constexpr uint64_t kH384[8] = {0xcbbb9d5dc1059ed8ULL, 0x629a292a367cd507ULL, 0x9159015a3070dd17ULL,
                                        0x152fecd8f70e5939ULL, 0x67332667ffc00b31ULL, 0x8eb44a8768581511ULL,
                                        0xdb0c2e0d64f98fa7ULL, 0x47b5481dbefa4fa4ULL};
  static constexpr uint64_t kH512[8] = {0x6a09e667f3bcc908ULL, 0xbb67ae8584caa73bULL, 0x3c6ef372fe94f82bULL,
                                        0xa54ff53a5f1d36f1ULL, 0x510e527fade682d1ULL, 0x9b05688c2b3e6c1fULL,
                                        0x1f83d9abfb41bd6bULL, 0x5be0cd19137e2179ULL};
  switch (algorithm) {
    case HashAlgorithm::kSha1:
      std::copy(kH1, kH1 + 5, h32_);
      break;
    case HashAlgorithm::kSha256:
      std::copy(kH256, kH256 + 8, h32_);
      break;
    case HashAlgorithm::kSha384:
      std::copy(kH384, kH384 + 8, h64_);
      break;
    case HashAlgorithm::kSha512:
      std::copy(kH512, kH512 + 8, h64_);
      break;
  }
}

Hash Hash::OfficeSha1() {
  Hash hash(HashAlgorithm::kSha1);
  hash.office_padding_ = true;
  return hash;
}

size_t Hash::DigestSize() const {
  switch (algorithm_) {
    case HashAlgorithm::kSha1:
      return 20;
    case HashAlgorithm::kSha256:
      return 32;
    case HashAlgorithm::kSha384:
      return 48;
    case HashAlgorithm::kSha512:
      return 64;
  }
  return 0;
}

void Hash::Update(const uint8_t* data, size_t size) {
  const size_t block = BlockSize();
  length_ += size;
  while (size > 0) {
    const size_t n = std::min(size, block - buffered_);
    std::memcpy(buffer_ + buffered_, data, n);
    buffered_ += n;
    data += n;
    size -= n;
    if (buffered_ == block) {
      Compress(buffer_);
      buffered_ = 0;
    }
  }
}

Bytes Hash::Final() {
  const size_t block = BlockSize();
  const size_t length_field = block == 64 ? 8 : 16;
  // The length goes into the last bytes of the last block; when the 0x80
  // that ends the message leaves no room for it, one more block follows.
  // The office's SHA-1 wants that block four bytes early.
  const size_t room = office_padding_ ? block - length_field - 4 : block - length_field;
  const uint64_t bits = length_ * 8;
  const bool extra = buffered_ >= room;
  buffer_[buffered_++] = 0x80;
  std::memset(buffer_ + buffered_, 0, block - buffered_);
  if (extra) {
    Compress(buffer_);
    std::memset(buffer_, 0, block);
  }
  for (int i = 0; i < 8; ++i) buffer_[block - 1 - i] = static_cast<uint8_t>(bits >> (8 * i));
  Compress(buffer_);

  Bytes digest(DigestSize());
  for (size_t i = 0; i < digest.size(); ++i) {
    if (algorithm_ == HashAlgorithm::kSha1 || algorithm_ == HashAlgorithm::kSha256)
      digest[i] = static_cast<uint8_t>(h32_[i / 4] >> (24 - 8 * (i % 4)));
    else
      digest[i] = static_cast<uint8_t>(h64_[i / 8] >> (56 - 8 * (i % 8)));
  }
  return digest;
}

void Hash::Compress(const uint8_t* block) {
  if (BlockSize() == 64)
    Compress32(block);
  else
    Compress64(block);
}

void Hash::Compress32(const uint8_t* block) {
  uint32_t w[80];
  for (int t = 0; t < 16; ++t) w[t] = Load32(block + 4 * t);
  if (algorithm_ == HashAlgorithm::kSha1) {
    for (int t = 16; t < 80; ++t) w[t] = Rotl32(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
    uint32_t a = h32_[0], b = h32_[1], c = h32_[2], d = h32_[3], e = h32_[4];
    for (int t = 0; t < 80; ++t) {
      uint32_t f, k;
      if (t < 20) {
        f = (b & c) | (~b & d);
        k = 0x5a827999U;
      } else if (t < 40) {
        f = b ^ c ^ d;
        k = 0x6ed9eba1U;
      } else if (t < 60) {
        f = (b & c) | (b & d) | (c & d);
        k = 0x8f1bbcdcU;
      } else {
        f = b ^ c ^ d;
        k = 0xca62c1d6U;
      }
      const uint32_t temp = Rotl32(a, 5) + f + e + k + w[t];
      e = d;
      d = c;
      c = Rotl32(b, 30);
      b = a;
      a = temp;
    }
    h32_[0] += a;
    h32_[1] += b;
    h32_[2] += c;
    h32_[3] += d;
    h32_[4] += e;
    return;
  }
  for (int t = 16; t < 64; ++t) {
    const uint32_t s0 = Rotr32(w[t - 15], 7) ^ Rotr32(w[t - 15], 18) ^ (w[t - 15] >> 3);
    const uint32_t s1 = Rotr32(w[t - 2], 17) ^ Rotr32(w[t - 2], 19) ^ (w[t - 2] >> 10);
    w[t] = w[t - 16] + s0 + w[t - 7] + s1;
  }
  uint32_t v[8];
  std::copy(h32_, h32_ + 8, v);
  for (int t = 0; t < 64; ++t) {
    const uint32_t s1 = Rotr32(v[4], 6) ^ Rotr32(v[4], 11) ^ Rotr32(v[4], 25);
    const uint32_t ch = (v[4] & v[5]) ^ (~v[4] & v[6]);
    const uint32_t t1 = v[7] + s1 + ch + kK256[t] + w[t];
    const uint32_t s0 = Rotr32(v[0], 2) ^ Rotr32(v[0], 13) ^ Rotr32(v[0], 22);
    const uint32_t maj = (v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]);
    std::copy_backward(v, v + 7, v + 8);
    v[4] += t1;
    v[0] = t1 + s0 + maj;
  }
  for (int i = 0; i < 8; ++i) h32_[i] += v[i];
}

void Hash::Compress64(const uint8_t* block) {
  uint64_t w[80];
  for (int t = 0; t < 16; ++t) w[t] = Load64(block + 8 * t);
  for (int t = 16; t < 80; ++t) {
    const uint64_t s0 = Rotr64(w[t - 15], 1) ^ Rotr64(w[t - 15], 8) ^ (w[t - 15] >> 7);
    const uint64_t s1 = Rotr64(w[t - 2], 19) ^ Rotr64(w[t - 2], 61) ^ (w[t - 2] >> 6);
    w[t] = w[t - 16] + s0 + w[t - 7] + s1;
  }
  uint64_t v[8];
  std::copy(h64_, h64_ + 8, v);
  for (int t = 0; t < 80; ++t) {
    const uint64_t s1 = Rotr64(v[4], 14) ^ Rotr64(v[4], 18) ^ Rotr64(v[4], 41);
    const uint64_t ch = (v[4] & v[5]) ^ (~v[4] & v[6]);
    const uint64_t t1 = v[7] + s1 + ch + kK512[t] + w[t];
    const uint64_t s0 = Rotr64(v[0], 28) ^ Rotr64(v[0], 34) ^ Rotr64(v[0], 39);
    const uint64_t maj = (v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]);
    std::copy_backward(v, v + 7, v + 8);
    v[4] += t1;
    v[0] = t1 + s0 + maj;
  }
  for (int i = 0; i < 8; ++i) h64_[i] += v[i];
}

Bytes Digest(HashAlgorithm algorithm, const Bytes& data) {
  Hash hash(algorithm);
  hash.Update(data);
  return hash.Final();
}

Bytes Pbkdf2HmacSha1(const Bytes& password, const Bytes& salt, uint32_t count, size_t length, bool office_sha1) {
  auto sha1 = [&] { return office_sha1 ? Hash::OfficeSha1() : Hash(HashAlgorithm::kSha1); };
  // HMAC: a key longer than a block is hashed first; the keyed inner and
  // outer states are made once and copied for every message.
  Bytes key = password;
  if (key.size() > 64) {
    Hash h = sha1();
    h.Update(key);
    key = h.Final();
  }
  key.resize(64, 0);
  Hash inner = sha1();
  Hash outer = sha1();
  Bytes pad(64);
  for (size_t i = 0; i < 64; ++i) pad[i] = key[i] ^ 0x36;
  inner.Update(pad);
  for (size_t i = 0; i < 64; ++i) pad[i] = key[i] ^ 0x5c;
  outer.Update(pad);
  auto hmac = [&](const Bytes& message) {
    Hash in = inner;
    in.Update(message);
    Hash out = outer;
    out.Update(in.Final());
    return out.Final();
  };

  Bytes derived;
  for (uint32_t index = 1; derived.size() < length; ++index) {
    Bytes message = salt;
    for (int shift = 24; shift >= 0; shift -= 8) message.push_back(static_cast<uint8_t>(index >> shift));
    Bytes u = hmac(message);
    Bytes t = u;
    for (uint32_t i = 1; i < count; ++i) {
      u = hmac(u);
      for (size_t k = 0; k < t.size(); ++k) t[k] ^= u[k];
    }
    derived.insert(derived.end(), t.begin(), t.end());
  }
  derived.resize(length);
  return derived;
}

Bytes SpunHash(HashAlgorithm algorithm, const Bytes& salt, const Bytes& password, uint32_t spin_count) {
  Hash first(algorithm);
  first.Update(salt);
  first.Update(password);
  Bytes hash = first.Final();
  for (uint32_t i = 0; i < spin_count; ++i) {
    for (int shift = 0; shift < 32; shift += 8) hash.push_back(static_cast<uint8_t>(i >> shift));
    hash = Digest(algorithm, hash);
  }
  return hash;
}

namespace {
constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

std::string Base64Encode(const Bytes& data) {
  std::string text;
  for (size_t i = 0; i < data.size(); i += 3) {
    const size_t n = std::min<size_t>(3, data.size() - i);
    uint32_t group = static_cast<uint32_t>(data[i]) << 16;
    if (n > 1) group |= static_cast<uint32_t>(data[i + 1]) << 8;
    if (n > 2) group |= data[i + 2];
    for (size_t k = 0; k < 4; ++k) text += k <= n ? kBase64[(group >> (18 - 6 * k)) & 0x3F] : '=';
  }
  return text;
}

std::optional<Bytes> Base64Decode(std::string_view text) {
  Bytes data;
  uint32_t group = 0;
  int bits = 0;
  size_t padding = 0;
  for (const char c : text) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const char* at = std::strchr(kBase64, c);
    if (c == '\0' || at == nullptr || padding > 0) return std::nullopt;
    group = (group << 6) | static_cast<uint32_t>(at - kBase64);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      data.push_back(static_cast<uint8_t>(group >> bits));
    }
  }
  // What is left over must be the zero bits of a last partial group.
  if (bits >= 6 || padding > 2 || (group & ((1U << bits) - 1)) != 0) return std::nullopt;
  return data;
}

Bytes Utf16Le(std::string_view utf8) {
  Bytes out;
  auto put = [&](uint32_t unit) {
    out.push_back(static_cast<uint8_t>(unit));
    out.push_back(static_cast<uint8_t>(unit >> 8));
  };
  size_t i = 0;
  while (i < utf8.size()) {
    const auto lead = static_cast<uint8_t>(utf8[i]);
    const int extra = lead < 0x80             ? 0
                      : (lead & 0xE0) == 0xC0 ? 1
                      : (lead & 0xF0) == 0xE0 ? 2
                      : (lead & 0xF8) == 0xF0 ? 3
                                              : -1;
    uint32_t code = extra <= 0 ? lead : lead & (0x7F >> (extra + 1));
    bool valid = extra >= 0 && i + static_cast<size_t>(extra) < utf8.size();
    for (int k = 1; valid && k <= extra; ++k) {
      const auto next = static_cast<uint8_t>(utf8[i + k]);
      if ((next & 0xC0) != 0x80) valid = false;
      code = (code << 6) | (next & 0x3F);
    }
    static constexpr uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (valid && (code < kMin[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))) valid = false;
    if (!valid) {
      put(0xFFFD);
      ++i;
      continue;
    }
    i += static_cast<size_t>(extra) + 1;
    if (code >= 0x10000) {
      code -= 0x10000;
      put(0xD800 + (code >> 10));
      put(0xDC00 + (code & 0x3FF));
    } else {
      put(code);
    }
  }
  return out;
}

Bytes ToBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

}  // namespace tabulon::office::uno
