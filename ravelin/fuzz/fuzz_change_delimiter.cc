// The delimiter change on any bytes: it agrees with the plain model, it
// comes back with the reverse change when no field had to be quoted, and a
// copy (',' to ',') gives every input back exactly, UTF-16 included.
#include <cstdint>
#include <string>

#include "fuzz_files.h"
#include "ravelin/ravelin.h"

namespace {

bool NeedsNoQuotes(const std::string& text) {
  bool inside = false;
  for (char c : text) {
    if (c == '"') inside = !inside;
    if (!inside && c == ';') return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using ravelin_fuzz::Check;
  using ravelin_fuzz::Path;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string in = Path("in.csv"), out = Path("out.csv"), back = Path("back.csv");
  ravelin_test::WriteFile(in, text);

  const unsigned char b0 = size > 0 ? data[0] : 0, b1 = size > 1 ? data[1] : 0;
  const bool utf16 = (b0 == 0xFF && b1 == 0xFE) || (b0 == 0xFE && b1 == 0xFF);
  const int32_t copied = TXTFileChangeDelimitationChar(in.c_str(), out.c_str(), ",", ",");
  if (utf16 && size % 2 != 0) {
    Check(copied == RAVELIN_E_ENCODING, "odd UTF-16 refused");
    return 0;
  }
  Check(copied == RAVELIN_OK, "copy succeeds");
  Check(ravelin_test::ReadFile(out) == text, "copy is exact");
  if (utf16) return 0;

  Check(CSVFileChangeDelimitationChar(in.c_str(), out.c_str(), ";") == RAVELIN_OK, "change succeeds");
  const std::string changed = ravelin_test::ReadFile(out);
  const size_t bom = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  Check(changed == text.substr(0, bom) + ravelin_test::ModelChange(text.substr(bom), ',', ';', true),
        "change agrees with the model");
  Check(TXTFileChangeDelimitationChar(out.c_str(), back.c_str(), ";", ",") == RAVELIN_OK, "reverse succeeds");
  if (NeedsNoQuotes(text)) Check(ravelin_test::ReadFile(back) == text, "round trip");
  return 0;
}
