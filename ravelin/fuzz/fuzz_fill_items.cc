// FillToDoItemsArray never writes at or beyond its capacity, and writes
// exactly the items that fit the list grammar, checked against a plain
// reading of the grammar.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_files.h"
#include "ravelin/ravelin.h"

namespace {

bool Digits(const std::string& s, int64_t* v) {
  if (s.empty()) return false;
  *v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    *v = *v * 10 + (c - '0');
    if (*v > INT32_MAX) return false;
  }
  return true;
}

std::string Strip(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

// The pairs the grammar gives for `list`, all of them.
std::vector<int32_t> Expected(const std::string& list) {
  std::vector<int32_t> pairs;
  size_t start = 0;
  for (;;) {
    const size_t comma = list.find(',', start);
    const std::string item = Strip(list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    const size_t dash = item.find('-');
    int64_t a = 0, b = 0;
    bool ok = false;
    if (dash == std::string::npos) {
      ok = Digits(item, &a);
      b = a;
    } else {
      ok = Digits(Strip(item.substr(0, dash)), &a) && Digits(Strip(item.substr(dash + 1)), &b);
    }
    if (ok) {
      pairs.push_back(static_cast<int32_t>(a < b ? a : b));
      pairs.push_back(static_cast<int32_t>(a < b ? b : a));
    }
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return pairs;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int32_t capacity = data[0] % 41;
  std::string list(reinterpret_cast<const char*>(data + 1), size - 1);
  list = list.substr(0, list.find('\0'));
  constexpr int32_t kGuard = -123456789;
  std::vector<int32_t> array(static_cast<size_t>(capacity) + 16, kGuard);
  const int32_t n = FillToDoItemsArray(list.c_str(), array.data(), capacity);
  ravelin_fuzz::Check(n >= 0 && 2 * n <= capacity, "count within capacity");
  for (size_t i = static_cast<size_t>(capacity); i < array.size(); ++i) {
    ravelin_fuzz::Check(array[i] == kGuard, "element at or beyond capacity written");
  }
  const std::vector<int32_t> all = Expected(list);
  const size_t fit = static_cast<size_t>(capacity / 2) * 2;
  const std::vector<int32_t> want(all.begin(), all.begin() + static_cast<long>(std::min(all.size(), fit)));
  ravelin_fuzz::Check(static_cast<size_t>(2 * n) == want.size(), "count of pairs");
  for (size_t i = 0; i < want.size(); ++i) ravelin_fuzz::Check(array[i] == want[i], "pair values");
  return 0;
}
