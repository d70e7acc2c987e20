// Blank-line removal for plain text: quotes mean nothing here.
#include <cstring>

#include "lexer.h"
#include "transforms.h"

namespace ravelin {

namespace {

bool IsBlankChar(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// While a line has shown only blanks, pos() stays at its start, so a blank
// line is dropped whole and any other line is copied whole.
class BlankLines : public Rewriter {
 public:
  using Rewriter::Rewriter;

  Status Run(Input& in) {
    uint64_t end = in.begin();
    for (;;) {
      bool more = false;
      RAVELIN_RETURN_IF_ERROR(in.Next(&more));
      if (!more) break;
      const char* const base = in.data();
      const char* p = base;
      const char* const e = base + in.size();
      auto at = [&](const char* x) { return in.offset() + static_cast<uint64_t>(x - base); };
      while (p < e) {
        if (blank_) {
          while (p < e && IsBlankChar(*p)) ++p;
          if (p == e) break;
          if (*p == '\n') {
            ++p;
            Drop(at(p));
            continue;
          }
          blank_ = false;
        }
        const auto* lf = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(e - p)));
        if (lf == nullptr) {
          Keep(at(e));
          p = e;
          break;
        }
        p = lf + 1;
        Keep(at(p));
        blank_ = true;
      }
      end = at(e);
      Flush();
    }
    if (blank_) {
      Drop(end);
    } else {
      Keep(end);
    }
    Flush();
    return out_.status();
  }

 private:
  bool blank_ = true;
};

}  // namespace

Status RemoveBlankLines(Input& in, Output& out) { return BlankLines(in, out).Run(in); }

}  // namespace ravelin
