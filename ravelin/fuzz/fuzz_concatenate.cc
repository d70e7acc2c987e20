// Appending one file to another on any bytes agrees with a plain model of
// the byte-order-mark rules, and a refused append leaves the first file as
// it was. The many-file joins must succeed or refuse mixed encodings.
#include <cstdint>
#include <string>

#include "fuzz_files.h"
#include "ravelin/ravelin.h"

namespace {

enum Kind { k8Bit, kUtf8, kLe, kBe };

Kind KindOf(const std::string& s) {
  if (s.compare(0, 3, "\xEF\xBB\xBF") == 0) return kUtf8;
  if (s.compare(0, 2, "\xFF\xFE") == 0) return kLe;
  if (s.compare(0, 2, "\xFE\xFF") == 0) return kBe;
  return k8Bit;
}

bool Wide(Kind k) { return k == kLe || k == kBe; }
size_t BomSize(Kind k) { return k == kUtf8 ? 3 : Wide(k) ? 2 : 0; }

// RAVELIN_OK and the joined text, or the code of the refusal.
int32_t Model(const std::string& first, const std::string& second, std::string* joined) {
  const Kind a = KindOf(first), b = KindOf(second);
  if (Wide(b) && second.size() % 2 != 0) return RAVELIN_E_ENCODING;
  if (first.empty()) {
    *joined = second;
    return RAVELIN_OK;
  }
  if (Wide(a) && first.size() % 2 != 0) return RAVELIN_E_ENCODING;
  if (a != b && (Wide(a) || Wide(b))) return RAVELIN_E_ENCODING;
  *joined = first + second.substr(BomSize(b));
  return RAVELIN_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using ravelin_fuzz::Check;
  using ravelin_fuzz::Path;
  if (size == 0) return 0;
  const size_t cut = data[0] % size;
  const std::string all(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string first = all.substr(0, cut), second = all.substr(cut);
  const std::string a = Path("a.csv"), b = Path("b.csv"), out = Path("out.csv");
  ravelin_test::WriteFile(a, first);
  ravelin_test::WriteFile(b, second);

  std::string want;
  const int32_t want_code = Model(first, second, &want);
  const int32_t code = ConcatenateTwoTextFiles(a.c_str(), b.c_str());
  Check(code == want_code, "append result code");
  Check(ravelin_test::ReadFile(a) == (code == RAVELIN_OK ? want : first), "appended text");

  ravelin_test::WriteFile(a, first);
  const std::string list = a + "|" + b;
  for (auto join : {ConcatenateAll, ConcatenateAllSkipFirstLine, ConcatenateSpreadsheet}) {
    const int32_t r = join(list.c_str(), out.c_str());
    Check(r == RAVELIN_OK || r == RAVELIN_E_ENCODING, "join result");
  }
  const int32_t r = ConcatenateSpreadsheetAddColumnWithOriginalFileName(list.c_str(), out.c_str(), "file");
  Check(r == RAVELIN_OK || r == RAVELIN_E_ENCODING, "join with names");
  if (KindOf(first) == k8Bit && KindOf(second) == k8Bit) {
    Check(ConcatenateAll(list.c_str(), out.c_str()) == RAVELIN_OK, "join of 8-bit files");
    std::string joined = first;
    if (!first.empty() && first.back() != '\n' && !second.empty()) {
      const size_t lf = first.find('\n');
      joined += lf != std::string::npos && lf > 0 && first[lf - 1] == '\r' ? "\r\n" : "\n";
    }
    Check(ravelin_test::ReadFile(out) == joined + second, "join keeps records apart");
  }
  return 0;
}
