#include "util/path_judge.h"

#include "support/test.h"

namespace zarn::testing {
namespace {

TEST(PathJudge, KnowsEverySpelling) {
  std::string deep = "C:" + std::string(600, '\\');
  for (int i = 0; i < 300; ++i) deep += "\\x";
  for (const Lines& row : tableIn("util/paths.txt")) EXPECT_EQ(describe(judgePath(row[1])), row[0]) << row[1];
  for (const auto& name : {"C:\\a\0b"s, "C:\\a\nb"s, "C:\\" + std::string(40'000, 'x'), deep})
    EXPECT_EQ(judgePath(name), PathKind::Malformed) << name;
  EXPECT_EQ(judgePath(R"(C:\nul  )"), PathKind::Device);
  EXPECT_EQ(judgePath(""), PathKind::Relative);
}

TEST(PathJudge, ResolvesDotsAndComparesByComponents) {
  EXPECT_EQ(resolveDots(R"(c:/a\\.\b/..\c\)"), R"(\\?\c:\a\c)");
  EXPECT_EQ(resolveDots(R"(\\?\C:\..\..)"), R"(\\?\C:\)");
  for (const char* inside : {R"(\\?\c:\temp\OWN)", R"(\\?\C:\Temp\Own\x)"})
    EXPECT_TRUE(liesIn(inside, {"", R"(\\?\C:\Temp\Own)"})) << inside;
  for (const char* outside : {R"(\\?\C:\Temp)", R"(\\?\C:\Temp\Own2)", R"(\\?\D:\Temp\Own)", ""})
    EXPECT_FALSE(liesIn(outside, {"", R"(\\?\C:\Temp\Own)"})) << outside;
}

TEST(PathJudge, LetsSharesInWhereTheMachineSaysSo) {
  for (const auto& [text, allowed] : {std::pair{"1", true}, {"0", false}, {"yes", false}, {"", false}}) {
    setEnvironment("ZARN_MEDIA_SERVER_ALLOW_SHARES", text);
    EXPECT_EQ(isUsable(PathKind::Share), allowed) << text;
    EXPECT_FALSE(isUsable(PathKind::Device) || isUsable(PathKind::OwnPlace));
  }
}

#ifdef _WIN32
TEST(PathJudge, KnowsPlacesOfOurOwn) {
  const TempDirectory dir;
  const std::string temp = toUtf8(fs::temp_directory_path());
  ASSERT_TRUE(FileUtils::createDirectories(dir / "Zarn Media Server"));
  const std::pair<PathKind, std::vector<std::string>> places[] = {
      {PathKind::LocalFolder, {dir.path(), dir / "missing", toUtf8(toPath(temp).parent_path())}},
      {PathKind::OwnPlace,
       {temp, temp + R"(\ZarnMediaServerUpdate.exe)", temp + R"(\x\..\a\b)", R"(\\?\)" + temp,
        FileUtils::join(FileUtils::resourcesDirectory(), ".."),
        dir / R"(missing\..\..\..\..\..\..\..\ProgramData\zarn update SERVICE\x)"}},
      {PathKind::Unreachable, {R"(Q:\no such drive)"}},
      {PathKind::Device, {R"(\\.\pipe\x)"}}};
  for (const auto& [kind, paths] : places)
    for (const auto& path : paths)
      EXPECT_EQ(describe(judgeAppDataPath(path, ownFolders())), describe(kind)) << path;
  EXPECT_EQ(judgeAppDataPath(dir.path(), {R"(\\?\)" + (dir / "Zarn Media Server")}), PathKind::OwnPlace);
}
#endif

}  // namespace
}  // namespace zarn::testing
