#include "office/uno/text_output.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tabulon::office::uno {
namespace {

// Streams records (quote-aware) out of a delimited UTF-8 file, a large
// block at a time: exports of big sheets run to many megabytes.
class RecordReader {
 public:
  RecordReader(std::FILE* in, bool quoted, size_t buffer_bytes)
      : in_(in), quoted_(quoted), buffer_(std::max<size_t>(buffer_bytes, 1)) {}

  // The next record without its line end; false at the end of the file.
  bool Next(std::string* record) {
    record->clear();
    bool in_quotes = false;
    bool any = false;
    while (Available()) {
      any = true;
      const char* begin = buffer_.data() + pos_;
      const char* end = buffer_.data() + len_;
      const char* p = begin;
      for (; p < end; ++p) {
        const char c = *p;
        if (c == '"') {
          if (quoted_) in_quotes = !in_quotes;
        } else if ((c == '\n' || c == '\r') && !in_quotes) {
          break;
        }
      }
      record->append(begin, p);
      pos_ += static_cast<size_t>(p - begin);
      if (p == end) continue;
      const char line_end = *p;  // read before the buffer is refilled
      ++pos_;
      if (line_end == '\r' && Available() && buffer_[pos_] == '\n') ++pos_;
      return true;
    }
    return any;
  }

  bool failed() const { return std::ferror(in_) != 0; }

 private:
  bool Available() {
    if (pos_ < len_) return true;
    len_ = std::fread(buffer_.data(), 1, buffer_.size(), in_);
    pos_ = 0;
    return len_ > 0;
  }

  std::FILE* in_;
  bool quoted_;
  std::vector<char> buffer_;
  size_t pos_ = 0;
  size_t len_ = 0;
};

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::vector<std::string> SplitFields(const std::string& record, char delimiter) {
  std::vector<std::string> fields(1);
  for (char c : record) {
    if (c == delimiter)
      fields.emplace_back();
    else
      fields.back() += c;
  }
  return fields;
}

size_t Utf8Length(const std::string& s) {
  size_t n = 0;
  for (unsigned char c : s)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

bool LooksNumeric(const std::string& s) {
  if (s.empty()) return false;
  double d;
  std::string t;
  for (char c : s)
    if (c != ',' && c != '$' && c != '%') t += c;
  const auto r = std::from_chars(t.data(), t.data() + t.size(), d);
  return r.ec == std::errc() && r.ptr == t.data() + t.size();
}

// UTF-8 to the target character set; unknown characters become '?'.
class Encoder {
 public:
  explicit Encoder(Charset charset) : charset_(charset) {
    const char* to = nullptr;
    switch (charset) {
      case Charset::kWindows1252: to = "WINDOWS-1252"; break;
      case Charset::kCp437: to = "CP437"; break;
      case Charset::kMacRoman: to = "MACINTOSH"; break;
      case Charset::kUtf16LeBom: to = "UTF-16LE"; break;
      case Charset::kUtf8:
      case Charset::kUtf8Bom: break;
    }
    if (to != nullptr) {
      cd_ = iconv_open(to, "UTF-8");
      if (cd_ == reinterpret_cast<iconv_t>(-1)) error_ = std::string("no converter to ") + to;
    }
  }
  ~Encoder() {
    if (cd_ != reinterpret_cast<iconv_t>(-1)) iconv_close(cd_);
  }
  const std::string& error() const { return error_; }

  std::string Bom() const {
    if (charset_ == Charset::kUtf8Bom) return "\xEF\xBB\xBF";
    if (charset_ == Charset::kUtf16LeBom) return std::string("\xFF\xFE", 2);
    return "";
  }

  // Appends the text in the target character set.
  void Append(const std::string& text, std::string* out) {
    if (cd_ == reinterpret_cast<iconv_t>(-1)) {
      out->append(text);
      return;
    }
    out->append(Encode(text));
  }

  std::string Encode(const std::string& text) {
    if (cd_ == reinterpret_cast<iconv_t>(-1)) return text;
    std::string out;
    char buf[4096];
    char* in = const_cast<char*>(text.data());
    size_t in_left = text.size();
    while (in_left > 0) {
      char* o = buf;
      size_t o_left = sizeof buf;
      const size_t r = iconv(cd_, &in, &in_left, &o, &o_left);
      out.append(buf, o - buf);
      if (r == static_cast<size_t>(-1)) {
        if (errno == E2BIG) continue;
        // An unmappable or malformed character: skip its UTF-8 bytes and
        // write '?' in the target set.
        size_t skip = 1;
        while (skip < in_left && (static_cast<unsigned char>(in[skip]) & 0xC0) == 0x80) ++skip;
        in += skip;
        in_left -= skip;
        out += Encode("?");
      }
    }
    return out;
  }

 private:
  Charset charset_;
  iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
  std::string error_;
};

}  // namespace

bool FinishText(const std::string& source, const std::string& target, const FileFormat& format,
                const std::vector<int>& min_widths, std::string* error, size_t buffer_bytes) {
  Encoder encoder(format.charset);
  if (!encoder.error().empty()) {
    *error = encoder.error();
    return false;
  }
  const std::string line_end = encoder.Encode(format.line_end == LineEnd::kCr ? "\r" : "\r\n");
  const bool quoted = format.layout != TextLayout::kPrinter;

  // The padded layout needs every column's width before the first line.
  std::vector<size_t> widths;
  for (int w : min_widths) widths.push_back(w > 0 ? static_cast<size_t>(w) : 0);
  if (format.layout == TextLayout::kPrinter) {
    File in(std::fopen(source.c_str(), "rb"));
    if (!in) {
      *error = "cannot read " + source;
      return false;
    }
    RecordReader reader(in.get(), quoted, buffer_bytes);
    std::string record;
    while (reader.Next(&record)) {
      const auto fields = SplitFields(record, '\t');
      if (widths.size() < fields.size()) widths.resize(fields.size(), 0);
      for (size_t i = 0; i < fields.size(); ++i)
        widths[i] = std::max(widths[i], Utf8Length(fields[i]));
    }
    if (reader.failed()) {
      *error = "cannot read " + source;
      return false;
    }
  }

  File in(std::fopen(source.c_str(), "rb"));
  if (!in) {
    *error = "cannot read " + source;
    return false;
  }
  File out(std::fopen(target.c_str(), "wb"));
  if (!out) {
    *error = "cannot write " + target;
    return false;
  }
  // Written a large block at a time.
  const size_t flush_at = std::max<size_t>(buffer_bytes, 1);
  std::string pending = encoder.Bom();
  bool written = true;
  auto flush = [&] {
    if (!pending.empty() && std::fwrite(pending.data(), 1, pending.size(), out.get()) != pending.size())
      written = false;
    pending.clear();
  };
  RecordReader reader(in.get(), quoted, buffer_bytes);
  std::string record;
  while (written && reader.Next(&record)) {
    if (format.layout == TextLayout::kPrinter) {
      const auto fields = SplitFields(record, '\t');
      // Trailing empty fields add nothing but blanks: Excel ends the line
      // after the last non-empty column.
      size_t used = fields.size();
      while (used > 0 && fields[used - 1].empty()) --used;
      std::string line;
      for (size_t i = 0; i < used; ++i) {
        const size_t pad = widths[i] - Utf8Length(fields[i]);
        if (LooksNumeric(fields[i]))
          line += std::string(pad, ' ') + fields[i];
        else if (i + 1 < used)
          line += fields[i] + std::string(pad, ' ');
        else
          line += fields[i];
        if (i + 1 < used) line += ' ';
      }
      record = line;
    }
    encoder.Append(record, &pending);
    pending += line_end;
    if (pending.size() >= flush_at) flush();
  }
  flush();
  if (reader.failed()) {
    *error = "cannot read " + source;
    return false;
  }
  if (!written || std::fclose(out.release()) != 0) {
    *error = "cannot write " + target;
    return false;
  }
  return true;
}

std::string DelimitedText(const Block& block, char delimiter, bool quote) {
  std::string text;
  for (const auto& row : block) {
    for (size_t c = 0; c < row.size(); ++c) {
      if (c > 0) text += delimiter;
      std::string field;
      if (const auto* s = std::get_if<std::string>(&row[c])) {
        field = *s;
      } else if (const auto* d = std::get_if<double>(&row[c])) {
        char buf[64];
        const auto r = std::to_chars(buf, buf + sizeof buf, *d);
        field.assign(buf, r.ptr);
      }
      const bool needs_quotes =
          quote && field.find_first_of(std::string(1, delimiter) + "\"\r\n") != std::string::npos;
      if (needs_quotes) {
        text += '"';
        for (char ch : field) {
          if (ch == '"') text += '"';
          text += ch;
        }
        text += '"';
      } else {
        text += field;
      }
    }
    text += '\n';
  }
  return text;
}

}  // namespace tabulon::office::uno
