#include "encoding.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

namespace tabulon::cli {

namespace {

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool IsWindows1252(const std::string& name) {
  const std::string n = Lower(name);
  return n == "windows-1252" || n == "cp1252" || n == "windows1252";
}

bool IsUtf8Name(const std::string& name) {
  const std::string n = Lower(name);
  return n == "utf-8" || n == "utf8";
}

// Windows-1252 bytes 0x80 to 0x9F; the five the code page leaves undefined
// map to the C1 control of the same value, as the platform's own
// conversion does. Every other byte is its Latin-1 code point.
constexpr char32_t kHigh1252[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(char32_t c, std::string& out) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

bool Transcode1252(std::ifstream& in, std::ofstream& out) {
  std::vector<char> buffer(1 << 16);
  std::string converted;
  while (in) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    converted.clear();
    for (std::streamsize i = 0; i < in.gcount(); ++i) {
      const auto b = static_cast<unsigned char>(buffer[static_cast<size_t>(i)]);
      AppendUtf8(b >= 0x80 && b < 0xA0 ? kHigh1252[b - 0x80] : b, converted);
    }
    out.write(converted.data(), static_cast<std::streamsize>(converted.size()));
  }
  return out.good();
}

bool TranscodeIconv(std::ifstream& in, std::ofstream& out, const std::string& encoding, std::string& error) {
  iconv_t cd = iconv_open("UTF-8", encoding.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    error = "unknown encoding " + encoding;
    return false;
  }
  std::vector<char> buffer(1 << 16);
  std::vector<char> converted(4 * buffer.size() + 16);
  size_t carried = 0;  // bytes of a character split across two reads
  bool ok = true;
  uint64_t offset = 0;
  while (ok) {
    in.read(buffer.data() + carried, static_cast<std::streamsize>(buffer.size() - carried));
    const size_t got = static_cast<size_t>(in.gcount());
    const bool last = got == 0;
    char* from = buffer.data();
    size_t from_left = carried + got;
    char* to = converted.data();
    size_t to_left = converted.size();
    const size_t result = iconv(cd, &from, &from_left, &to, &to_left);
    out.write(converted.data(), static_cast<std::streamsize>(converted.size() - to_left));
    if (result == static_cast<size_t>(-1) && (errno == EILSEQ || (errno == EINVAL && last))) {
      error = "a byte at offset " + std::to_string(offset + static_cast<uint64_t>(from - buffer.data())) + " is not " +
              encoding + " text";
      ok = false;
    }
    offset += static_cast<uint64_t>(from - buffer.data());
    std::copy(from, from + from_left, buffer.data());
    carried = from_left;
    if (last) break;
  }
  iconv_close(cd);
  return ok && out.good();
}

}  // namespace

bool KnownEncoding(const std::string& name) {
  if (Lower(name) == "auto" || IsUtf8Name(name) || IsWindows1252(name)) return true;
  iconv_t cd = iconv_open("UTF-8", name.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  iconv_close(cd);
  return true;
}

bool IsUtf8OrMarked(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::vector<char> buffer(1 << 16);
  int pending = 0;  // continuation bytes still expected
  uint32_t code = 0;
  int length = 0;
  bool first = true;
  while (in) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto n = static_cast<size_t>(in.gcount());
    if (first && n >= 2) {
      const auto b0 = static_cast<unsigned char>(buffer[0]), b1 = static_cast<unsigned char>(buffer[1]);
      if ((b0 == 0xFF && b1 == 0xFE) || (b0 == 0xFE && b1 == 0xFF)) return true;
    }
    first = false;
    for (size_t i = 0; i < n; ++i) {
      const auto b = static_cast<unsigned char>(buffer[i]);
      if (pending > 0) {
        if ((b & 0xC0) != 0x80) return false;
        code = (code << 6) | (b & 0x3F);
        if (--pending == 0) {
          // Overlong forms, surrogates and code points above U+10FFFF are
          // not UTF-8.
          if ((length == 2 && code < 0x80) || (length == 3 && code < 0x800) || (length == 4 && code < 0x10000) ||
              (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
            return false;
        }
      } else if (b >= 0x80) {
        if ((b & 0xE0) == 0xC0) {
          pending = 1, code = b & 0x1F;
        } else if ((b & 0xF0) == 0xE0) {
          pending = 2, code = b & 0x0F;
        } else if ((b & 0xF8) == 0xF0) {
          pending = 3, code = b & 0x07;
        } else {
          return false;
        }
        length = pending + 1;
      }
    }
  }
  return pending == 0;
}

bool TranscodeToUtf8(const std::string& from, const std::string& to, const std::string& encoding, std::string& error) {
  std::ifstream in(from, std::ios::binary);
  if (!in) {
    error = "cannot read " + from;
    return false;
  }
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  if (!out) {
    error = "cannot write " + to;
    return false;
  }
  const bool ok = IsWindows1252(encoding) || Lower(encoding) == "auto" ? Transcode1252(in, out)
                                                                       : TranscodeIconv(in, out, encoding, error);
  if (ok) return true;
  if (error.empty()) error = "cannot write " + to;
  return false;
}

bool IsTextSource(const std::string& path) {
  const std::string ext = Lower(std::filesystem::path(path).extension().string());
  return ext == ".csv" || ext == ".txt" || ext == ".prn" || ext == ".tsv" || ext == ".tab";
}

}  // namespace tabulon::cli
