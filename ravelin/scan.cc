#include "scan.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#define RAVELIN_X86 1
#include <immintrin.h>
#endif

namespace ravelin::scan {

namespace {

// Bit i of the result is the XOR of bits 0..i of x: 1 for bytes after an
// odd number of quotes, that is inside quoted text.
inline uint64_t PrefixXor(uint64_t x) {
  x ^= x << 1;
  x ^= x << 2;
  x ^= x << 4;
  x ^= x << 8;
  x ^= x << 16;
  x ^= x << 32;
  return x;
}

inline int HighestBit(uint64_t x) { return 63 - __builtin_clzll(x); }

inline uint64_t ByteMask(const unsigned char* p, unsigned char c) {
  uint64_t m = 0;
  for (int i = 0; i < 64; ++i) m |= static_cast<uint64_t>(p[i] == c) << i;
  return m;
}

// The reference every vector kernel must agree with.
size_t SubstituteGeneric(char* p, size_t n, char from, char to, int stop, SubstituteState* state) {
  uint64_t inside = state->inside;
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    auto* b = reinterpret_cast<unsigned char*>(p + i);
    const uint64_t in = PrefixXor(ByteMask(b, '"')) ^ inside;
    if (stop >= 0 && (ByteMask(b, static_cast<unsigned char>(stop)) & ~in) != 0) break;
    inside = static_cast<uint64_t>(static_cast<int64_t>(in) >> 63);
    uint64_t hits = ByteMask(b, static_cast<unsigned char>(from)) & ~in;
    const uint64_t bounds = hits | (ByteMask(b, '\n') & ~in);
    if (bounds != 0) state->last_boundary = static_cast<int64_t>(i) + HighestBit(bounds);
    for (; hits != 0; hits &= hits - 1) b[__builtin_ctzll(hits)] = static_cast<unsigned char>(to);
  }
  state->inside = inside;
  return i;
}

#if RAVELIN_X86

__attribute__((target("pclmul"))) inline uint64_t ClmulPrefixXor(uint64_t x) {
  const __m128i r = _mm_clmulepi64_si128(_mm_set_epi64x(0, static_cast<int64_t>(x)), _mm_set1_epi8(-1), 0);
  return static_cast<uint64_t>(_mm_cvtsi128_si64(r));
}

inline uint64_t Mask16x4(__m128i a, __m128i b, __m128i c, __m128i d, __m128i v) {
  return static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, v)))) |
         static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(b, v)))) << 16 |
         static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(c, v)))) << 32 |
         static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(d, v)))) << 48;
}

// SSE2 is in every x86-64 processor: masks by vector, replacement by bit.
size_t SubstituteSse2(char* p, size_t n, char from, char to, int stop, SubstituteState* state) {
  const __m128i vq = _mm_set1_epi8('"');
  const __m128i vf = _mm_set1_epi8(from);
  const __m128i vs = _mm_set1_epi8(static_cast<char>(stop));
  const __m128i vlf = _mm_set1_epi8('\n');
  uint64_t inside = state->inside;
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i + 32));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i + 48));
    const uint64_t in = PrefixXor(Mask16x4(a, b, c, d, vq)) ^ inside;
    if (stop >= 0 && (Mask16x4(a, b, c, d, vs) & ~in) != 0) break;
    inside = static_cast<uint64_t>(static_cast<int64_t>(in) >> 63);
    uint64_t hits = Mask16x4(a, b, c, d, vf) & ~in;
    const uint64_t bounds = hits | (Mask16x4(a, b, c, d, vlf) & ~in);
    if (bounds != 0) state->last_boundary = static_cast<int64_t>(i) + HighestBit(bounds);
    for (; hits != 0; hits &= hits - 1) p[i + static_cast<size_t>(__builtin_ctzll(hits))] = to;
  }
  state->inside = inside;
  return i;
}

__attribute__((target("avx2"))) inline uint64_t Mask32x2(__m256i a, __m256i b, __m256i v) {
  return static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(a, v)))) |
         static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(b, v)))) << 32;
}

// Byte i of the result is 0xFF when bit i of m is set.
__attribute__((target("avx2"))) inline __m256i ExpandBits(uint32_t m) {
  const __m256i spread = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 3,
                                          3, 3, 3, 3, 3, 3, 3);
  const __m256i bits = _mm256_set1_epi64x(static_cast<int64_t>(0x8040201008040201ull));
  const __m256i v = _mm256_shuffle_epi8(_mm256_set1_epi32(static_cast<int>(m)), spread);
  return _mm256_cmpeq_epi8(_mm256_and_si256(v, bits), bits);
}

__attribute__((target("avx2,pclmul"))) size_t SubstituteAvx2(char* p, size_t n, char from, char to, int stop,
                                                             SubstituteState* state) {
  const __m256i vq = _mm256_set1_epi8('"');
  const __m256i vf = _mm256_set1_epi8(from);
  const __m256i vt = _mm256_set1_epi8(to);
  const __m256i vs = _mm256_set1_epi8(static_cast<char>(stop));
  const __m256i vlf = _mm256_set1_epi8('\n');
  uint64_t inside = state->inside;
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    auto* pa = reinterpret_cast<__m256i*>(p + i);
    auto* pb = reinterpret_cast<__m256i*>(p + i + 32);
    const __m256i a = _mm256_loadu_si256(pa);
    const __m256i b = _mm256_loadu_si256(pb);
    const uint64_t in = ClmulPrefixXor(Mask32x2(a, b, vq)) ^ inside;
    if (stop >= 0 && (Mask32x2(a, b, vs) & ~in) != 0) break;
    inside = static_cast<uint64_t>(static_cast<int64_t>(in) >> 63);
    const uint64_t hits = Mask32x2(a, b, vf) & ~in;
    const uint64_t bounds = hits | (Mask32x2(a, b, vlf) & ~in);
    if (bounds != 0) state->last_boundary = static_cast<int64_t>(i) + HighestBit(bounds);
    if (hits != 0) {
      _mm256_storeu_si256(pa, _mm256_blendv_epi8(a, vt, ExpandBits(static_cast<uint32_t>(hits))));
      _mm256_storeu_si256(pb, _mm256_blendv_epi8(b, vt, ExpandBits(static_cast<uint32_t>(hits >> 32))));
    }
  }
  state->inside = inside;
  return i;
}

__attribute__((target("avx512f,avx512bw,pclmul"))) size_t SubstituteAvx512(char* p, size_t n, char from, char to,
                                                                          int stop, SubstituteState* state) {
  const __m512i vq = _mm512_set1_epi8('"');
  const __m512i vf = _mm512_set1_epi8(from);
  const __m512i vt = _mm512_set1_epi8(to);
  const __m512i vs = _mm512_set1_epi8(static_cast<char>(stop));
  const __m512i vlf = _mm512_set1_epi8('\n');
  uint64_t inside = state->inside;
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    const __m512i v = _mm512_loadu_si512(p + i);
    const uint64_t in = ClmulPrefixXor(_mm512_cmpeq_epi8_mask(v, vq)) ^ inside;
    if (stop >= 0 && (_mm512_cmpeq_epi8_mask(v, vs) & ~in) != 0) break;
    inside = static_cast<uint64_t>(static_cast<int64_t>(in) >> 63);
    const uint64_t hits = _mm512_cmpeq_epi8_mask(v, vf) & ~in;
    const uint64_t bounds = hits | (_mm512_cmpeq_epi8_mask(v, vlf) & ~in);
    if (bounds != 0) state->last_boundary = static_cast<int64_t>(i) + HighestBit(bounds);
    if (hits != 0) _mm512_storeu_si512(p + i, _mm512_mask_blend_epi8(hits, v, vt));
  }
  state->inside = inside;
  return i;
}

bool HasAvx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("pclmul");
}

bool HasAvx512() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("pclmul");
}

#endif  // RAVELIN_X86

}  // namespace

std::vector<SubstituteKernel> AvailableSubstitutes() {
  std::vector<SubstituteKernel> kernels{{"generic", &SubstituteGeneric}};
#if RAVELIN_X86
  kernels.push_back({"sse2", &SubstituteSse2});
  if (HasAvx2()) kernels.push_back({"avx2", &SubstituteAvx2});
  if (HasAvx512()) kernels.push_back({"avx512", &SubstituteAvx512});
#endif
  return kernels;
}

SubstituteFn BestSubstitute() {
  static const SubstituteFn best = [] { return AvailableSubstitutes().back().fn; }();
  return best;
}

const char* FindStructural(const char* p, const char* e, char delim) {
#if defined(__SSE2__)
  const __m128i vq = _mm_set1_epi8('"');
  const __m128i vd = _mm_set1_epi8(delim);
  const __m128i vcr = _mm_set1_epi8('\r');
  const __m128i vlf = _mm_set1_epi8('\n');
  while (e - p >= 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i m = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, vq), _mm_cmpeq_epi8(v, vd)),
                                   _mm_or_si128(_mm_cmpeq_epi8(v, vcr), _mm_cmpeq_epi8(v, vlf)));
    const int bits = _mm_movemask_epi8(m);
    if (bits != 0) return p + __builtin_ctz(static_cast<unsigned>(bits));
    p += 16;
  }
#endif
  for (; p < e; ++p) {
    const char c = *p;
    if (c == '"' || c == delim || c == '\r' || c == '\n') return p;
  }
  return e;
}

}  // namespace ravelin::scan
