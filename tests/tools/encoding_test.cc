// How the command line tells UTF-8 from 8-bit text and transcodes the
// latter: on files, as the conversion meets them.
#include "encoding.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "cli_run.h"

namespace {

using tabulon::testing::Folder;
using tabulon::testing::Read;

struct Utf8Case {
  const char* name;
  std::string bytes;
  bool utf8;
};

TEST(CliEncoding, TellsValidUtf8AndByteOrderMarks) {
  const Utf8Case cases[] = {
      {"empty", "", true},
      {"ascii", "a,b\r\n", true},
      {"two-byte", "Jos\xc3\xa9", true},
      {"four-byte", "\xf0\x9f\x98\x80", true},
      {"utf-16 mark",
       std::string("\xff\xfe"
                   "a\0",
                   4),
       true},
      {"latin-1 e-acute", "Jos\xe9", false},
      {"cp1252 euro", "\x80", false},
      {"cut at the end", "ab\xc3", false},
      {"overlong slash", "\xc0\xaf", false},
      {"surrogate", "\xed\xa0\x80", false},
      {"above U+10FFFF", "\xf4\x90\x80\x80", false},
      {"lone continuation", "a\x80z", false},
  };
  Folder dir("tabulon-encoding-");
  for (const Utf8Case& c : cases) {
    std::ofstream(dir / "f", std::ios::binary | std::ios::trunc) << c.bytes;
    EXPECT_EQ(tabulon::cli::IsUtf8OrMarked(dir / "f"), c.utf8) << c.name;
  }
  // A multi-byte character across the reader's 64 KiB blocks is one character.
  std::string long_text(65535, 'a');
  std::ofstream(dir / "f", std::ios::binary | std::ios::trunc) << long_text << "\xc3\xa9";
  EXPECT_TRUE(tabulon::cli::IsUtf8OrMarked(dir / "f"));
}

TEST(CliEncoding, TranscodesWindows1252AndNamedEncodings) {
  Folder dir("tabulon-encoding-");
  std::ofstream(dir / "in", std::ios::binary) << "\xe9\x80\x81\x9f";
  std::string error;
  ASSERT_TRUE(tabulon::cli::TranscodeToUtf8(dir / "in", dir / "out", "auto", error)) << error;
  // The five bytes Windows-1252 leaves undefined stay their C1 control.
  EXPECT_EQ(Read(dir / "out"), "\xc3\xa9\xe2\x82\xac\xc2\x81\xc5\xb8");
  ASSERT_TRUE(tabulon::cli::TranscodeToUtf8(dir / "in", dir / "out", "latin1", error)) << error;
  EXPECT_EQ(Read(dir / "out"), "\xc3\xa9\xc2\x80\xc2\x81\xc2\x9f");

  std::ofstream(dir / "bad", std::ios::binary) << "ok\xff";
  EXPECT_FALSE(tabulon::cli::TranscodeToUtf8(dir / "bad", dir / "out2", "utf-8", error));
  EXPECT_EQ(error, "a byte at offset 2 is not utf-8 text");

  EXPECT_TRUE(tabulon::cli::KnownEncoding("cp850"));
  EXPECT_TRUE(tabulon::cli::KnownEncoding("Windows-1252"));
  EXPECT_FALSE(tabulon::cli::KnownEncoding("no-such-encoding"));
}

}  // namespace
