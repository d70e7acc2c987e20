// The rewrites that work field by field. Each is a handler of the CSV reader
// (lexer.h) that keeps, drops or inserts text as the tokens stream by.
#include <string>

#include "lexer.h"
#include "transforms.h"

namespace ravelin {

namespace {

constexpr char kComma = ',';

// Encloses unquoted fields in quotes.
class Encase : public Rewriter {
 public:
  using Rewriter::Rewriter;

  void Data(const char*, size_t n, uint64_t at, bool) {
    Begin(false);
    Keep(at + n);
  }
  void OpenQuote(uint64_t at) {
    Begin(true);
    QuoteChar(at, 1);
  }
  void CloseQuote(uint64_t at) { QuoteChar(at, 1); }
  void EscapedQuote(uint64_t at) { QuoteChar(at, 2); }
  void Delimiter(uint64_t at) {
    EndField();
    Keep(at + 1);
    fresh_ = true;
    line_empty_ = false;
  }
  void LineEnd(uint64_t at, size_t len) {
    if (!line_empty_) EndField();
    Keep(at + len);
    fresh_ = line_empty_ = true;
  }
  void Finish(uint64_t end) {
    if (!line_empty_) EndField();
    Keep(end);
    Flush();
  }

 private:
  void Begin(bool quoted) {
    if (!fresh_) return;
    fresh_ = line_empty_ = false;
    wrap_ = !quoted;
    if (wrap_) Insert("\"");
  }
  // A quote of a field we wrap is text: it is doubled.
  void QuoteChar(uint64_t at, size_t n) {
    Keep(at + n);
    if (wrap_) Insert(n == 1 ? "\"" : "\"\"");
  }
  void EndField() {
    if (fresh_) {
      Insert("\"\"");
    } else if (wrap_) {
      Insert("\"");
    }
    wrap_ = false;
  }

  bool fresh_ = true;       // no token of the current field yet
  bool line_empty_ = true;  // no token of the current record yet
  bool wrap_ = false;
};

// Gives every empty field one space.
class PadEmpty : public Rewriter {
 public:
  using Rewriter::Rewriter;

  void Data(const char*, size_t n, uint64_t at, bool) { Other(at + n); }
  void OpenQuote(uint64_t at) {
    line_empty_ = false;
    if (state_ == kFresh) {
      state_ = kOpened;
      Keep(at + 1);
    } else {
      Other(at + 1);
    }
  }
  void CloseQuote(uint64_t at) {
    if (state_ == kOpened) {
      // "" so far: the space may have to go before this quote, so it is
      // not passed yet.
      state_ = kEmptyQuoted;
    } else {
      Other(at + 1);
    }
  }
  void EscapedQuote(uint64_t at) { Other(at + 2); }
  void Delimiter(uint64_t at) {
    EndField();
    Keep(at + 1);
    line_empty_ = false;
  }
  void LineEnd(uint64_t at, size_t len) {
    if (!line_empty_) EndField();
    state_ = kFresh;
    Keep(at + len);
    line_empty_ = true;
  }
  void Finish(uint64_t end) {
    if (!line_empty_) EndField();
    Keep(end);
    Flush();
  }

 private:
  enum State { kFresh, kOpened, kEmptyQuoted, kOther };

  void Other(uint64_t upto) {
    line_empty_ = false;
    state_ = kOther;
    Keep(upto);
  }
  void EndField() {
    if (state_ == kFresh || state_ == kEmptyQuoted) Insert(" ");
    state_ = kFresh;
  }

  State state_ = kFresh;
  bool line_empty_ = true;
};

// Drops records whose fields are all empty.
class DropEmptyRecords : public Rewriter {
 public:
  using Rewriter::Rewriter;

  void Data(const char*, size_t n, uint64_t at, bool) { Text(at + n); }
  void OpenQuote(uint64_t at) {
    if (empty_ && state_ == kFresh) {
      state_ = kOpened;
    } else {
      Text(at + 1);
    }
  }
  void CloseQuote(uint64_t at) {
    if (empty_ && state_ == kOpened) {
      state_ = kClosed;
    } else {
      Text(at + 1);
    }
  }
  void EscapedQuote(uint64_t at) { Text(at + 2); }
  void Delimiter(uint64_t at) {
    if (empty_ && state_ == kClosed) state_ = kFresh;
    if (!empty_) Keep(at + 1);
  }
  // Until a record shows text, pos() stays at its start: nothing of it is
  // decided, and dropping it costs nothing.
  void LineEnd(uint64_t at, size_t len) {
    if (empty_) {
      Drop(at + len);
    } else {
      Keep(at + len);
    }
    empty_ = true;
    state_ = kFresh;
  }
  void Finish(uint64_t end) {
    if (empty_) {
      Drop(end);
    } else {
      Keep(end);
    }
    Flush();
  }

 private:
  enum State { kFresh, kOpened, kClosed };

  void Text(uint64_t upto) {
    empty_ = false;
    Keep(upto);
  }

  bool empty_ = true;
  State state_ = kFresh;
};

class CropRows : public Rewriter, public RecordEndsOnly {
 public:
  CropRows(const Input& in, Output& out, const RangeSet& rows) : Rewriter(in, out), rows_(rows) {
    keep_ = rows_.Contains(row_);
  }

  void LineEnd(uint64_t at, size_t len) {
    Settle(at + len);
    keep_ = rows_.Contains(++row_);
    // Reading stops after the last listed row (Stop()): write what is kept.
    if (Stop()) Flush();
  }
  bool Stop() const { return row_ > rows_.Max(); }
  void Finish(uint64_t end) {
    Settle(end);
    Flush();
  }

 private:
  void Settle(uint64_t upto) {
    if (keep_) {
      Keep(upto);
    } else {
      Drop(upto);
    }
  }

  const RangeSet& rows_;
  int64_t row_ = 1;
  bool keep_;
};

class CropColumns : public Rewriter {
 public:
  CropColumns(const Input& in, Output& out, const RangeSet& columns) : Rewriter(in, out), columns_(columns) {
    StartRecord();
  }

  void Data(const char* p, size_t n, uint64_t, bool quoted) { lone_cr_ = !quoted && p[n - 1] == '\r'; }
  void OpenQuote(uint64_t) { lone_cr_ = false; }
  void CloseQuote(uint64_t) { lone_cr_ = false; }
  void EscapedQuote(uint64_t) { lone_cr_ = false; }
  void Delimiter(uint64_t at) {
    Settle(at);
    keep_ = columns_.Contains(++column_);
    // A kept field after another one keeps the delimiter before it.
    if (keep_ && kept_ > 0) {
      Release(false);
      Keep(at + 1);
    } else {
      Drop(at + 1);
    }
    kept_ += keep_;
  }
  void LineEnd(uint64_t at, size_t len) {
    Settle(at);
    Release(len == 1);
    Keep(at + len);
    StartRecord();
  }
  void Finish(uint64_t end) {
    Settle(end);
    Release(false);
    Flush();
  }

 private:
  void StartRecord() {
    column_ = 1;
    keep_ = columns_.Contains(1);
    kept_ = keep_;
  }
  // The field runs from pos() to `end`.
  void Settle(uint64_t end) {
    if (keep_ && lone_cr_) {
      // Its last character is a CR that an LF would follow if no later
      // field is kept: it waits, left out for now, until that is known.
      held_ = true;
      held_begin_ = pos();
      held_end_ = end;
      Drop(end);
    } else if (keep_) {
      Keep(end);
    } else {
      Drop(end);
    }
    lone_cr_ = false;
  }
  // Writes a waiting field; quoted when an LF follows, so that its CR stays
  // text.
  void Release(bool before_lf) {
    if (!held_) return;
    held_ = false;
    Flush();
    if (before_lf) {
      out_.Put('"');
      out_.CopyDoublingQuotes(in_, held_begin_, held_end_);
      out_.Put('"');
    } else {
      out_.CopyFrom(in_, held_begin_, held_end_);
    }
  }

  const RangeSet& columns_;
  int64_t column_ = 1;
  int64_t kept_ = 0;
  bool keep_ = false;
  bool lone_cr_ = false;  // the field so far ends with a CR outside quotes
  bool held_ = false;
  uint64_t held_begin_ = 0;
  uint64_t held_end_ = 0;
};

// Counts characters the way the fixed-length rewrite measures them: a UTF-8
// sequence is one, and so is every byte that is not part of one.
class CharCounter {
 public:
  void Add(const char* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      const auto b = static_cast<unsigned char>(p[i]);
      if (expect_ > 0 && b >= 0x80 && b <= 0xBF) {
        --expect_;
        continue;
      }
      ++count_;
      expect_ = b >= 0xC2 && b <= 0xDF ? 1 : b >= 0xE0 && b <= 0xEF ? 2 : b >= 0xF0 && b <= 0xF4 ? 3 : 0;
    }
  }
  void AddOne() {
    ++count_;
    expect_ = 0;
  }
  uint64_t count() const { return count_; }
  void Reset() { count_ = expect_ = 0; }

 private:
  uint64_t count_ = 0;
  int expect_ = 0;
};

class FixedWidth : public Rewriter {
 public:
  FixedWidth(const Input& in, Output& out, const FixedLength& layout) : Rewriter(in, out), layout_(layout) {
    StartField(true);
  }

  void Data(const char* p, size_t n, uint64_t at, bool) {
    First(false, at);
    if (selected_) counter_.Add(p, n);
    Advance(at + n);
  }
  void OpenQuote(uint64_t at) {
    if (First(true, at)) return;
    Advance(at + 1);
  }
  void CloseQuote(uint64_t at) {
    if (selected_ && !layout_.pad_left) {
      // Right padding goes before a closing quote that ends the field, so
      // the quote waits for the next token.
      close_pending_ = true;
      return;
    }
    Advance(at + 1);
  }
  void EscapedQuote(uint64_t at) {
    First(false, at);
    if (selected_) counter_.AddOne();
    Advance(at + 2);
  }
  void Delimiter(uint64_t at) {
    EndField(at);
    Keep(at + 1);
    ++column_;
    line_empty_ = false;
    StartField(false);
  }
  void LineEnd(uint64_t at, size_t len) {
    if (!line_empty_) EndField(at);
    Keep(at + len);
    column_ = 1;
    StartField(true);
  }
  void Finish(uint64_t end) {
    if (!line_empty_) EndField(end);
    Keep(end);
    Flush();
  }

 private:
  void StartField(bool new_line) {
    selected_ = layout_.columns.Contains(column_);
    fresh_ = true;
    holding_ = false;
    close_pending_ = false;
    counter_.Reset();
    if (new_line) line_empty_ = true;
  }

  // The first token of a field; returns true when it was an opening quote
  // that has been dealt with.
  bool First(bool open_quote, uint64_t at) {
    if (!fresh_) return false;
    fresh_ = false;
    line_empty_ = false;
    if (!selected_ || !layout_.pad_left) return false;
    // Left padding goes after an opening quote; the text after that point
    // is held (pos() stays) until its length is known to reach the width.
    if (open_quote) Keep(at + 1);
    holding_ = true;
    return open_quote;
  }

  void Advance(uint64_t upto) {
    close_pending_ = false;
    if (holding_) {
      if (counter_.count() < layout_.length) return;
      holding_ = false;
    }
    Keep(upto);
  }

  void EndField(uint64_t at) {
    if (selected_) {
      const uint64_t n = counter_.count();
      const uint64_t pad = n < layout_.length ? layout_.length - n : 0;
      if (layout_.pad_left && (holding_ || fresh_)) {
        InsertRepeated(layout_.pad, pad);
      } else if (!layout_.pad_left) {
        // pos() is before a pending closing quote, or at the field's end.
        InsertRepeated(layout_.pad, pad);
      }
    }
    Keep(at);
  }

  const FixedLength& layout_;
  CharCounter counter_;
  int64_t column_ = 1;
  bool selected_ = false;
  bool fresh_ = true;
  bool line_empty_ = true;
  bool holding_ = false;
  bool close_pending_ = false;
};

// Removes control characters inside quoted text.
class QuotedControls : public Rewriter {
 public:
  using Rewriter::Rewriter;

  void Data(const char* p, size_t n, uint64_t at, bool quoted) {
    if (quoted) {
      for (size_t i = 0; i < n; ++i) {
        const auto b = static_cast<unsigned char>(p[i]);
        if (b < 0x20 || b == 0x7F) {
          Keep(at + i);
          Drop(at + i + 1);
        }
      }
    }
    Keep(at + n);
  }
  void OpenQuote(uint64_t at) { Keep(at + 1); }
  void CloseQuote(uint64_t at) { Keep(at + 1); }
  void EscapedQuote(uint64_t at) { Keep(at + 2); }
  void Delimiter(uint64_t at) { Keep(at + 1); }
  void LineEnd(uint64_t at, size_t len) { Keep(at + len); }
  void Finish(uint64_t end) {
    Keep(end);
    Flush();
  }
};

// Removes spaces at both ends of field values. Spaces that may turn out to
// be trailing are not passed (pos() stays before them) until text follows.
class Trim : public Rewriter {
 public:
  using Rewriter::Rewriter;

  void Data(const char* p, size_t n, uint64_t at, bool quoted) {
    if (phase_ == kLead || phase_ == kQuotedLead) {
      size_t k = 0;
      while (k < n && p[k] == ' ') ++k;
      Drop(at + k);
      if (k == n) return;
      phase_ = kBody;
      p += k;
      at += k;
      n -= k;
    }
    size_t j = n;
    while (j > 0 && p[j - 1] == ' ') --j;
    if (j > 0) {
      Keep(at + j);
      lone_cr_ = !quoted && p[j - 1] == '\r';
    }
    phase_ = kBody;
  }
  void OpenQuote(uint64_t at) {
    if (phase_ == kLead) {
      Drop(at);
      phase_ = kQuotedLead;
    } else {
      phase_ = kBody;
    }
    Keep(at + 1);
    lone_cr_ = false;
  }
  void CloseQuote(uint64_t at) {
    Drop(at);
    Keep(at + 1);
    phase_ = kAfterClose;
    lone_cr_ = false;
  }
  void EscapedQuote(uint64_t at) {
    Keep(at + 2);
    phase_ = kBody;
    lone_cr_ = false;
  }
  void Delimiter(uint64_t at) { EndField(at, 1, false); }
  void LineEnd(uint64_t at, size_t len) { EndField(at, len, len == 1); }
  void Finish(uint64_t end) {
    Drop(end);
    Flush();
  }

 private:
  enum Phase { kLead, kQuotedLead, kBody, kAfterClose };

  void EndField(uint64_t at, size_t len, bool lf) {
    // Spaces between a CR and the LF that ends the line keep them apart:
    // without them the CR would become part of the line break.
    if (lf && lone_cr_) {
      Keep(at);
    } else {
      Drop(at);
    }
    Keep(at + len);
    phase_ = kLead;
    lone_cr_ = false;
  }

  Phase phase_ = kLead;
  bool lone_cr_ = false;  // the text kept last ends with a CR outside quotes
};

}  // namespace

Status EncaseFields(Input& in, Output& out) {
  Encase h(in, out);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status PadEmptyFields(Input& in, Output& out) {
  PadEmpty h(in, out);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status RemoveEmptyRecords(Input& in, Output& out) {
  DropEmptyRecords h(in, out);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status KeepRows(Input& in, Output& out, const RangeSet& rows) {
  CropRows h(in, out, rows);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status KeepColumns(Input& in, Output& out, const RangeSet& columns) {
  CropColumns h(in, out, columns);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status PadToFixedLength(Input& in, Output& out, const FixedLength& layout) {
  FixedWidth h(in, out, layout);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status RemoveQuotedControls(Input& in, Output& out) {
  QuotedControls h(in, out);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

Status TrimFields(Input& in, Output& out) {
  Trim h(in, out);
  RAVELIN_RETURN_IF_ERROR(Lex(in, kComma, h));
  return out.status();
}

}  // namespace ravelin
