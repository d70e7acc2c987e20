// The delimiter change runs at memory speed: a vector kernel replaces whole
// 64-byte blocks in the input block itself, which is then written out as it
// stands. Bytes go one at a time only in the block where a field turns out
// to hold the new delimiter, and in the rest of that field.
#include <algorithm>

#include "scan.h"
#include "transforms.h"

namespace ravelin {

namespace {

class CharacterChange {
 public:
  CharacterChange(Input& in, Output& out, char from, char to, bool quote_fields)
      : in_(in),
        out_(out),
        from_(from),
        to_(to),
        quote_fields_(quote_fields && from != to),
        field_start_in_(in.begin()),
        field_start_out_(out.offset()) {}

  Status Run() {
    const scan::SubstituteFn kernel = scan::BestSubstitute();
    const int stop = quote_fields_ ? static_cast<unsigned char>(to_) : -1;
    for (;;) {
      bool more = false;
      RAVELIN_RETURN_IF_ERROR(in_.Next(&more));
      if (!more) break;
      char* const p = in_.data();
      const size_t n = in_.size();
      const uint64_t base = in_.offset();
      size_t i = 0;
      while (i < n) {
        if (!forced_ && !pending_cr_) {
          scan::SubstituteState state{inside_ ? ~uint64_t{0} : 0, -1};
          const size_t done = kernel(p + i, n - i, from_, to_, stop, &state);
          if (done > 0) {
            inside_ = state.inside != 0;
            if (state.last_boundary >= 0) {
              const auto next = static_cast<uint64_t>(state.last_boundary) + 1;
              field_start_in_ = base + i + next;
              field_start_out_ = out_.offset() + next;
            }
            out_.Write(p + i, done);
            i += done;
          }
        }
        // The tail of the block, a block where a field needs quotes, or the
        // rest of a field being quoted: one byte at a time.
        const size_t end = std::min(n, i + 64);
        for (; i < end; ++i) Step(p[i], base + i);
      }
      RAVELIN_RETURN_IF_ERROR(out_.status());
    }
    if (pending_cr_) out_.Put('\r');
    if (forced_) out_.Put('"');
    return out_.status();
  }

 private:
  void StartField(uint64_t in_at) {
    field_start_in_ = in_at;
    field_start_out_ = out_.offset();
  }

  void CloseForced() {
    if (forced_) out_.Put('"');
    forced_ = false;
  }

  void Step(char c, uint64_t at) {
    if (pending_cr_) {
      pending_cr_ = false;
      if (c == '\n') {
        CloseForced();
        out_.Put('\r');
        out_.Put('\n');
        StartField(at + 1);
        return;
      }
      out_.Put('\r');
    }
    if (c == '"') {
      inside_ = !inside_;
      if (forced_) out_.Put('"');
      out_.Put('"');
      return;
    }
    if (inside_) {
      out_.Put(c);
      return;
    }
    if (c == from_) {
      CloseForced();
      out_.Put(to_);
      StartField(at + 1);
      return;
    }
    if (c == '\n') {
      CloseForced();
      out_.Put('\n');
      StartField(at + 1);
      return;
    }
    if (forced_ && c == '\r') {
      // The closing quote goes before the CR of a CR LF.
      pending_cr_ = true;
      return;
    }
    if (quote_fields_ && !forced_ && c == to_) QuoteField(at);
    out_.Put(c);
  }

  // The field that began at field_start_in_ holds the new delimiter: write it
  // again from its start, enclosed in quotes with its own quotes doubled.
  void QuoteField(uint64_t at) {
    out_.TruncateTo(field_start_out_);
    out_.Put('"');
    out_.CopyDoublingQuotes(in_, field_start_in_, at);
    forced_ = true;
  }

  Input& in_;
  Output& out_;
  const char from_;
  const char to_;
  const bool quote_fields_;
  bool inside_ = false;
  bool forced_ = false;      // the current field is being written quoted
  bool pending_cr_ = false;  // a CR in such a field, maybe before LF
  uint64_t field_start_in_;
  uint64_t field_start_out_;
};

}  // namespace

Status ChangeCharacter(Input& in, Output& out, char from, char to, bool quote_fields) {
  return CharacterChange(in, out, from, to, quote_fields).Run();
}

}  // namespace ravelin
