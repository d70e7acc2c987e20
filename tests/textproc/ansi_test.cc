// Under an 8-bit locale, text the locale cannot hold is lost on the way to
// the text library ("?"), and the library gets the converted path. This
// executable runs with LC_ALL=C, whose character set is ASCII.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "office/office.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

TEST(AnsiText, CharactersOutsideTheSystemSetAreLost) {
  ControlOptions o;
  o.text_library_folder = FAKE_RAVELIN_DIR;
  TabulonCtrl c(o);
  std::string path = "/data/caf\xC3\xA9-wide.txt";
  EXPECT_TRUE(c.IsFileUnicode(path));
  void* handle = dlopen(FAKE_RAVELIN_DIR "/libravelin.so", RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(static_cast<char*>(dlsym(handle, "fake_last_path")), "/data/caf?-wide.txt");
  // And the caller's variable gets the converted text back.
  EXPECT_EQ(path, "/data/caf?-wide.txt");
}

}  // namespace
}  // namespace tabulon
