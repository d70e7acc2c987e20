// The CSV reader shared by the field rewrites. It reports the structure of
// the text as it streams by and leaves the bytes where they are: a rewrite
// decides, piece by piece, which input bytes to keep, which to drop and what
// to insert, and the kept bytes are copied in long runs.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "io.h"
#include "scan.h"
#include "status.h"

namespace ravelin {

// Reads the comma-separated text of `in` (the dialect of the public header:
// quoted text by counting quotes, records ended by LF or CR LF) and calls,
// with `at` the file offset of the token's first byte:
//   h.Data(p, n, at, quoted)  field text; quoted: inside quotes
//   h.OpenQuote(at)           a quote that starts quoted text
//   h.CloseQuote(at)          a quote that ends it
//   h.EscapedQuote(at)        "" inside quoted text (two bytes)
//   h.Delimiter(at)           the delimiter outside quotes
//   h.LineEnd(at, len)        LF (len 1) or CR LF (len 2) outside quotes
//   h.BlockEnd()              the current block is about to be replaced
//   h.Finish(end)             end of the text at offset `end`
//   h.Stop()                  asked after each line end: true ends reading
// A CR that does not start CR LF outside quotes comes as Data of one byte.
template <class Handler>
Status Lex(Input& in, char delim, Handler& h) {
  enum class Pending { kNone, kQuote, kCr };
  bool quoted = false;
  Pending pending = Pending::kNone;
  uint64_t pending_at = 0;
  uint64_t end = in.begin();
  for (;;) {
    bool more = false;
    RAVELIN_RETURN_IF_ERROR(in.Next(&more));
    if (!more) break;
    const char* const base = in.data();
    const char* p = base;
    const char* const e = base + in.size();
    const uint64_t offset = in.offset();
    auto at = [&](const char* x) { return offset + static_cast<uint64_t>(x - base); };
    while (p < e) {
      if (pending == Pending::kQuote) {
        pending = Pending::kNone;
        if (*p == '"') {
          h.EscapedQuote(pending_at);
          ++p;
          continue;
        }
        h.CloseQuote(pending_at);
        quoted = false;
      } else if (pending == Pending::kCr) {
        pending = Pending::kNone;
        if (*p == '\n') {
          h.LineEnd(pending_at, 2);
          ++p;
          if (h.Stop()) return Status::kOk;
          continue;
        }
        h.Data("\r", 1, pending_at, false);
      }
      if (quoted) {
        const auto* q = static_cast<const char*>(std::memchr(p, '"', static_cast<size_t>(e - p)));
        if (q == nullptr) {
          h.Data(p, static_cast<size_t>(e - p), at(p), true);
          p = e;
          break;
        }
        if (q > p) h.Data(p, static_cast<size_t>(q - p), at(p), true);
        pending = Pending::kQuote;
        pending_at = at(q);
        p = q + 1;
        continue;
      }
      const char* s = scan::FindStructural(p, e, delim);
      if (s > p) h.Data(p, static_cast<size_t>(s - p), at(p), false);
      if (s == e) break;
      const char c = *s;
      const uint64_t a = at(s);
      p = s + 1;
      if (c == '"') {
        h.OpenQuote(a);
        quoted = true;
      } else if (c == delim) {
        h.Delimiter(a);
      } else if (c == '\n') {
        h.LineEnd(a, 1);
        if (h.Stop()) return Status::kOk;
      } else {
        pending = Pending::kCr;
        pending_at = a;
      }
    }
    end = offset + in.size();
    h.BlockEnd();
  }
  if (pending == Pending::kQuote) {
    h.CloseQuote(pending_at);
  } else if (pending == Pending::kCr) {
    h.Data("\r", 1, pending_at, false);
  }
  h.Finish(end);
  return Status::kOk;
}

// For a handler that needs only where records end: the field tokens pass
// unheard.
struct RecordEndsOnly {
  void Data(const char*, size_t, uint64_t, bool) {}
  void OpenQuote(uint64_t) {}
  void CloseQuote(uint64_t) {}
  void EscapedQuote(uint64_t) {}
  void Delimiter(uint64_t) {}
};

// The bookkeeping of a rewrite that copies most of its input. Input before
// pos_ is decided: kept bytes from copy_from_ on are copied out lazily, in
// one piece. A handler that cannot decide yet (trailing spaces, a record
// that may turn out empty) simply does not move pos_.
class Rewriter {
 public:
  Rewriter(const Input& in, Output& out) : in_(in), out_(out), copy_from_(in.begin()), pos_(in.begin()) {}

  // Default reader callbacks.
  void BlockEnd() { Flush(); }
  bool Stop() const { return false; }

 protected:
  // Input [pos_, upto) goes to the output.
  void Keep(uint64_t upto) { pos_ = upto; }
  // Input [pos_, upto) is left out.
  void Drop(uint64_t upto) {
    if (upto == pos_) return;  // nothing to leave out: the run goes on
    Flush();
    pos_ = copy_from_ = upto;
  }
  // `text` goes to the output at pos_.
  void Insert(std::string_view text) {
    Flush();
    out_.Write(text.data(), text.size());
  }
  // Input [pos_, upto) goes to the output with every '"' doubled.
  void KeepDoublingQuotes(uint64_t upto) {
    Flush();
    out_.CopyDoublingQuotes(in_, pos_, upto);
    pos_ = copy_from_ = upto;
  }
  void InsertRepeated(char c, uint64_t n) {
    Flush();
    out_.Fill(c, n);
  }
  void Flush() {
    if (pos_ > copy_from_) out_.CopyFrom(in_, copy_from_, pos_);
    copy_from_ = pos_;
  }
  uint64_t pos() const { return pos_; }

  const Input& in_;
  Output& out_;

 private:
  uint64_t copy_from_;
  uint64_t pos_;
};

}  // namespace ravelin
