// The field rewrites on any bytes. Each must succeed, keep the structure
// that counting quotes gives (delimiters and line breaks outside quotes)
// where it only touches field text, and change nothing when run on its own
// output. Cropping to every row or column is the identity.
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_files.h"
#include "ravelin/ravelin.h"

namespace {

using Rewrite = std::function<int32_t(const char*, const char*)>;

// Delimiters and LFs outside quotes, in order.
std::string Structure(const std::string& text) {
  std::string s;
  bool inside = false;
  const size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  for (size_t i = start; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') inside = !inside;
    if (!inside && (c == ',' || c == '\n')) s += c;
  }
  return s;
}

bool HasMark(const std::string& s) {
  return s.compare(0, 3, "\xEF\xBB\xBF") == 0 || s.compare(0, 2, "\xFF\xFE") == 0 ||
         s.compare(0, 2, "\xFE\xFF") == 0;
}

std::string Run(const Rewrite& rewrite, const std::string& in_text, const char* what) {
  const std::string in = ravelin_fuzz::Path("in.csv"), out = ravelin_fuzz::Path("out.csv");
  ravelin_test::WriteFile(in, in_text);
  ravelin_fuzz::Check(rewrite(in.c_str(), out.c_str()) == RAVELIN_OK, what);
  return ravelin_test::ReadFile(out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using ravelin_fuzz::Check;
  if (size < 2) return 0;
  // The first byte picks the rewrite's numbers, the rest is the file.
  const uint8_t knob = data[0];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  const bool wide =
      text.size() >= 2 && ((text[0] == '\xFF' && text[1] == '\xFE') || (text[0] == '\xFE' && text[1] == '\xFF'));
  if (wide && text.size() % 2 != 0) {
    ravelin_test::WriteFile(ravelin_fuzz::Path("in.csv"), text);
    Check(TrimCSVFile(ravelin_fuzz::Path("in.csv").c_str(), ravelin_fuzz::Path("out.csv").c_str()) ==
              RAVELIN_E_ENCODING,
          "odd UTF-16 refused");
    return 0;
  }

  struct Case {
    const char* name;
    Rewrite rewrite;
    bool keeps_structure;
    bool idempotent;
  };
  const std::string columns = std::to_string(1 + knob % 3) + "-" + std::to_string(2 + knob % 5);
  // Cropping again changes nothing only when the list starts at 1.
  const bool crop_stable = knob % 3 == 0;
  const int32_t length = 1 + knob % 7;
  const std::vector<Case> cases = {
      {"encase", EncaseEachFieldWithQuotes, true, true},
      {"pad spaces", PadCSVFileWithASpaces, true, true},
      {"trim", TrimCSVFile, true, true},
      {"controls", RemoveControlCharactersFromFileInQuotesOnly, false, true},
      {"empty records", RemoveEmptyLinesFromCSVFile, false, true},
      {"blank lines", DeleteEmptyLinesFromTextFile, false, true},
      {"fixed length",
       [&](const char* i, const char* o) {
         return PadCSVFileForFixedLengthFields(i, o, length, "_", knob & 0x80, columns.c_str());
       },
       true, true},
      {"crop columns",
       [&](const char* i, const char* o) { return CropCSVFileToSpecificColumns(i, o, columns.c_str()); }, false,
       crop_stable},
      {"crop rows", [&](const char* i, const char* o) { return CropCSVFileToSpecificRows(i, o, columns.c_str()); },
       false, crop_stable},
  };
  for (const Case& c : cases) {
    const std::string once = Run(c.rewrite, text, c.name);
    if (wide) continue;  // UTF-16 text: no crash and success is what is checked
    if (c.keeps_structure) Check(Structure(once) == Structure(text), c.name);
    // Removing what stood before bytes that look like a byte-order mark
    // leaves them first, where they are one: the next run then sees other
    // text, rightly.
    const bool new_mark = HasMark(once) && !HasMark(text);
    if (c.idempotent && !new_mark) Check(Run(c.rewrite, once, c.name) == once, c.name);
  }
  auto all_rows = [](const char* i, const char* o) { return CropCSVFileToSpecificRows(i, o, "1-2147483647"); };
  auto all_cols = [](const char* i, const char* o) { return CropCSVFileToSpecificColumns(i, o, "1-2147483647"); };
  Check(Run(all_rows, text, "all rows") == text, "all rows is the identity");
  Check(Run(all_cols, text, "all columns") == text, "all columns is the identity");
  return 0;
}
