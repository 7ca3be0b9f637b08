// Files and folders by path, and by a folder that is held.
#include "support/recording_events.h"
#include "support/test.h"
#include "util/held_folder.h"
#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/io_deadline.h"
#endif

namespace zarn::testing {
namespace {

using namespace FileUtils;

struct Files : ::testing::Test {
  Files() { createDirectories(folder_); }
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

  RecordingLog log_;
  TempDirectory dir_;
  const std::string folder_ = dir_ / "Logs";
  const std::string missing_ = dir_ / "missing";
};

TEST_F(Files, FailuresAreReported) {
  writeFile(dir_ / "plain", "x");
  EXPECT_FALSE(copyFile(missing_, dir_ / "copy") || FileUtils::move(missing_, dir_ / "moved"));
  EXPECT_FALSE(copyDirectoryRecursively(missing_, dir_ / "copy") || createDirectories(dir_ / "plain/below"));
  EXPECT_FALSE(deleteFile(dir_.path()));  // it holds something
  EXPECT_EQ(static_cast<std::int64_t>(fileSize(missing_)), -1);
  const std::string plain = "C:\\" + std::string(247, 'a');
  EXPECT_EQ(withLongPathPrefix(plain) + withLongPathPrefix(plain + "a"), plain + R"(\\?\)" + plain + "a");
  EXPECT_FALSE(safeOpen(missing_, "r+", true));     // needs an existing file
  EXPECT_TRUE(safeOpen(dir_ / "plain", "", true));  // an empty mode reads
  EXPECT_THAT(log_.texts().back(), StartsWith("safe_fopen: CreateFileW for '" + missing_ + "' failed: 2"));
}

std::string preferredPath;

TEST_F(Files, ApplicationDataDirectoryPrecedence) {
  setLocalAppDataPathReader([] { return preferredPath; });
  preferredPath = "";
  const std::string home = applicationDataDirectory(false), ours = dir_ / "Zarn Media Server";
  EXPECT_EQ(applicationDataDirectory(), join(home, "Zarn Media Server"));
  preferredPath = dir_.path();
  EXPECT_EQ(applicationDataDirectory(), ours);
  EXPECT_EQ(applicationDataDirectory(true, false), join(home, "Zarn Media Server"));
  EXPECT_TRUE(isDirectory(databasesDirectory()));
#ifdef _WIN32
  // What is refused changes nothing, not even when it is what was good before.
  const std::string temp = toUtf8(fs::temp_directory_path());
  for (const auto& [refused, because] :
       {std::pair{std::string(R"(\\nowhere\share)"), std::string("it is a share")},
        {R"(\\.\pipe\x)", "it is a device"},
        {temp, "it is a place of the service's own"},
        {"C:", "it is no full path"}}) {
    RecordingEvents events;
    preferredPath = refused;
    for (const auto& sentence :
         {"The application data path " + refused + " is not used: " + because + ".", std::string()}) {
      EXPECT_EQ(applicationDataDirectory(), ours);
      EXPECT_EQ(takeRefusalOfAppDataPath(), sentence);
    }
    EXPECT_EQ(events.take(), std::vector{"1011|" + refused + "|" + because.substr(6)});
  }
  preferredPath = dir_.path();
  setEnvironment("TMP", dir_.path());
  EXPECT_EQ(applicationDataDirectory(false), home);
  setEnvironment("TMP", temp);
#endif
  setApplicationDataOverride(dir_ / "override");
  EXPECT_EQ(logDirectory(), join(dir_ / "override", "Logs"));
  for (const auto& [below, isBelow] : {std::pair{"", true}, {"/x", true}, {"2", false}})
    EXPECT_EQ(isBelowOverride((dir_ / "override") + below), isBelow) << below;
  EXPECT_EQ(applicationDataDirectory(false), dir_.path());  // the override is a product directory
  setApplicationDataOverride("");
  setLocalAppDataPathReader(nullptr);
}

TEST_F(Files, AChosenListOfAuthoritiesCountsWhateverItIs) {
  const std::string chosen = join(resourcesDirectory(), "cacert-chosen.pem");
  const std::string shipped = join(resourcesDirectory(), "cacert.pem");
  fs::remove_all(toPath(resourcesDirectory()));
  EXPECT_EQ(certificateFile(), shipped);
  createDirectories(chosen);
  EXPECT_EQ(certificateFile(), chosen);
  fs::remove(toPath(chosen));
  EXPECT_EQ(certificateFile(), shipped);
#ifndef _WIN32
  fs::create_symlink(dir_ / "nowhere", toPath(chosen));
  EXPECT_EQ(certificateFile(), chosen);
  fs::remove(toPath(chosen));
#endif
  writeFile(chosen, "damaged");
  EXPECT_EQ(certificateFile(), chosen);
  fs::remove_all(toPath(resourcesDirectory()));
}

TEST_F(Files, AHeldFolderOpensMovesAndRemovesByName) {
  const HeldFolder held = hold();
  const std::tuple<const char*, const char*, const char*> writes[] = {
      {"a+b", "one", "one"}, {"ab", "two", "onetwo"}, {"r+b", "ONE", "ONEtwo"}, {"wb", "new", "new"}};
  for (const auto& [mode, text, content] : writes) {
    EXPECT_GE(std::fputs(text, held.open("a", mode).value().get()), 0);
    EXPECT_EQ(readFile(in("a")), content);
  }
  writeFile(in("b"), "replaced");
  EXPECT_TRUE(held.rename("a", "b"));
  EXPECT_EQ(readFile(in("b")), "new");
  EXPECT_TRUE(!held.exists("a") && held.create("b").error().isAlreadyThere());
  EXPECT_TRUE(held.folder("sub", Existing::OpenOrCreate)->folder("below", Existing::OpenOrCreate));
  EXPECT_THAT(names(), ElementsAre("b", "sub"));
  EXPECT_TRUE(held.remove("b") && held.remove("b"));  // missing is removed
  EXPECT_TRUE(isDirectory(folder_) && !isDirectory(missing_));
  EXPECT_TRUE(log_.texts().empty());
  EXPECT_FALSE(held.remove("sub"));  // holds something
  EXPECT_FALSE(held.open("none", "a", Existing::Only) || held.rename("none", "b"));
  EXPECT_THAT(log_.texts(),
              ElementsAre(StartsWith("Couldn't delete the file " + held.pathOf("sub") + ": "),
                          StartsWith("safe_fopen: CreateFileW for '" + held.pathOf("none") + "' failed: 2"),
                          StartsWith("Couldn't copy file " + held.pathOf("none") + " to ")));
  EXPECT_THAT(names(), ElementsAre("sub"));
}

TEST_F(Files, AHeldFolderLeadsNowhereElse) {
  writeFile(dir_ / "victim", "precious");
  fs::create_hard_link(toPath(dir_ / "victim"), toPath(in("hard")));
  const HeldFolder held = hold();
  for (const std::string name : {"hard", "..\\victim", "../victim", "..", ".", "", "file:stream"})
    EXPECT_FALSE(held.open(name, "w") || held.folder(name, Existing::OpenOrCreate)) << name;
  EXPECT_FALSE(held.remove("../victim"));
  EXPECT_FALSE(safeOpen(in("hard"), "w", true, Links::Refuse));
  EXPECT_TRUE(safeOpen(in("plain"), "w", true, Links::Refuse));
#ifndef _WIN32  // Wine pretends to make symbolic links
  fs::create_symlink(toPath(dir_ / "victim"), toPath(in("soft")));
  EXPECT_FALSE(safeOpen(in("soft"), "w", true, Links::Refuse));
  fs::create_directory_symlink(folder_, dir_ / "link");
  EXPECT_FALSE(HeldFolder::hold(dir_ / "link", Links::Refuse, OwnPlaces::Refuse));
  EXPECT_TRUE(follow(dir_ / "link"));
  fs::create_directory_symlink(dir_.path(), in("sub"));
  EXPECT_FALSE(held.folder("sub", Existing::OpenOrCreate));
  // Whatever takes the name of the held folder, what is held stays what it was.
  fs::rename(folder_, dir_ / "moved");
  fs::create_directory(dir_ / "bait");
  fs::create_directory_symlink(dir_ / "bait", folder_);
  EXPECT_TRUE(held.open("fresh", "w") && exists(dir_ / "moved/fresh") && fs::is_empty(dir_ / "bait"));
#endif
  EXPECT_EQ(readFile(dir_ / "victim"), "precious");
  for (const std::string& path : {dir_ / "victim", missing_, std::string(R"(\\.\NUL)")})
    EXPECT_FALSE(follow(path)) << path;
}

TEST_F(Files, WhateverStandsInTheWayIsRemoved) {
  const std::string name = dir_ / "ZarnMediaServerUpdate.exe";
  const std::string deep = join(name, R"(Zarn Media Server/Logs/Zarn Update Service)");
  writeFile(dir_ / "kept", "kept");
  writeFile(in("kept"), "kept");
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
#endif
    }
    EXPECT_TRUE(removeWhatever(name) && !exists(name)) << kind;
  }
  EXPECT_EQ(readFile(dir_ / "kept") + readFile(in("kept")), "keptkept") << "removed through a link";
  EXPECT_TRUE(removeWhatever("") && removeWhatever(join(dir_ / "no folder", "x")));
  EXPECT_TRUE(log_.texts().empty());
}

#ifdef _WIN32
TEST_F(Files, AHeldFolderStaysWhereItIsAndIsNoPlaceOfOurOwn) {
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
  EXPECT_TRUE(!follow(temp) && follow(temp, OwnPlaces::Allow));
  EXPECT_TRUE(follow(R"(C:\)")->exists("windows"));
  EXPECT_EQ(follow(R"(C:\)")->pathOf("x"), R"(\\?\C:\x)");
}

TEST_F(Files, AFileThatIsCreatedLastsOnlyWhenItIsSaidToBeComplete) {
  for (const bool isComplete : {false, true}) {
    auto file = hold().create("new");
    EXPECT_TRUE(file && (!isComplete || os::keepFile(**file)));
    file->reset();
    EXPECT_EQ(hold().exists("new"), isComplete);
  }
}
#else
// A FIFO that nobody opens stands for everything that blocks an open for ever.
TEST(IoDeadline, EndsWhatBlocksAndNothingAfterItIsDisarmed) {
  const TempDirectory dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto start = std::chrono::steady_clock::now();
  {
    const IoDeadline deadline(200ms);
    for (int again = 0; again < 2; ++again)
      EXPECT_TRUE(::open(fifo.c_str(), O_RDONLY | O_CLOEXEC) == -1 && errno == EINTR);
  }
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(took >= 200ms && took < 5s);
  EXPECT_EQ(::usleep(300'000), 0) << "nothing interrupts the thread any more";
}

TEST(IoDeadline, ProgressPutsItOff) {
  IoDeadline deadline(200ms);
  for (int step = 0; step < 6; ++step, deadline.renew()) EXPECT_EQ(::usleep(100'000), 0);
}
#endif

}  // namespace
}  // namespace zarn::testing
