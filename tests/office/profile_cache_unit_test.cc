// Where the prepared profiles live and how an office installation is told
// apart, without starting an office.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "office/uno/profile_cache.h"

namespace tabulon::office::uno {
namespace {

namespace fs = std::filesystem;

// Sets environment variables for one scope and puts the old values back.
class ScopedEnv {
 public:
  void Set(const char* name, const std::optional<std::string>& value) {
    if (!saved_.count(name)) {
      const char* old = getenv(name);
      saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
    }
    if (value) setenv(name, value->c_str(), 1); else unsetenv(name);
  }
  ~ScopedEnv() {
    for (const auto& [name, value] : saved_) {
      if (value) setenv(name.c_str(), value->c_str(), 1); else unsetenv(name.c_str());
    }
  }

 private:
  std::map<std::string, std::optional<std::string>> saved_;
};

TEST(ProfileCacheFolder, ComesFromTheEnvironmentInOrder) {
  const std::string cwd = fs::current_path().string();
  const struct {
    std::optional<std::string> cache, xdg, home;
    std::string folder;
  } cases[] = {
      {"/srv/cache", "/x", "/h", "/srv/cache"},
      {"off", "/x", "/h", ""},                       // turned off, whatever else is set
      {"rel/cache", std::nullopt, "/h", cwd + "/rel/cache"},
      {std::nullopt, "/x", "/h", "/x/tabulon"},
      {"", "/x", "/h", "/x/tabulon"},               // empty counts as unset
      {std::nullopt, "relative", "/h", "/h/.cache/tabulon"},  // a relative XDG value is ignored
      {std::nullopt, std::nullopt, "/h", "/h/.cache/tabulon"},
      {std::nullopt, std::nullopt, std::nullopt, ""},  // no home: no cache
      {std::nullopt, std::nullopt, "", ""},
  };
  for (const auto& c : cases) {
    ScopedEnv env;
    env.Set("TABULON_PROFILE_CACHE", c.cache);
    env.Set("XDG_CACHE_HOME", c.xdg);
    env.Set("HOME", c.home);
    EXPECT_EQ(ProfileCacheFolder(), c.folder)
        << c.cache.value_or("(unset)") << " " << c.xdg.value_or("(unset)") << " " << c.home.value_or("(unset)");
  }
}

class OfficeIdentityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/tabulon-identity-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    fs::create_directories(root_ / "program");
    fs::create_directories(root_ / "share" / "registry");
    Write(root_ / "program" / "soffice.bin", "binary");
    Write(root_ / "program" / "versionrc", "[Version]\n");
    WriteVersion("7.4", "7.4.7.2");
  }
  void TearDown() override { fs::remove_all(root_); }

  static void Write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
  void WriteVersion(const std::string& version, const std::string& about) {
    Write(root_ / "share" / "registry" / "main.xcd",
          "<oor:component-data oor:name=\"Setup\"><node oor:name=\"Product\">"
          "<prop oor:name=\"ooSetupVersion\">\n<value>" + version + "</value>\n</prop>"
          "<prop oor:name=\"ooSetupVersionAboutBox\">\n<value>" + about + "</value>\n</prop>"
          "<prop oor:name=\"ooSetupLastVersion\" oor:type=\"xs:string\" oor:nillable=\"true\"/>"
          "</node></oor:component-data>");
  }
  // Sets a file's modification time to a fixed second.
  static void Stamp(const fs::path& path, time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  fs::path root_;
};

TEST_F(OfficeIdentityTest, ReadsTheVersionAndChangesWithTheOfficesFiles) {
  const std::string program = (root_ / "program").string();
  const OfficeIdentity first = IdentifyOffice(program);
  EXPECT_EQ(first.program_dir, program);
  EXPECT_EQ(first.version, "7.4");
  EXPECT_EQ(first.about, "7.4.7.2");
  EXPECT_EQ(IdentifyOffice(program).key, first.key);  // stable while nothing changes

  // Each of these is an office installed again or updated in place.
  Stamp(root_ / "program" / "soffice.bin", 1000000000);
  const OfficeIdentity touched = IdentifyOffice(program);
  EXPECT_NE(touched.key, first.key);

  Write(root_ / "program" / "soffice.bin", "another binary");
  Stamp(root_ / "program" / "soffice.bin", 1000000000);
  const OfficeIdentity rebuilt = IdentifyOffice(program);
  EXPECT_NE(rebuilt.key, touched.key);

  WriteVersion("7.5", "7.5.1.1");
  Stamp(root_ / "share" / "registry" / "main.xcd", 1000000001);
  const OfficeIdentity upgraded = IdentifyOffice(program);
  EXPECT_EQ(upgraded.version, "7.5");
  EXPECT_EQ(upgraded.about, "7.5.1.1");
  EXPECT_NE(upgraded.key, rebuilt.key);
}

TEST_F(OfficeIdentityTest, ALinkToTheProgramFolderIsTheSameOffice) {
  fs::create_directory_symlink(root_ / "program", root_ / "link");
  const OfficeIdentity direct = IdentifyOffice((root_ / "program").string());
  const OfficeIdentity linked = IdentifyOffice((root_ / "link").string());
  EXPECT_EQ(linked.program_dir, direct.program_dir);
  EXPECT_EQ(linked.key, direct.key);
}

TEST_F(OfficeIdentityTest, AnInstallationWithoutItsConfigurationHasNoVersion) {
  fs::remove(root_ / "share" / "registry" / "main.xcd");
  const OfficeIdentity office = IdentifyOffice((root_ / "program").string());
  EXPECT_EQ(office.version, "");
  // Without a version the profile records none, so the office never takes a
  // made-up version for its own.
  EXPECT_EQ(ProfileSettings(office.version).find("ooSetupLastVersion"), std::string::npos);
  EXPECT_NE(ProfileSettings("7.4").find("<value>7.4</value>"), std::string::npos);
}

}  // namespace
}  // namespace tabulon::office::uno
