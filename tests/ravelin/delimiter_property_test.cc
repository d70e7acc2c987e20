// Properties of the delimiter change on random text: the round trip, the
// agreement with a plain one-byte-at-a-time model on any bytes (malformed
// input included), and the agreement of every vector kernel with the
// portable one.
#include <cstring>

#include <gtest/gtest.h>

#include "ravelin/ravelin.h"
#include "scan.h"
#include "support.h"

namespace {

using ravelin_test::ModelChange;
using ravelin_test::ParseCsv;
using ravelin_test::RandomCsv;
using ravelin_test::ReadFile;
using ravelin_test::TempDir;
using ravelin_test::WriteFile;

class DelimiterChange : public testing::Test {
 protected:
  std::string Csv(const std::string& text, const char* to) {
    WriteFile(dir_ / "in.csv", text);
    EXPECT_EQ(CSVFileChangeDelimitationChar((dir_ / "in.csv").c_str(), (dir_ / "out.csv").c_str(), to), RAVELIN_OK);
    return ReadFile(dir_ / "out.csv");
  }
  std::string Txt(const std::string& text, const char* from, const char* to) {
    WriteFile(dir_ / "in.csv", text);
    EXPECT_EQ(TXTFileChangeDelimitationChar((dir_ / "in.csv").c_str(), (dir_ / "out.csv").c_str(), from, to),
              RAVELIN_OK);
    return ReadFile(dir_ / "out.csv");
  }
  TempDir dir_;
};

TEST_F(DelimiterChange, RoundTripGivesTheInputBack) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    std::mt19937 rng(seed);
    const std::string x = RandomCsv(rng, 1 + seed % 40, false);
    const std::string y = Csv(x, ";");
    ASSERT_EQ(Txt(y, ";", ","), x) << "seed " << seed;
    ASSERT_EQ(ParseCsv(y, ';'), ParseCsv(x, ',')) << "seed " << seed;
  }
}

TEST_F(DelimiterChange, RoundTripKeepsValuesWhenFieldsHoldTheNewDelimiter) {
  int quoted_some = 0;
  for (unsigned seed = 1; seed <= 150; ++seed) {
    std::mt19937 rng(seed);
    const std::string x = RandomCsv(rng, 1 + seed % 40, true);
    const std::string y = Csv(x, ";");
    const std::string back = Txt(y, ";", ",");
    ASSERT_EQ(ParseCsv(y, ';'), ParseCsv(x, ',')) << "seed " << seed;
    ASSERT_EQ(ParseCsv(back, ','), ParseCsv(x, ',')) << "seed " << seed;
    quoted_some += back != x;
  }
  EXPECT_GT(quoted_some, 10) << "the generator must produce unquoted ';'";
}

TEST_F(DelimiterChange, AgreesWithTheModelOnAnyBytes) {
  const std::string alphabet = "ab;,\"\"\r\n \x01\xC3\xA9";
  for (unsigned seed = 1; seed <= 400; ++seed) {
    std::mt19937 rng(seed);
    std::string x(rng() % (seed < 200 ? 40 : 400), ' ');
    for (char& c : x) c = alphabet[rng() % alphabet.size()];
    ASSERT_EQ(Csv(x, ";"), ModelChange(x, ',', ';', true)) << testing::PrintToString(x);
    ASSERT_EQ(Txt(x, ",", "\t"), ModelChange(x, ',', '\t', false)) << testing::PrintToString(x);
    ASSERT_EQ(Txt(x, "\n", " "), ModelChange(x, '\n', ' ', false)) << testing::PrintToString(x);
  }
}

TEST_F(DelimiterChange, AgreesWithTheModelAcrossBlockBoundaries) {
  std::mt19937 rng(42);
  std::string x;
  while (x.size() < (size_t{9} << 20)) x += RandomCsv(rng, 1000, true);
  ASSERT_EQ(Csv(x, ";"), ModelChange(x, ',', ';', true));
}

TEST_F(DelimiterChange, QuotesAFieldLongerThanTheBuffers) {
  // The field's start has long been written when its ';' shows up.
  const std::string field = std::string(6 << 20, 'a') + "\"q\";b";
  const std::string y = Csv("x," + field + ",c\n", ";");
  std::string doubled = std::string(6 << 20, 'a') + "\"\"q\"\";b";
  EXPECT_EQ(y, "x;\"" + doubled + "\";c\n");
}

TEST(SubstituteKernels, AllAgreeWithThePortableOne) {
  const auto kernels = ravelin::scan::AvailableSubstitutes();
  ASSERT_GE(kernels.size(), 1u);
  const std::string alphabet = "abc,;\"\n";
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    std::mt19937 rng(seed);
    std::string data(rng() % 400, ' ');
    for (char& c : data) c = alphabet[rng() % (seed % 3 == 0 ? 4 : alphabet.size())];
    const int stop = seed % 2 == 0 ? ';' : -1;
    const uint64_t inside = seed % 5 == 0 ? ~uint64_t{0} : 0;
    std::string want = data;
    ravelin::scan::SubstituteState want_state{inside, -1};
    const size_t want_done = kernels[0].fn(want.data(), want.size(), ',', '|', stop, &want_state);
    for (const auto& kernel : kernels) {
      std::string got = data;
      ravelin::scan::SubstituteState state{inside, -1};
      const size_t done = kernel.fn(got.data(), got.size(), ',', '|', stop, &state);
      ASSERT_EQ(done, want_done) << kernel.name << " seed " << seed;
      ASSERT_EQ(got, want) << kernel.name << " seed " << seed;
      ASSERT_EQ(state.inside, want_state.inside) << kernel.name;
      ASSERT_EQ(state.last_boundary, want_state.last_boundary) << kernel.name;
    }
  }
}

TEST(SubstituteKernels, PortableKernelMarksQuotedTextByCountingQuotes) {
  std::string block = "a,\"b,\"\",c\",d" + std::string(52, 'x');
  ASSERT_EQ(block.size(), 64u);
  ravelin::scan::SubstituteState state;
  ASSERT_EQ(ravelin::scan::AvailableSubstitutes()[0].fn(block.data(), block.size(), ',', ';', -1, &state), 64u);
  EXPECT_EQ(block.substr(0, 12), "a;\"b,\"\",c\";d");
  EXPECT_EQ(state.inside, 0u);
  EXPECT_EQ(state.last_boundary, 10);
  std::string stop_block = std::string(64, 'x') + "a;" + std::string(62, 'x');
  ravelin::scan::SubstituteState s2;
  EXPECT_EQ(ravelin::scan::AvailableSubstitutes()[0].fn(stop_block.data(), stop_block.size(), ',', ';', ';', &s2),
            64u);
}

TEST(FindStructural, FindsTheFirstCharacterThatMatters) {
  const std::string text = std::string(37, 'x') + "\r" + std::string(5, 'y') + ",";
  const char* p = text.data();
  EXPECT_EQ(ravelin::scan::FindStructural(p, p + text.size(), ',') - p, 37);
  EXPECT_EQ(ravelin::scan::FindStructural(p, p + 37, ',') - p, 37);
  EXPECT_EQ(ravelin::scan::FindStructural(p + 38, p + text.size(), ',') - p, 43);
  EXPECT_EQ(ravelin::scan::FindStructural(p + 38, p + text.size(), ';') - p, 44);
}

}  // namespace
