#include "office/uno/text_output.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tabulon::office::uno {
namespace {

class FinishTextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/tabulon-text-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Finish(const std::string& input, int32_t number, std::vector<int> widths = {}) {
    const auto in = dir_ / "in";
    const auto out = dir_ / "out";
    std::ofstream(in, std::ios::binary) << input;
    std::string error;
    EXPECT_TRUE(FinishText(in, out, *FindFileFormat(number), widths, &error)) << error;
    std::ifstream f(out, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
  }

  std::filesystem::path dir_;
};

TEST_F(FinishTextTest, EndsRecordsButNotLineBreaksInsideQuotes) {
  EXPECT_EQ(Finish("a,\"b\nc\",d\n1,2,3\n", 6), "a,\"b\nc\",d\r\n1,2,3\r\n");
  EXPECT_EQ(Finish("a,b\r\n", 6), "a,b\r\n");
  EXPECT_EQ(Finish("a,b", 6), "a,b\r\n");
  EXPECT_EQ(Finish("a,b\nc\n", 22), "a,b\rc\r");
  EXPECT_EQ(Finish("", 6), "");
}

TEST_F(FinishTextTest, WritesEachCharacterSet) {
  const std::string text = "\xC3\xA9\xE2\x82\xAC\n";  // é €
  EXPECT_EQ(Finish(text, 6), "\xC3\xA9\xE2\x82\xAC\r\n");
  EXPECT_EQ(Finish(text, 62), "\xEF\xBB\xBF\xC3\xA9\xE2\x82\xAC\r\n");
  EXPECT_EQ(Finish(text, 23), "\xE9\x80\r\n");
  // Code page 437 has no euro sign: Excel writes "?".
  EXPECT_EQ(Finish(text, 24), "\x82?\r\n");
  EXPECT_EQ(Finish(text, 22), "\x8E\xDB\r");
  EXPECT_EQ(Finish(text, 42), std::string("\xFF\xFE\xE9\x00\xAC\x20\r\x00\n\x00", 10));
}

TEST_F(FinishTextTest, PadsPrinterColumns) {
  EXPECT_EQ(Finish("name\tqty\tx\nlonger name\t12\t\n", 36, {4, 6}),
            "name        qty    x\r\nlonger name     12\r\n");
}

TEST_F(FinishTextTest, SameOutputWhateverTheBufferSize) {
  // Records, quoted line breaks and CR LF pairs fall across the edges of
  // small buffers.
  const std::string input =
      "a,\"b\r\nc\",d\r\n1,2,3\r\n\r\n\"q\"\"x\",\xC3\xA9\xE2\x82\xAC\rlast\tfield\n\nend";
  const auto in = dir_ / "in";
  std::ofstream(in, std::ios::binary) << input;
  const auto read = [](const std::filesystem::path& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
  };
  for (int32_t number : {6, 22, 24, 42, 36}) {
    std::string error;
    const auto whole = dir_ / "whole";
    ASSERT_TRUE(FinishText(in, whole, *FindFileFormat(number), {2}, &error)) << error;
    const std::string expected = read(whole);
    for (size_t buffer = 1; buffer <= 9; ++buffer) {
      const auto out = dir_ / "out";
      ASSERT_TRUE(FinishText(in, out, *FindFileFormat(number), {2}, &error, buffer)) << error;
      EXPECT_EQ(read(out), expected) << "format " << number << ", buffer " << buffer;
    }
  }
  EXPECT_EQ(Finish(input, 6),
            "a,\"b\r\nc\",d\r\n1,2,3\r\n\r\n\"q\"\"x\",\xC3\xA9\xE2\x82\xAC\r\nlast\tfield\r\n\r\nend\r\n");
}

TEST_F(FinishTextTest, ReportsFilesItCannotReadOrWrite) {
  std::string error;
  EXPECT_FALSE(FinishText(dir_ / "missing", dir_ / "out", *FindFileFormat(6), {}, &error));
  EXPECT_NE(error.find("cannot read"), std::string::npos);
  std::ofstream(dir_ / "in", std::ios::binary) << "a\n";
  error.clear();
  EXPECT_FALSE(FinishText(dir_ / "in", dir_ / "no" / "such" / "out", *FindFileFormat(6), {}, &error));
  EXPECT_NE(error.find("cannot write"), std::string::npos);
}

TEST(DelimitedText, QuotesOnlyWhereExcelDoes) {
  const Block block{{Cell(std::string("a,b")), Cell(1.5), Cell()},
                    {Cell(std::string("say \"hi\"")), Cell(std::string("x\ny")), Cell(-2.0)}};
  EXPECT_EQ(DelimitedText(block, ',', true), "\"a,b\",1.5,\n\"say \"\"hi\"\"\",\"x\ny\",-2\n");
  EXPECT_EQ(DelimitedText(block, '\t', true), "a,b\t1.5\t\n\"say \"\"hi\"\"\"\t\"x\ny\"\t-2\n");
}

}  // namespace
}  // namespace tabulon::office::uno
