// Helpers of the text-library tests: a scratch folder, whole-file reads and
// writes, a UTF-16 encoder of their own, a plain CSV reader to compare
// values with, random CSV, and a plain model of the delimiter change.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace ravelin_test {

class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/ravelin-test-XXXXXX";
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  // Names in the folder, hidden ones (temporary files) included.
  std::vector<std::string> List() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(path_)) names.push_back(e.path().filename());
    return names;
  }

 private:
  std::string path_;
};

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

// UTF-8 (valid) to UTF-16 with a byte-order mark.
inline std::string Utf16(const std::string& utf8, bool big_endian) {
  std::string out = big_endian ? "\xFE\xFF" : "\xFF\xFE";
  auto unit = [&](uint32_t u) {
    const char hi = static_cast<char>(u >> 8), lo = static_cast<char>(u & 0xFF);
    out += big_endian ? hi : lo;
    out += big_endian ? lo : hi;
  };
  for (size_t i = 0; i < utf8.size();) {
    const auto b = static_cast<unsigned char>(utf8[i]);
    const int len = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
    uint32_t cp = len == 1 ? b : len == 2 ? b & 0x1F : len == 3 ? b & 0x0F : b & 0x07;
    for (int k = 1; k < len; ++k) cp = cp << 6 | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    if (cp >= 0x10000) {
      unit(0xD800 | ((cp - 0x10000) >> 10));
      unit(0xDC00 | ((cp - 0x10000) & 0x3FF));
    } else {
      unit(cp);
    }
    i += static_cast<size_t>(len);
  }
  return out;
}

using Table = std::vector<std::vector<std::string>>;

// Values of well-formed CSV (RFC 4180; LF or CR LF; no empty-line records).
inline Table ParseCsv(const std::string& text, char delim) {
  Table table;
  std::vector<std::string> record;
  std::string field;
  size_t i = 0;
  bool any = false;
  auto end_field = [&] {
    record.push_back(field);
    field.clear();
  };
  while (i < text.size()) {
    any = true;
    if (text[i] == '"' && field.empty()) {
      for (++i; i < text.size(); ++i) {
        if (text[i] == '"') {
          if (i + 1 < text.size() && text[i + 1] == '"') {
            field += '"';
            ++i;
          } else {
            ++i;
            break;
          }
        } else {
          field += text[i];
        }
      }
      continue;
    }
    const char c = text[i++];
    if (c == delim) {
      end_field();
    } else if (c == '\n' || (c == '\r' && i < text.size() && text[i] == '\n')) {
      if (c == '\r') ++i;
      end_field();
      table.push_back(record);
      record.clear();
      any = false;
    } else {
      field += c;
    }
  }
  if (any) {
    end_field();
    table.push_back(record);
  }
  return table;
}

// Random CSV: fields holding the delimiter, quotes or line breaks are quoted,
// some others too. With loose_semicolons, unquoted fields may hold ';'.
inline std::string RandomCsv(std::mt19937& rng, size_t records, bool loose_semicolons) {
  static const std::vector<std::string> kPieces = {"a", "b", "7", " ", ",", ";", "\"", "\n", "\r\n", "\r",
                                                   "\xC3\xA9", "\xE2\x82\xAC", "\t", "xyz"};
  std::uniform_int_distribution<int> fields(1, 6), len(0, 8), piece(0, static_cast<int>(kPieces.size()) - 1);
  std::string text;
  for (size_t r = 0; r < records; ++r) {
    const int n = fields(rng);
    for (int f = 0; f < n; ++f) {
      std::string value;
      for (int k = len(rng); k > 0; --k) value += kPieces[static_cast<size_t>(piece(rng))];
      const bool must = value.find_first_of(",\"\r\n") != std::string::npos ||
                        (!loose_semicolons && value.find(';') != std::string::npos);
      if (must || rng() % 5 == 0) {
        std::string quoted = "\"";
        for (char c : value) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
        value = quoted + "\"";
      }
      if (f > 0) text += ',';
      text += value;
    }
    // A record that is one empty field would read as an empty line.
    if (n == 1 && text.size() > 0 && (text.back() == '\n' || text.back() == ',')) text += "\"\"";
    if (r + 1 < records || rng() % 2 == 0) text += rng() % 3 == 0 ? "\r\n" : "\n";
  }
  return text;
}

// The model: split into fields by counting quotes; a field that holds `to`
// outside quotes is written quoted with its quotes doubled.
inline std::string ModelChange(const std::string& text, char from, char to, bool quote_fields) {
  std::string out, field;
  bool inside = false;
  auto emit = [&](const std::string& terminator) {
    bool needs = false, q = false;
    for (char c : field) {
      if (c == '"') q = !q;
      if (!q && c == to && c != '"') needs = true;
    }
    if (quote_fields && needs && from != to) {
      out += '"';
      for (char c : field) out += c == '"' ? std::string("\"\"") : std::string(1, c);
      out += '"';
    } else {
      out += field;
    }
    out += terminator;
    field.clear();
  };
  for (char c : text) {
    if (c == '"') {
      inside = !inside;
      field += c;
    } else if (!inside && c == from) {
      emit(std::string(1, to));
    } else if (!inside && c == '\n' && quote_fields) {
      const bool cr = !field.empty() && field.back() == '\r';
      if (cr) field.pop_back();
      emit(cr ? "\r\n" : "\n");
    } else {
      field += c;
    }
  }
  emit("");
  return out;
}

}  // namespace ravelin_test
