#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "office/office.h"
#include "support/no_office.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

using testing::NoOffice;

ControlOptions Options() {
  ControlOptions o;
  o.office = std::make_shared<NoOffice>();
  return o;
}

TEST(Persistence, WritesExactlyTheTwoEntries) {
  TabulonCtrl c(Options());
  c.put_StateFile("/x/state.ini");
  c.put_CO_Range("A1:B2");  // not persisted
  MemoryPropertyBag bag;
  c.WriteProperties(bag);
  ASSERT_EQ(bag.entries().size(), 2u);
  EXPECT_EQ(std::get<std::string>(bag.entries().at("msStateFile")), "/x/state.ini");
  EXPECT_EQ(std::get<bool>(bag.entries().at("bUseStateFile")), true);
}

TEST(Persistence, SavedWithoutStateFileComesBackWithEveryDefault) {
  MemoryPropertyBag bag;
  {
    TabulonCtrl c(Options());
    c.put_UseStateFile(false);
    c.put_StateFile("/custom/state.ini");
    c.WriteProperties(bag);
  }
  TabulonCtrl loaded(bag, Options());
  EXPECT_TRUE(loaded.get_UseStateFile());
  EXPECT_NE(loaded.get_StateFile(), "/custom/state.ini");
  EXPECT_NE(loaded.get_StateFile().find("Brevant, Inc/Tabu.INI"), std::string::npos);
  EXPECT_EQ(loaded.get_CO_DelimitationCharacter(), 44);
  EXPECT_EQ(loaded.get_ErrorString(), " ");
}

TEST(Persistence, SavedWithStateFileKeepsItAndTheZeroValues) {
  MemoryPropertyBag bag;
  {
    TabulonCtrl c(Options());
    c.put_StateFile("/custom/state.ini");
    c.put_CO_DelimitationCharacter(59);
    c.WriteProperties(bag);
  }
  TabulonCtrl loaded(bag, Options());
  EXPECT_TRUE(loaded.get_UseStateFile());
  EXPECT_EQ(loaded.get_StateFile(), "/custom/state.ini");
  EXPECT_EQ(loaded.get_CO_DelimitationCharacter(), 0);
  EXPECT_EQ(loaded.get_ErrorString(), "");
  EXPECT_FALSE(loaded.get_CO_MultiFileOutput());
}

TEST(Persistence, AnEmptyBagResetsEverything) {
  MemoryPropertyBag empty;
  TabulonCtrl loaded(empty, Options());
  EXPECT_TRUE(loaded.get_UseStateFile());
  EXPECT_EQ(loaded.get_CO_DelimitationCharacter(), 44);
  EXPECT_EQ(loaded.get_ErrorString(), " ");
}

TEST(Persistence, IniBagRoundTripsThroughAFile) {
  const auto path = std::filesystem::temp_directory_path() / ("tabulon-bag-" + std::to_string(getpid()) + ".ini");
  {
    IniPropertyBag bag(path.string());
    TabulonCtrl c(Options());
    c.put_StateFile("/a b/c=d.ini");  // "=" after the first one is the value's
    c.WriteProperties(bag);
    ASSERT_TRUE(bag.Save());
  }
  std::ifstream in(path);
  std::string first;
  std::getline(in, first);
  EXPECT_EQ(first, "[Tabulon]\r");
  IniPropertyBag reread(path.string());
  ASSERT_TRUE(reread.Load());
  TabulonCtrl loaded(reread, Options());
  EXPECT_EQ(loaded.get_StateFile(), "/a b/c=d.ini");
  EXPECT_TRUE(loaded.get_UseStateFile());
  std::filesystem::remove(path);
}

TEST(Persistence, IniBagOfAMissingFileIsEmpty) {
  IniPropertyBag bag("/nonexistent-folder/none.ini");
  EXPECT_TRUE(bag.Load());
  EXPECT_TRUE(bag.entries().empty());
  EXPECT_FALSE(bag.Save());
}

}  // namespace
}  // namespace tabulon
