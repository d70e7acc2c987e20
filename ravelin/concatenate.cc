#include "concatenate.h"

#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "encoding.h"
#include "io.h"
#include "lexer.h"
#include "rewrite_file.h"

namespace ravelin {

namespace {

// A header longer than this is not compared (it would have to be held).
constexpr uint64_t kMaxHeader = uint64_t{1} << 20;
// How far into a file its first line break is looked for.
constexpr size_t kLineBreakProbe = size_t{64} << 10;

// Whether text of encoding `appended` may follow text of encoding `base`.
bool Compatible(Encoding base, Encoding appended) {
  if (base == appended) return true;
  return !IsUtf16(base) && !IsUtf16(appended);
}

bool BigEndian(Encoding e) { return e == Encoding::kUtf16Be; }

// `text` (UTF-8) in the encoding of a file.
std::string Encode(std::string_view text, Encoding e) {
  return IsUtf16(e) ? Utf8ToUtf16(text, BigEndian(e)) : std::string(text);
}

// The character unit at p in a file of encoding e.
uint32_t UnitAt(const unsigned char* p, Encoding e) {
  if (!IsUtf16(e)) return p[0];
  return BigEndian(e) ? static_cast<uint32_t>(p[0] << 8 | p[1]) : static_cast<uint32_t>(p[1] << 8 | p[0]);
}

// Whether the first line break in [begin, end) of the file is CR LF.
Status UsesCrLf(int fd, uint64_t begin, uint64_t end, Encoding e, bool* crlf) {
  *crlf = false;
  std::string probe(static_cast<size_t>(std::min<uint64_t>(end - begin, kLineBreakProbe)), '\0');
  size_t got = 0;
  RAVELIN_RETURN_IF_ERROR(ReadAt(fd, begin, probe.data(), probe.size(), &got));
  const size_t unit = IsUtf16(e) ? 2 : 1;
  const auto* p = reinterpret_cast<const unsigned char*>(probe.data());
  for (size_t i = 0; i + unit <= got; i += unit) {
    if (UnitAt(p + i, e) == '\n') {
      *crlf = i >= unit && UnitAt(p + i - unit, e) == '\r';
      break;
    }
  }
  return Status::kOk;
}

// Whether the file's text [begin, end) ends with LF (true for no text).
Status EndsWithLineFeed(int fd, uint64_t begin, uint64_t end, Encoding e, bool* ends) {
  const size_t unit = IsUtf16(e) ? 2 : 1;
  *ends = true;
  if (end < begin + unit) return Status::kOk;
  unsigned char last[2] = {0, 0};
  size_t got = 0;
  RAVELIN_RETURN_IF_ERROR(ReadAt(fd, end - unit, reinterpret_cast<char*>(last), unit, &got));
  if (got != unit) return Status::kRead;
  *ends = UnitAt(last, e) == '\n';
  return Status::kOk;
}

struct TextFile {
  std::string path;
  Fd fd;
  uint64_t size = 0;
  Encoding encoding = Encoding::k8Bit;
  uint64_t text_begin() const { return BomOf(encoding).size(); }
  bool has_text() const { return size > text_begin(); }
};

Status OpenText(const std::string& path, TextFile* file) {
  file->path = path;
  RAVELIN_RETURN_IF_ERROR(OpenInput(path.c_str(), &file->fd, &file->size));
  RAVELIN_RETURN_IF_ERROR(DetectFileEncoding(file->fd.get(), &file->encoding));
  if (IsUtf16(file->encoding) && file->size % 2 != 0) return Status::kEncoding;
  return Status::kOk;
}

}  // namespace

Status AppendFile(const char* source, const char* target, bool page_break, bool place_path) {
  struct stat st;
  if (::stat(source, &st) != 0 || !S_ISREG(st.st_mode)) return Status::kInputMissing;
  TextFile appended;
  RAVELIN_RETURN_IF_ERROR(OpenText(target, &appended));
  Fd base(::open(source, O_RDWR | O_CLOEXEC));
  if (!base.valid()) return Status::kOutput;
  if (::fstat(base.get(), &st) != 0) return Status::kRead;
  const auto base_size = static_cast<uint64_t>(st.st_size);

  // An empty file takes the other whole, mark included; otherwise the two
  // encodings must go together and the appended mark is left out.
  Encoding encoding = appended.encoding;
  uint64_t copy_from = 0;
  bool base_ends_with_lf = true;
  if (base_size > 0) {
    RAVELIN_RETURN_IF_ERROR(DetectFileEncoding(base.get(), &encoding));
    if (IsUtf16(encoding) && base_size % 2 != 0) return Status::kEncoding;
    if (!Compatible(encoding, appended.encoding)) return Status::kEncoding;
    copy_from = appended.text_begin();
    RAVELIN_RETURN_IF_ERROR(
        EndsWithLineFeed(base.get(), BomOf(encoding).size(), base_size, encoding, &base_ends_with_lf));
  }

  Output out(base.get(), base_size, size_t{64} << 10);
  if (base_size == 0 && (page_break || place_path)) {
    // The mark must stay first, before the insertions.
    const std::string_view bom = BomOf(encoding);
    out.Write(bom.data(), bom.size());
    copy_from = appended.text_begin();
  }
  if (page_break || place_path) {
    bool crlf = false;
    RAVELIN_RETURN_IF_ERROR(
        UsesCrLf(appended.fd.get(), appended.text_begin(), appended.size, appended.encoding, &crlf));
    const std::string_view line_break = crlf ? "\r\n" : "\n";
    std::string insertion;
    if (place_path && !base_ends_with_lf) insertion += line_break;
    if (page_break) insertion += '\f';
    if (place_path) {
      insertion += target;
      insertion += line_break;
    }
    const std::string encoded = Encode(insertion, encoding);
    out.Write(encoded.data(), encoded.size());
  }
  out.CopyFile(appended.fd.get(), copy_from, appended.size);
  const Status status = out.Flush();
  if (!Ok(status)) {
    // Leave the file as it was.
    (void)::ftruncate(base.get(), static_cast<off_t>(base_size));
    return status;
  }
  return Status::kOk;
}

Status ExpandInputList(const char* inputs, const char* out, std::vector<std::string>* paths) {
  struct stat out_st;
  const bool out_exists = ::stat(out, &out_st) == 0;
  std::string_view rest(inputs);
  bool any = false;
  for (;;) {
    const size_t bar = rest.find('|');
    const std::string item(rest.substr(0, bar));
    if (!item.empty()) {
      any = true;
      if (item.find_first_of("*?[") == std::string::npos) {
        paths->push_back(item);
      } else {
        glob_t g;
        const int rc = ::glob(item.c_str(), GLOB_NOSORT, nullptr, &g);
        std::vector<std::string> matches;
        if (rc == 0) {
          for (size_t i = 0; i < g.gl_pathc; ++i) {
            struct stat st;
            if (::stat(g.gl_pathv[i], &st) != 0 || !S_ISREG(st.st_mode)) continue;
            // A result of an earlier run must not be joined into itself.
            if (out_exists && st.st_dev == out_st.st_dev && st.st_ino == out_st.st_ino) continue;
            matches.emplace_back(g.gl_pathv[i]);
          }
          ::globfree(&g);
        } else if (rc == GLOB_NOSPACE) {
          return Status::kMemory;
        }
        if (matches.empty()) return Status::kInputMissing;
        std::sort(matches.begin(), matches.end());
        paths->insert(paths->end(), matches.begin(), matches.end());
      }
    }
    if (bar == std::string_view::npos) break;
    rest.remove_prefix(bar + 1);
  }
  return any ? Status::kOk : Status::kArgument;
}

namespace {

// Finds where a file's first record ends.
class FirstRecord : public RecordEndsOnly {
 public:
  explicit FirstRecord(uint64_t begin) : content_end(begin), record_end(begin) {}
  void LineEnd(uint64_t at, size_t len) {
    content_end = at;
    record_end = at + len;
    done_ = true;
  }
  void BlockEnd() {}
  bool Stop() const { return done_; }
  void Finish(uint64_t end) { content_end = record_end = end; }

  uint64_t content_end;
  uint64_t record_end;

 private:
  bool done_ = false;
};

// Adds a field at the end of every record that is not an empty line.
class AddField : public Rewriter {
 public:
  AddField(const Input& in, Output& out, std::string first, std::string rest)
      : Rewriter(in, out), field_(std::move(first)), rest_(std::move(rest)) {}

  void Data(const char*, size_t n, uint64_t at, bool) { Text(at + n); }
  void OpenQuote(uint64_t at) { Text(at + 1); }
  void CloseQuote(uint64_t at) { Text(at + 1); }
  void EscapedQuote(uint64_t at) { Text(at + 2); }
  void Delimiter(uint64_t at) { Text(at + 1); }
  void LineEnd(uint64_t at, size_t len) {
    EndRecord();
    Keep(at + len);
  }
  void Finish(uint64_t end) {
    Keep(end);
    EndRecord();
    Flush();
  }

 private:
  void Text(uint64_t upto) {
    has_text_ = true;
    Keep(upto);
  }
  void EndRecord() {
    if (has_text_) Insert(field_);
    has_text_ = false;
    field_ = rest_;
  }

  std::string field_;
  std::string rest_;
  bool has_text_ = false;
};

// `text` as a further field: a comma, then the text, quoted if it must be.
std::string AddedField(std::string_view text) {
  std::string field(1, ',');
  const bool quote = text.find_first_of(",\"\r\n") != std::string_view::npos;
  if (quote) field += '"';
  for (char c : text) {
    if (c == '"') field += '"';
    field += c;
  }
  if (quote) field += '"';
  return field;
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Joins UTF-8 or 8-bit texts into one output; for UTF-16 files the texts
// are decoded copies and the output a scratch file encoded at the end.
class Joiner {
 public:
  Joiner(const JoinOptions& options, Output& out) : options_(options), out_(out) {}

  // The text [begin, end) of `fd`, the file at `path`.
  Status Add(int fd, uint64_t begin, uint64_t end, const std::string& path) {
    if (end <= begin) return Status::kOk;
    const bool first = !started_;
    started_ = true;
    uint64_t start = begin;
    if (options_.mode != JoinMode::kWhole) {
      RAVELIN_RETURN_IF_ERROR(SkipHeader(fd, begin, first, &start));
      if (start >= end) return Status::kOk;
    }
    if (!ends_with_lf_) out_.Write(crlf_ ? "\r\n" : "\n", crlf_ ? 2 : 1);
    if (options_.mode == JoinMode::kAddFileName) {
      const std::string name = AddedField(BaseName(path));
      const bool titled = first && !options_.column_title.empty();
      Input in(fd, start);
      AddField adder(in, out_, titled ? AddedField(options_.column_title) : name, name);
      RAVELIN_RETURN_IF_ERROR(Lex(in, ',', adder));
    } else {
      out_.CopyFile(fd, start, end);
    }
    RAVELIN_RETURN_IF_ERROR(out_.status());
    RAVELIN_RETURN_IF_ERROR(UsesCrLf(fd, begin, end, Encoding::k8Bit, &crlf_));
    return EndsWithLineFeed(fd, begin, end, Encoding::k8Bit, &ends_with_lf_);
  }

 private:
  Status SkipHeader(int fd, uint64_t begin, bool first, uint64_t* start) {
    const bool titled = options_.mode != JoinMode::kAddFileName || !options_.column_title.empty();
    if (!titled || (first && options_.mode == JoinMode::kSkipFirstRecord)) return Status::kOk;
    FirstRecord record(begin);
    {
      Input in(fd, begin, size_t{64} << 10);
      RAVELIN_RETURN_IF_ERROR(Lex(in, ',', record));
    }
    const uint64_t length = record.content_end - begin;
    switch (options_.mode) {
      case JoinMode::kWhole:
        break;
      case JoinMode::kSkipFirstRecord:
        if (!first) *start = record.record_end;
        break;
      case JoinMode::kSkipRepeatedHeader:
      case JoinMode::kAddFileName: {
        if (length > kMaxHeader || (!first && !has_header_)) break;
        std::string text(static_cast<size_t>(length), '\0');
        size_t got = 0;
        RAVELIN_RETURN_IF_ERROR(ReadAt(fd, begin, text.data(), text.size(), &got));
        if (got != text.size()) return Status::kRead;
        if (first) {
          header_ = std::move(text);
          has_header_ = true;
        } else if (text == header_) {
          *start = record.record_end;
        }
        break;
      }
    }
    return Status::kOk;
  }

  const JoinOptions& options_;
  Output& out_;
  bool started_ = false;
  bool ends_with_lf_ = true;
  bool crlf_ = false;  // the line break style of the last file
  bool has_header_ = false;
  std::string header_;
};

}  // namespace

Status JoinFiles(const std::vector<std::string>& paths, const char* out_path, const JoinOptions& options) {
  // The first file with text decides the encoding; failing that, the first
  // with a byte-order mark.
  Encoding encoding = Encoding::k8Bit;
  bool decided = false;
  for (const std::string& path : paths) {
    TextFile file;
    RAVELIN_RETURN_IF_ERROR(OpenText(path, &file));
    if (file.has_text()) {
      if (!decided) {
        encoding = file.encoding;
        decided = true;
      } else if (!Compatible(encoding, file.encoding)) {
        return Status::kEncoding;
      }
    } else if (!decided && file.encoding != Encoding::k8Bit && encoding == Encoding::k8Bit) {
      encoding = file.encoding;
    }
  }

  PendingFile pending;
  RAVELIN_RETURN_IF_ERROR(pending.Create(out_path));
  Output out(pending.fd(), 0);
  const std::string_view bom = BomOf(encoding);
  out.Write(bom.data(), bom.size());
  if (!IsUtf16(encoding)) {
    Joiner joiner(options, out);
    for (const std::string& path : paths) {
      TextFile file;
      RAVELIN_RETURN_IF_ERROR(OpenText(path, &file));
      RAVELIN_RETURN_IF_ERROR(joiner.Add(file.fd.get(), file.text_begin(), file.size, path));
    }
  } else {
    Fd joined;
    RAVELIN_RETURN_IF_ERROR(OpenScratch(pending.folder(), &joined));
    {
      Output text(joined.get(), 0);
      Joiner joiner(options, text);
      for (const std::string& path : paths) {
        TextFile file;
        RAVELIN_RETURN_IF_ERROR(OpenText(path, &file));
        if (!file.has_text()) continue;
        Fd decoded;
        RAVELIN_RETURN_IF_ERROR(
            DecodeToScratch(file.fd.get(), file.text_begin(), BigEndian(encoding), pending.folder(), &decoded));
        struct stat st;
        if (::fstat(decoded.get(), &st) != 0) return Status::kRead;
        RAVELIN_RETURN_IF_ERROR(joiner.Add(decoded.get(), 0, static_cast<uint64_t>(st.st_size), path));
      }
      RAVELIN_RETURN_IF_ERROR(text.Flush());
    }
    Input in(joined.get(), 0);
    RAVELIN_RETURN_IF_ERROR(Utf8ToUtf16(in, BigEndian(encoding), out));
  }
  RAVELIN_RETURN_IF_ERROR(out.Flush());
  return pending.Commit();
}

}  // namespace ravelin
