#include "util/file_helpers.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tabulon {
namespace {

namespace fs = std::filesystem;

// Each test gets a fresh folder under the system temp folder, removed after.
class FileHelpers : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "tabulon-util-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = pattern;
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  std::string At(const std::string& relative) const { return root_ + "/" + relative; }

  void Write(const std::string& relative, const std::string& content = "x") const {
    std::ofstream(At(relative), std::ios::binary) << content;
  }

  std::string Read(const std::string& path) const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  std::string root_;
};

TEST_F(FileHelpers, FileExistsFindsFilesButNotFolders) {
  Write("book.xls");
  Write(".hidden");
  fs::create_directory(At("folder"));
  fs::create_symlink(At("book.xls"), At("link.xls"));
  fs::create_symlink(At("missing.xls"), At("dangling.xls"));
  fs::create_symlink(At("folder"), At("folderlink"));

  EXPECT_TRUE(FileExists(At("book.xls")));
  EXPECT_TRUE(FileExists("  " + At("book.xls") + "  "));
  EXPECT_TRUE(FileExists(At(".hidden")));
  EXPECT_TRUE(FileExists(At("link.xls")));

  EXPECT_FALSE(FileExists(""));
  EXPECT_FALSE(FileExists("   "));
  EXPECT_FALSE(FileExists(At("BOOK.xls")));  // the disk's names are case-sensitive
  EXPECT_FALSE(FileExists(At("nothing.xls")));
  EXPECT_FALSE(FileExists(At("book.xls/")));
  EXPECT_FALSE(FileExists(At("folder")));
  EXPECT_FALSE(FileExists(At("folder/")));
  EXPECT_FALSE(FileExists(At("folderlink")));
  EXPECT_FALSE(FileExists(At("dangling.xls")));
  EXPECT_FALSE(FileExists(At("book.xls") + std::string(1, '\0') + "tail"));
}

TEST_F(FileHelpers, FileExistsCountsAWildcardOnlyWhenItsFirstMatchIsNamed) {
  Write("a.xls");
  Write("b.xls");
  Write("log");
  Write("log1");
  fs::create_directory(At("q"));
  Write("q.r");

  EXPECT_FALSE(FileExists(At("*.xls")));
  EXPECT_FALSE(FileExists(At("?.xls")));
  EXPECT_FALSE(FileExists(At("none*")));
  // The first match, "log", happens to stand in the pattern.
  EXPECT_TRUE(FileExists(At("log*")));
  // The folder "q" sorts first but is no file; the first file, "q.r", is not named.
  EXPECT_FALSE(FileExists(At("q*")));
}

TEST_F(FileHelpers, FileExistsComparesTheFoundNameWithoutCase) {
  fs::create_directory(At("QZone"));
  Write("QZone/qz");
  // The pattern matches "qz", which stands in the path only as "QZ".
  EXPECT_TRUE(FileExists(At("QZone/q?")));
}

TEST_F(FileHelpers, FileExistsTakesOnlyStarAndQuestionMarkAsWildcards) {
  Write("[1].xls");
  Write("back\\slash");
  Write("a[1]");
  Write("a1x");
  fs::create_directory(At("x[1]"));
  Write("x[1]/data");

  EXPECT_TRUE(FileExists(At("[1].xls")));
  EXPECT_TRUE(FileExists(At("back\\slash")));
  EXPECT_TRUE(FileExists(At("a[1]*")));      // matches "a[1]", not "a1x"
  EXPECT_TRUE(FileExists(At("x[1]/data*")));  // the folder's "[" is literal too
  EXPECT_FALSE(FileExists(At("*/data")));    // no wildcards in folders

  // A file named outright counts even when a wildcard would find another first.
  Write("x!");
  Write("x?");
  EXPECT_TRUE(FileExists(At("x?")));
}

TEST_F(FileHelpers, FileExistsLetsWildcardsFindHiddenFiles) {
  // "?x" finds ".x", whose name stands in the path through the folder "h.x".
  fs::create_directory(At("h.x"));
  Write("h.x/.x");
  EXPECT_TRUE(FileExists(At("h.x/?x")));
}

TEST(GetFolderOfPath, KeepsEverythingUpToTheLastSeparator) {
  const struct {
    std::string path, folder;
  } cases[] = {
      {"/a/b.xls", "/a/"}, {"/a/b/", "/a/b/"}, {"b.xls", ""}, {"/", "/"}, {"", ""}, {"a/b/c.csv", "a/b/"},
  };
  for (const auto& c : cases) EXPECT_EQ(GetFolderOfPath(c.path), c.folder) << c.path;
}

TEST(GetParentFolderName, WorksOnTheTextAlone) {
  const struct {
    std::string path, parent;
  } cases[] = {
      {"/a/b/c", "/a/b"}, {"/a/b/", "/a"}, {"/a", "/"}, {"/", ""}, {"//", ""}, {"name", ""}, {"name/", ""},
      {"a/b", "a"},       {"/a//b", "/a"}, {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(GetParentFolderName(c.path), c.parent) << c.path;
}

TEST_F(FileHelpers, FolderExistsOnlyForFolders) {
  Write("file");
  fs::create_directory(At("dir"));
  fs::create_symlink(At("dir"), At("dirlink"));

  EXPECT_TRUE(FolderExists(root_));
  EXPECT_TRUE(FolderExists(At("dir")));
  EXPECT_TRUE(FolderExists(At("dir/")));
  EXPECT_TRUE(FolderExists(At("dirlink")));
  EXPECT_FALSE(FolderExists(At("file")));
  EXPECT_FALSE(FolderExists(At("missing")));
  EXPECT_FALSE(FolderExists(At("file/below")));  // a file in the way is no error
  EXPECT_FALSE(FolderExists(At(std::string(5000, 'n'))));
  EXPECT_FALSE(FolderExists(""));
  EXPECT_FALSE(FolderExists(At("dir") + std::string(1, '\0')));
}

TEST_F(FileHelpers, MakeFolderPathCreatesEveryMissingAncestor) {
  fs::create_directory(At("a"));
  MakeFolderPath(At("a/b/c/d/"));
  EXPECT_TRUE(fs::is_directory(At("a/b/c/d")));

  MakeFolderPath(At("x//y"));
  EXPECT_TRUE(fs::is_directory(At("x/y")));

  MakeFolderPath(At("a/b"));  // already there: nothing to do, nothing raised
  EXPECT_TRUE(fs::is_directory(At("a/b/c/d")));
}

TEST_F(FileHelpers, MakeFolderPathSwallowsFailures) {
  Write("file");
  EXPECT_NO_THROW(MakeFolderPath(At("file/sub/deeper")));
  EXPECT_FALSE(fs::exists(At("file/sub")));
  EXPECT_NO_THROW(MakeFolderPath(""));
  EXPECT_NO_THROW(MakeFolderPath("/"));
}

TEST_F(FileHelpers, MoveFileOverwritingReplacesTheDestination) {
  Write("source.csv", "new");
  Write("target.csv", "old content");
  ASSERT_TRUE(MoveFileOverwriting(At("source.csv"), At("target.csv")));
  EXPECT_EQ(Read(At("target.csv")), "new");
  EXPECT_FALSE(fs::exists(At("source.csv")));

  Write("readonly.csv", "ro");
  fs::permissions(At("readonly.csv"), fs::perms::owner_read | fs::perms::group_read);
  ASSERT_TRUE(MoveFileOverwriting(At("readonly.csv"), At("fresh.csv")));
  EXPECT_EQ(Read(At("fresh.csv")), "ro");
  EXPECT_FALSE(fs::exists(At("readonly.csv")));
}

TEST_F(FileHelpers, MoveFileOverwritingFailsWithoutLosingData) {
  Write("only.csv", "keep me");
  fs::create_directory(At("dir"));
  Write("target.csv", "untouched");

  EXPECT_FALSE(MoveFileOverwriting(At("missing.csv"), At("target.csv")));
  EXPECT_EQ(Read(At("target.csv")), "untouched");
  // The same file under one or two spellings: deleting it would lose it.
  EXPECT_FALSE(MoveFileOverwriting(At("only.csv"), At("only.csv")));
  EXPECT_FALSE(MoveFileOverwriting(At("only.csv"), At("dir/../only.csv")));
  EXPECT_FALSE(MoveFileOverwriting(At("only.csv"), At("dir")));
  EXPECT_FALSE(MoveFileOverwriting(At("dir"), At("target.csv")));
  EXPECT_FALSE(MoveFileOverwriting(At("only.csv"), At("nofolder/target.csv")));
  EXPECT_EQ(Read(At("only.csv")), "keep me");
  EXPECT_EQ(Read(At("target.csv")), "untouched");
}

// Keeps a file from being deleted: an immutable file for root, who may delete
// anything else, a read-only folder for anyone else. Undone on destruction.
class Undeletable {
 public:
  Undeletable(const std::string& file, const std::string& folder) : file_(file), folder_(folder) {
    if (::geteuid() != 0) {
      active_ = ::chmod(folder_.c_str(), 0555) == 0;
      return;
    }
    const int fd = ::open(file_.c_str(), O_RDONLY);
    if (fd < 0) return;
    int flags = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0) {
      flags |= FS_IMMUTABLE_FL;
      active_ = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
  }
  ~Undeletable() {
    if (!active_) return;
    if (::geteuid() != 0) {
      ::chmod(folder_.c_str(), 0755);
      return;
    }
    const int fd = ::open(file_.c_str(), O_RDONLY);
    int flags = 0;
    if (fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0) {
      flags &= ~FS_IMMUTABLE_FL;
      ::ioctl(fd, FS_IOC_SETFLAGS, &flags);
    }
    if (fd >= 0) ::close(fd);
  }
  bool active() const { return active_; }

 private:
  std::string file_, folder_;
  bool active_ = false;
};

TEST_F(FileHelpers, MoveFileOverwritingKeepsTheCopyWhenTheSourceStays) {
  fs::create_directory(At("in"));
  Write("in/source.csv", "data");
  Write("target.csv", "old");
  Undeletable guard(At("in/source.csv"), At("in"));
  if (!guard.active()) GTEST_SKIP() << "this file system cannot keep a file from being deleted";

  EXPECT_FALSE(MoveFileOverwriting(At("in/source.csv"), At("target.csv")));
  EXPECT_EQ(Read(At("target.csv")), "data");
  EXPECT_EQ(Read(At("in/source.csv")), "data");
}

TEST(TrimAtNull, StopsAtTheFirstNulAndNeverTakesTheLastCharacter) {
  using namespace std::string_literals;
  const struct {
    std::string buffer, text;
  } cases[] = {
      {"ab", "a"},  {"/tmp/x\0\0\0\0"s, "/tmp/x"}, {"abc\0"s, "abc"}, {"a\0b\0"s, "a"},
      {"\0abc"s, ""}, {"x", ""},                   {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(TrimAtNull(c.buffer), c.text) << c.buffer.size();
}

TEST(RemoveDoubleQuotes, RemovesEveryDoubleQuoteAndNothingElse) {
  const struct {
    std::string text, result;
  } cases[] = {
      {"\"Sheet 1\"", "Sheet 1"}, {"a\"\"b\"", "ab"}, {"'single' \xC3\xA9", "'single' \xC3\xA9"}, {"\"", ""}, {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(RemoveDoubleQuotes(c.text), c.result) << c.text;
}

TEST(SamePathText, IgnoresTheCaseOfAsciiLettersOnly) {
  EXPECT_TRUE(SamePathText("/Data/Book.XLS", "/data/book.xls"));
  EXPECT_TRUE(SamePathText("", ""));
  EXPECT_FALSE(SamePathText("/data/book.xls", "/data/book.xls "));
  EXPECT_FALSE(SamePathText("/data/book.xls", "/data/book.xlt"));
  EXPECT_FALSE(SamePathText("/data/a[", "/data/A{"));  // '[' and '{' differ by the case bit
  EXPECT_FALSE(SamePathText("/d/\xC3\xA9", "/d/\xC3\x89"));  // é and É are not folded
}

}  // namespace
}  // namespace tabulon
