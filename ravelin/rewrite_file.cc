#include "rewrite_file.h"

#include <algorithm>

#include "encoding.h"

namespace ravelin {

namespace {

// Rewrites rarely grow a text by more than half; a larger output just
// takes more flushes.
size_t OutputBufferFor(uint64_t input_size) {
  constexpr uint64_t kLargest = uint64_t{1} << 20;
  return static_cast<size_t>(std::clamp<uint64_t>(input_size + input_size / 2, 4096, kLargest));
}

}  // namespace

Status DecodeToScratch(int fd, uint64_t begin, bool big_endian, const std::string& folder, Fd* scratch) {
  RAVELIN_RETURN_IF_ERROR(OpenScratch(folder, scratch));
  Input in(fd, begin);
  Output out(scratch->get(), 0);
  RAVELIN_RETURN_IF_ERROR(Utf16ToUtf8(in, big_endian, out));
  return out.Flush();
}

Status RewriteFile(const char* in_path, const char* out_path, const TextRewrite& rewrite) {
  Fd in_fd;
  uint64_t size = 0;
  RAVELIN_RETURN_IF_ERROR(OpenInput(in_path, &in_fd, &size));
  Encoding encoding = Encoding::k8Bit;
  RAVELIN_RETURN_IF_ERROR(DetectFileEncoding(in_fd.get(), &encoding));
  const std::string_view bom = BomOf(encoding);
  if (IsUtf16(encoding) && size % 2 != 0) return Status::kEncoding;

  PendingFile pending;
  RAVELIN_RETURN_IF_ERROR(pending.Create(out_path));
  Output out(pending.fd(), 0, OutputBufferFor(size));
  out.Write(bom.data(), bom.size());
  if (!IsUtf16(encoding)) {
    Input in(in_fd.get(), bom.size());
    RAVELIN_RETURN_IF_ERROR(rewrite(in, out));
  } else {
    const bool big_endian = encoding == Encoding::kUtf16Be;
    Fd text;
    RAVELIN_RETURN_IF_ERROR(DecodeToScratch(in_fd.get(), bom.size(), big_endian, pending.folder(), &text));
    Fd result;
    RAVELIN_RETURN_IF_ERROR(OpenScratch(pending.folder(), &result));
    {
      Input in(text.get(), 0);
      Output rewritten(result.get(), 0, OutputBufferFor(size));
      RAVELIN_RETURN_IF_ERROR(rewrite(in, rewritten));
      RAVELIN_RETURN_IF_ERROR(rewritten.Flush());
    }
    Input back(result.get(), 0);
    RAVELIN_RETURN_IF_ERROR(Utf8ToUtf16(back, big_endian, out));
  }
  RAVELIN_RETURN_IF_ERROR(out.Flush());
  return pending.Commit();
}

}  // namespace ravelin
