#include "encoding.h"

#include <cstring>

namespace ravelin {

Encoding DetectEncoding(const char* p, size_t n) {
  const auto* b = reinterpret_cast<const unsigned char*>(p);
  if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) return Encoding::kUtf8Bom;
  if (n >= 2 && b[0] == 0xFF && b[1] == 0xFE) return Encoding::kUtf16Le;
  if (n >= 2 && b[0] == 0xFE && b[1] == 0xFF) return Encoding::kUtf16Be;
  return Encoding::k8Bit;
}

Status DetectFileEncoding(int fd, Encoding* encoding) {
  char head[3];
  size_t got = 0;
  RAVELIN_RETURN_IF_ERROR(ReadAt(fd, 0, head, sizeof head, &got));
  *encoding = DetectEncoding(head, got);
  return Status::kOk;
}

std::string_view BomOf(Encoding e) {
  switch (e) {
    case Encoding::kUtf8Bom: return "\xEF\xBB\xBF";
    case Encoding::kUtf16Le: return "\xFF\xFE";
    case Encoding::kUtf16Be: return "\xFE\xFF";
    case Encoding::k8Bit: break;
  }
  return {};
}

int32_t TextKind(Encoding e) {
  switch (e) {
    case Encoding::kUtf16Le: return RAVELIN_TEXT_UTF16LE;
    case Encoding::kUtf16Be: return RAVELIN_TEXT_UTF16BE;
    case Encoding::kUtf8Bom: return RAVELIN_TEXT_UTF8_BOM;
    case Encoding::k8Bit: break;
  }
  return RAVELIN_TEXT_8BIT;
}

namespace {

template <typename Sink>
void PutCodePoint(uint32_t cp, Sink& sink) {
  if (cp < 0x80) {
    sink(static_cast<char>(cp));
  } else if (cp < 0x800) {
    sink(static_cast<char>(0xC0 | (cp >> 6)));
    sink(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    sink(static_cast<char>(0xE0 | (cp >> 12)));
    sink(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    sink(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    sink(static_cast<char>(0xF0 | (cp >> 18)));
    sink(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    sink(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    sink(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

template <typename Sink>
void PutUnit(uint16_t unit, bool big_endian, Sink& sink) {
  const char hi = static_cast<char>(unit >> 8);
  const char lo = static_cast<char>(unit & 0xFF);
  if (big_endian) {
    sink(hi);
    sink(lo);
  } else {
    sink(lo);
    sink(hi);
  }
}

// Length of the UTF-8 sequence at p (surrogate forms allowed), 0 when the
// bytes are not one, -1 when the sequence is cut off by the end of [p, e).
int SequenceLength(const unsigned char* p, const unsigned char* e, uint32_t* cp) {
  const unsigned char b = p[0];
  int len;
  uint32_t v;
  unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
  if (b < 0x80) {
    *cp = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    len = 2;
    v = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    len = 3;
    v = b & 0x0F;
    if (b == 0xE0) lo = 0xA0;
  } else if (b >= 0xF0 && b <= 0xF4) {
    len = 4;
    v = b & 0x07;
    if (b == 0xF0) lo = 0x90;
    if (b == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  for (int i = 1; i < len; ++i) {
    if (p + i >= e) return -1;
    const unsigned char c = p[i];
    if (i == 1 ? (c < lo || c > hi) : (c < 0x80 || c > 0xBF)) return 0;
    v = (v << 6) | (c & 0x3F);
  }
  *cp = v;
  return len;
}

// Encodes [p, e) as UTF-16; returns how many bytes at the end belong to a
// sequence that continues beyond e (only when `more` is true).
template <typename Sink>
size_t EncodeRun(const unsigned char* p, const unsigned char* e, bool more, bool big_endian, Sink& sink) {
  while (p < e) {
    uint32_t cp = 0;
    const int len = SequenceLength(p, e, &cp);
    if (len < 0 && more) return static_cast<size_t>(e - p);
    if (len <= 0) {
      PutUnit(*p, big_endian, sink);
      ++p;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      PutUnit(static_cast<uint16_t>(0xD800 | (cp >> 10)), big_endian, sink);
      PutUnit(static_cast<uint16_t>(0xDC00 | (cp & 0x3FF)), big_endian, sink);
    } else {
      PutUnit(static_cast<uint16_t>(cp), big_endian, sink);
    }
    p += len;
  }
  return 0;
}

}  // namespace

Status Utf16ToUtf8(Input& in, bool big_endian, Output& out) {
  auto sink = [&out](char c) { out.Put(c); };
  uint32_t high = 0;  // a high surrogate waiting for its partner
  bool have_odd = false;
  unsigned char odd = 0;
  auto unit_of = [big_endian](unsigned char a, unsigned char b) {
    return big_endian ? static_cast<uint32_t>(a << 8 | b) : static_cast<uint32_t>(b << 8 | a);
  };
  auto take = [&](uint32_t u) {
    if (high != 0) {
      if (u >= 0xDC00 && u <= 0xDFFF) {
        PutCodePoint(0x10000 + ((high - 0xD800) << 10) + (u - 0xDC00), sink);
        high = 0;
        return;
      }
      PutCodePoint(high, sink);
      high = 0;
    }
    if (u >= 0xD800 && u <= 0xDBFF) {
      high = u;
    } else {
      PutCodePoint(u, sink);
    }
  };
  for (;;) {
    bool more = false;
    RAVELIN_RETURN_IF_ERROR(in.Next(&more));
    if (!more) break;
    const auto* p = reinterpret_cast<const unsigned char*>(in.data());
    const auto* e = p + in.size();
    if (have_odd) {
      take(unit_of(odd, *p++));
      have_odd = false;
    }
    for (; e - p >= 2; p += 2) take(unit_of(p[0], p[1]));
    if (p < e) {
      odd = *p;
      have_odd = true;
    }
  }
  if (high != 0) PutCodePoint(high, sink);
  if (have_odd) return Status::kEncoding;
  return out.status();
}

Status Utf8ToUtf16(Input& in, bool big_endian, Output& out) {
  auto sink = [&out](char c) { out.Put(c); };
  unsigned char carry[8];
  size_t carried = 0;
  for (;;) {
    bool more = false;
    RAVELIN_RETURN_IF_ERROR(in.Next(&more));
    if (!more) break;
    const auto* p = reinterpret_cast<const unsigned char*>(in.data());
    const auto* e = p + in.size();
    // Finish a sequence cut by the previous block's end.
    while (carried > 0 && p < e) {
      carry[carried++] = *p++;
      const size_t left = EncodeRun(carry, carry + carried, true, big_endian, sink);
      std::memmove(carry, carry + carried - left, left);
      carried = left;
    }
    const size_t left = EncodeRun(p, e, true, big_endian, sink);
    std::memcpy(carry + carried, e - left, left);
    carried += left;
  }
  EncodeRun(carry, carry + carried, false, big_endian, sink);
  return out.status();
}

std::string Utf8ToUtf16(std::string_view text, bool big_endian) {
  std::string result;
  auto sink = [&result](char c) { result.push_back(c); };
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  EncodeRun(p, p + text.size(), false, big_endian, sink);
  return result;
}

}  // namespace ravelin
