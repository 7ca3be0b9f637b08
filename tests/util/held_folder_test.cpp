#include "util/held_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "support/recording_log.h"
#include "support/temp_directory.h"

namespace zarn::testing {
namespace {

namespace fs = boost::filesystem;
using namespace FileUtils;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class HeldFolderTest : public ::testing::Test {
 protected:
  [[nodiscard]] HeldFolder hold() const {
    return HeldFolder::hold(folder_, Links::Refuse, OwnPlaces::Refuse).value();
  }
  static Result<HeldFolder> follow(const std::string& path, OwnPlaces ownPlaces = OwnPlaces::Refuse) {
    return HeldFolder::hold(path, Links::Follow, ownPlaces);
  }
  [[nodiscard]] std::set<std::string> names() const {
    std::set<std::string> found;
    EXPECT_TRUE(hold().list([&](const FolderEntry& entry) { found.insert(toUtf8(entry.name)); }));
    return found;
  }
  [[nodiscard]] std::string in(const std::string& name) const { return join(folder_, name); }
  void SetUp() override { ASSERT_TRUE(createDirectories(folder_)); }

  RecordingLog log_;
  TempDirectory dir_;
  const std::string folder_ = dir_ / "Logs";
};

TEST_F(HeldFolderTest, OpensMovesAndRemovesByName) {
  const HeldFolder held = hold();
  for (const auto& [mode, text, content] : {std::tuple{"a+b", "one", "one"},
                                            {"ab", "two", "onetwo"},
                                            {"r+b", "ONE", "ONEtwo"},
                                            {"wb", "new", "new"}}) {
    EXPECT_GE(std::fputs(text, held.open("a", mode).value().get()), 0);
    EXPECT_EQ(readFile(in("a")), content);
  }
  writeFile(in("b"), "replaced");
  EXPECT_TRUE(held.rename("a", "b"));
  EXPECT_EQ(readFile(in("b")), "new");
  EXPECT_FALSE(held.exists("a"));
  EXPECT_TRUE(held.create("b").error().isAlreadyThere());
  EXPECT_TRUE(held.folder("sub", Existing::OpenOrCreate)->folder("below", Existing::OpenOrCreate));
  EXPECT_THAT(names(), ElementsAre("b", "sub"));
  EXPECT_TRUE(held.remove("b") && held.remove("b"));  // missing is removed
  EXPECT_TRUE(log_.texts().empty());
  EXPECT_FALSE(held.remove("sub"));  // holds something
  EXPECT_FALSE(held.open("none", "a", Existing::Only));
  EXPECT_FALSE(held.rename("none", "b"));
  EXPECT_THAT(log_.texts(),
              ElementsAre(HasSubstr("Couldn't delete the file " + held.pathOf("sub") + ": "),
                          HasSubstr("safe_fopen: CreateFileW for '" + held.pathOf("none") + "' failed: 2"),
                          HasSubstr("Couldn't copy file " + held.pathOf("none") + " to ")));
  EXPECT_THAT(names(), ElementsAre("sub"));
}

TEST_F(HeldFolderTest, LeadsNowhereElse) {
  writeFile(dir_ / "victim", "precious");
  fs::create_hard_link(toPath(dir_ / "victim"), toPath(in("hard")));
  const HeldFolder held = hold();
  for (const std::string name : {"hard", "..\\victim", "../victim", "..", ".", "", "file:stream"}) {
    EXPECT_FALSE(held.open(name, "w")) << name;
    EXPECT_FALSE(held.folder(name, Existing::OpenOrCreate)) << name;
  }
  EXPECT_FALSE(held.remove("../victim"));
#ifndef _WIN32  // Wine pretends to make symbolic links
  fs::create_directory_symlink(folder_, dir_ / "link");
  EXPECT_FALSE(HeldFolder::hold(dir_ / "link", Links::Refuse, OwnPlaces::Refuse));
  EXPECT_TRUE(follow(dir_ / "link"));
  fs::create_directory_symlink(dir_.path(), in("sub"));
  EXPECT_FALSE(held.folder("sub", Existing::OpenOrCreate));
  // Whatever takes the name of the held folder, what is held stays what it was.
  fs::rename(folder_, dir_ / "moved");
  fs::create_directory(dir_ / "bait");
  fs::create_directory_symlink(dir_ / "bait", folder_);
  EXPECT_TRUE(held.open("fresh", "w"));
  EXPECT_TRUE(fs::is_empty(dir_ / "bait"));
  EXPECT_TRUE(exists(join(dir_ / "moved", "fresh")));
#endif
  EXPECT_EQ(readFile(dir_ / "victim"), "precious");
  writeFile(dir_ / "file", "");
  for (const std::string& path : {dir_ / "file", dir_ / "missing", std::string(R"(\\.\NUL)")}) {
    EXPECT_FALSE(follow(path)) << path;
  }
}

TEST_F(HeldFolderTest, RemovesWhateverStandsInTheWay) {
  const std::string name = dir_ / "ZarnMediaServerUpdate.exe";
  writeFile(dir_ / "kept", "kept");
  const std::string deep = join(name, R"(Zarn Media Server/Logs/Zarn Update Service)");
  for (const std::string kind : {"nothing", "file", "read-only", "link", "folder"}) {
    if (kind == "file" || kind == "read-only") writeFile(name, "x");
    if (kind == "read-only") fs::permissions(toPath(name), fs::owner_read);
    if (kind == "link") fs::create_hard_link(toPath(dir_ / "kept"), toPath(name));
    if (kind == "folder") {
      ASSERT_TRUE(createDirectories(deep));
      writeFile(join(deep, "a log"), "x");
#ifdef _WIN32
      std::ofstream(toPath(deep) / L"\xD800 no UTF-16").put('x');
#else
      fs::create_directory_symlink(folder_, deep + "/link");
      writeFile(in("kept"), "kept");
#endif
    }
    EXPECT_TRUE(removeWhatever(name) && !exists(name)) << kind;
  }
  EXPECT_EQ(readFile(dir_ / "kept"), "kept");
#ifndef _WIN32
  EXPECT_EQ(readFile(in("kept")), "kept") << "removed through a link";
#endif
  EXPECT_TRUE(removeWhatever("") && removeWhatever(join(dir_ / "no folder", "x")));
  EXPECT_TRUE(log_.texts().empty());
}

#ifdef _WIN32
TEST_F(HeldFolderTest, StaysWhereItIsAndIsNoPlaceOfOurOwn) {
  boost::system::error_code error;
  {
    const HeldFolder held = hold();
    EXPECT_FALSE(fs::remove(toPath(folder_), error));
    fs::rename(toPath(folder_), toPath(dir_ / "elsewhere"), error);
    EXPECT_TRUE(error);
  }
  fs::rename(toPath(folder_), toPath(dir_ / "elsewhere"), error);
  EXPECT_FALSE(error);
  const std::string temp = toUtf8(fs::temp_directory_path());
  EXPECT_FALSE(follow(temp));
  EXPECT_TRUE(follow(temp, OwnPlaces::Allow));
  EXPECT_TRUE(follow(R"(C:\)")->exists("windows"));
  EXPECT_EQ(follow(R"(C:\)")->pathOf("x"), R"(\\?\C:\x)");
}
#endif

}  // namespace
}  // namespace zarn::testing
