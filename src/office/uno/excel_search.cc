#include "office/uno/excel_search.h"

#include <cctype>
#include <cstdint>
#include <vector>

namespace tabulon::office::uno {

namespace {

enum class Kind { kLiteral, kOne, kAny };

struct Token {
  Kind kind;
  std::string text;  // one character (UTF-8) for a literal
};

// The length of the UTF-8 character that starts at `at`.
size_t CharLength(const std::string& s, size_t at) {
  const auto b = static_cast<unsigned char>(s[at]);
  size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
  return at + n <= s.size() ? n : s.size() - at;
}

std::vector<std::string> Characters(const std::string& s) {
  std::vector<std::string> out;
  for (size_t i = 0; i < s.size();) {
    const size_t n = CharLength(s, i);
    out.push_back(s.substr(i, n));
    i += n;
  }
  return out;
}

std::vector<Token> Tokens(const std::string& what) {
  const std::vector<std::string> chars = Characters(what);
  std::vector<Token> tokens;
  for (size_t i = 0; i < chars.size(); ++i) {
    const std::string& c = chars[i];
    if (c == "~" && i + 1 < chars.size() && (chars[i + 1] == "*" || chars[i + 1] == "?" || chars[i + 1] == "~")) {
      tokens.push_back({Kind::kLiteral, chars[++i]});
    } else if (c == "*") {
      tokens.push_back({Kind::kAny, {}});
    } else if (c == "?") {
      tokens.push_back({Kind::kOne, {}});
    } else {
      tokens.push_back({Kind::kLiteral, c});
    }
  }
  return tokens;
}

bool SameCharacter(const std::string& a, const std::string& b, bool match_case) {
  if (a.size() == 1 && b.size() == 1 && !match_case) {
    return std::tolower(static_cast<unsigned char>(a[0])) == std::tolower(static_cast<unsigned char>(b[0]));
  }
  return a == b;
}

class Matcher {
 public:
  Matcher(const std::vector<std::string>& text, const std::vector<Token>& tokens, bool match_case)
      : text_(text), tokens_(tokens), match_case_(match_case) {}

  // Whether the tokens from `t` match the text from `at`; the end of the
  // match in `end`, "*" trying its longest run first. `to_end`: the match
  // must reach the end of the text.
  bool Match(size_t at, size_t t, bool to_end, size_t& end) const {
    if (t == tokens_.size()) {
      if (to_end && at != text_.size()) return false;
      end = at;
      return true;
    }
    const Token& token = tokens_[t];
    switch (token.kind) {
      case Kind::kAny:
        for (size_t k = text_.size() + 1; k-- > at;) {
          if (Match(k, t + 1, to_end, end)) return true;
        }
        return false;
      case Kind::kOne:
        return at < text_.size() && Match(at + 1, t + 1, to_end, end);
      case Kind::kLiteral:
        return at < text_.size() && SameCharacter(text_[at], token.text, match_case_) &&
               Match(at + 1, t + 1, to_end, end);
    }
    return false;
  }

 private:
  const std::vector<std::string>& text_;
  const std::vector<Token>& tokens_;
  bool match_case_;
};

}  // namespace

std::string ExcelPatternToRegex(const std::string& what, bool whole) {
  std::string regex = whole ? "\\A" : "";
  for (const Token& token : Tokens(what)) {
    switch (token.kind) {
      case Kind::kAny: regex += "[\\s\\S]*"; break;
      case Kind::kOne: regex += "[\\s\\S]"; break;
      case Kind::kLiteral:
        if (token.text.size() == 1 && !std::isalnum(static_cast<unsigned char>(token.text[0]))) regex += '\\';
        regex += token.text;
        break;
    }
  }
  if (whole) regex += "\\z";
  return regex;
}

std::string LiteralRegexReplacement(const std::string& replacement) {
  std::string out;
  for (char c : replacement) {
    if (c == '\\' || c == '&' || c == '$') out += '\\';
    out += c;
  }
  return out;
}

std::optional<std::string> ReplaceExcelPattern(const std::string& text, const std::string& what,
                                               const std::string& replacement, bool whole, bool match_case) {
  const std::vector<Token> tokens = Tokens(what);
  if (tokens.empty()) return std::nullopt;
  const std::vector<std::string> chars = Characters(text);
  const Matcher matcher(chars, tokens, match_case);
  size_t end = 0;
  if (whole) {
    if (!matcher.Match(0, 0, true, end)) return std::nullopt;
    return replacement;
  }
  std::string out;
  bool changed = false;
  for (size_t at = 0; at < chars.size();) {
    if (matcher.Match(at, 0, false, end) && end > at) {
      out += replacement;
      changed = true;
      at = end;
    } else {
      out += chars[at++];
    }
  }
  if (!changed) return std::nullopt;
  return out;
}

}  // namespace tabulon::office::uno
