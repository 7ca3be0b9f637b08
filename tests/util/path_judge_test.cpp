#include "util/path_judge.h"

#include "support/test.h"

namespace zarn::testing {
namespace {

using namespace std::literals;

TEST(PathJudge, KnowsEverySpelling) {
  std::string deep = "C:" + std::string(600, '\\');
  for (int i = 0; i < 300; ++i) deep += "\\x";
  const std::pair<PathKind, std::vector<std::string>> spellings[] = {
      {PathKind::LocalFolder,
       {R"(C:\)", R"(c:\Data)", "D:/Data/x", R"(C:\a\..\..\b\.)", R"(C:\\a\\b\)", R"(\\?\C:\Data)",
        "//?/z:/x", R"(C:\company\null\console\com\com10\lptx\auxiliary)", "C:\\Caf\xC3\xA9",
        R"(C:\.hidden\a b\x.y)"}},
      {PathKind::Share,
       {R"(\\host\share)", "//host/share/x", R"(\/host\share)", R"(\\host)", R"(\\\host\share)",
        R"(\\?\UNC\host\share)", R"(\\?\unc\host\share)", "//?/Unc/host/share", R"(\\host\share\pipe)",
        R"(\\host@SSL\DavWWWRoot)", R"(\\10.0.0.1\c$)"}},
      {PathKind::Device,
       {R"(\\.\pipe\x)", R"(\\.\C:\x)", "//./pipe/x", R"(\\.\nul)", R"(\??\C:\x)", "/\?\?/C:/x",
        R"(\??\UNC\h\s)", R"(\\?\pipe\x)", R"(\\?\GLOBALROOT\Device\Null)", R"(\\?\Volume{0}\x)"}},
      {PathKind::Device,
       {R"(\\?\C:)", R"(\\?\C:x)", R"(\\?\)", R"(\\?\UNC)", R"(\\host\pipe\x)", "//host/pipe/x",
        R"(\\host\PIPE\)", R"(\\host\\pipe\x)", R"(\\?\UNC\host\pipe\x)", R"(\\?\unc\host\Pipe)",
        R"(\\host\mailslot\x)", R"(\\\.\pipe\x)", "nul", "NUL", R"(con\x)"}},
      {PathKind::Device,
       {R"(C:\aux)", R"(C:\x\prn.txt\y)", R"(C:\nul .log)", R"(C:\nul.)", R"(C:\nul  )", R"(C:\com1)",
        R"(C:\x\LPT0)", "C:\\com\xC2\xB2", "C:\\lpt\xC2\xB9.x", R"(C:\conin$)", R"(C:\CONOUT$\x)",
        R"(C:\clock$)", "nul:", R"(C:\con:stream)", R"(\\?\C:\x\nul)", R"(\\host\share\nul)"}},
      {PathKind::Relative,
       {"", "C:", "C:x", R"(C:..\x)", "x", R"(.\x)", R"(..\..\x)", R"(\x)", "/x", "1:\\x"}},
      {PathKind::Malformed,
       {"C:\\a\0b"s, "C:\\a\nb", R"(C:\a:b)", R"(C:\a::$DATA)", R"(C:\a\x.)", R"(C:\a \x)", R"(C:\...\x)",
        R"(C:\*)", R"(C:\a?b)", R"(\\?\C:\a\..\b)", R"(\\?\C:\.)", R"(\\host\..\x)", R"(\\..\share)",
        R"(\\?\UNC\host\share\..)", "C:\\" + std::string(40'000, 'x'), deep}}};
  for (const auto& [kind, paths] : spellings)
    for (const auto& path : paths) EXPECT_EQ(describe(judgePath(path)), describe(kind)) << path;
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
