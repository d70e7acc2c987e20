// The encodings a text file can have (told by its first bytes) and the
// conversion of UTF-16 text to UTF-8 and back, which lets every rewrite work
// on bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "io.h"
#include "status.h"

namespace ravelin {

enum class Encoding { k8Bit, kUtf16Le, kUtf16Be, kUtf8Bom };

// The encoding that the first `n` bytes at `p` announce.
Encoding DetectEncoding(const char* p, size_t n);
// Reads the first bytes of `fd`.
Status DetectFileEncoding(int fd, Encoding* encoding);

std::string_view BomOf(Encoding e);
inline bool IsUtf16(Encoding e) { return e == Encoding::kUtf16Le || e == Encoding::kUtf16Be; }
// The value IsUnicodeFile reports.
int32_t TextKind(Encoding e);

// Converts the UTF-16 text of `in` to UTF-8. Unpaired surrogates become the
// three-byte forms that Utf8ToUtf16 turns back into the same units, so the
// round trip keeps every unit. An odd number of bytes is kEncoding.
Status Utf16ToUtf8(Input& in, bool big_endian, Output& out);
// The reverse. Bytes that are not UTF-8 become one unit each (their value).
Status Utf8ToUtf16(Input& in, bool big_endian, Output& out);
// The same for a short text held in memory.
std::string Utf8ToUtf16(std::string_view text, bool big_endian);

}  // namespace ravelin
