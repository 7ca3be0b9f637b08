#include "update/install_record.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace zarn {
namespace {

constexpr char kLine[] =
    R"({"time":"2026-11-21T10:15:00.007Z","caller":{"sid":"S-1-5-21-7","processId":42,"image":"C:\\a.exe"},)"
    R"("path":"C:\\a \"b\"\n)"
    "\xEF\xBF\xBD"
    R"(.exe","size":5000000000,"sha256":"ab","signerDigest":"cd","signerSubject":"CN=Zarn","checks":[)"
    R"({"name":"open","verdict":"passed","detail":""},{"name":"size","verdict":"not reached","detail":""},)"
    R"({"name":"extension","verdict":"not reached","detail":""},)"
    R"({"name":"copy","verdict":"failed","detail":"112, Full."},)"
    R"({"name":"integrity","verdict":"not reached","detail":""},)"
    R"({"name":"identity","verdict":"refused","detail":"5, Access denied."},)"
    R"({"name":"policy","verdict":"not reached","detail":""}],"reason":"Too many wait.",)"
    R"("status":30005,"exitCode":4294967295,"durationMs":12,"product":"P","productVersion":"5.1"})"
    "\n";

TEST(InstallRecord, IsOneLineAndReadBackFromIt) {
  InstallRecord record;
  record.time = isoTime(std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'256'100'007)));
  record.caller = {"S-1-5-21-7", 42, "C:\\a.exe"};
  record.path = "C:\\a \"b\"\n\xff.exe";
  record.size = 5'000'000'000;
  record.sha256 = "ab";
  record.signerDigest = "cd";
  record.signerSubject = "CN=Zarn";
  EXPECT_TRUE(record.note(Check::Open, Verdict::Passed));
  EXPECT_FALSE(record.note(Check::Copy, Verdict::Failed, "112, Full."));
  EXPECT_FALSE(record.note(Check::Identity, Verdict::Refused, "5, Access denied."));
  record.reason = "Too many wait.";
  record.status = Status::SignerRefused;
  record.exitCode = 0xffffffff;
  record.durationMilliseconds = 12;
  record.product = "P";
  record.productVersion = "5.1";
  EXPECT_EQ(recordLine(record), kLine);
  EXPECT_EQ(recordLine(parseRecord(kLine).value()), kLine);
}

TEST(InstallRecord, CutsWhatOthersWroteAndLeavesOutWhatIsNotKnown) {
  const std::string endless(5000, 'x');
  InstallRecord record;
  record.caller.image = record.path = record.signerSubject = record.product = record.productVersion = endless;
  record.note(Check::Policy, Verdict::Refused, endless);
  const auto object = nlohmann::json::parse(recordLine(record));
  const std::string cut = std::string(1024, 'x') + "... (5000 characters)";
  EXPECT_EQ(object["caller"], nlohmann::json({{"sid", nullptr}, {"processId", nullptr}, {"image", cut}}));
  EXPECT_EQ(object["checks"][6]["detail"], cut);
  for (const char* key : {"path", "signerSubject", "product", "productVersion"})
    EXPECT_EQ(object[key], cut) << key;
  for (const char* key : {"size", "reason", "exitCode", "durationMs"}) EXPECT_EQ(object[key], nullptr) << key;
}

TEST(InstallRecord, IsReadFromLinesOfAnyOrigin) {
  const std::string bomb(200'000, '[');
  for (const std::string& line :
       {std::string(), std::string("[1]"), std::string("{}"), bomb, "{\"time\":" + bomb, std::string("\"x\""),
        std::string(R"({"status":1})"), std::string(R"({"time":"t","status":"0"})"),
        std::string(kLine, sizeof(kLine) - 3)}) {
    EXPECT_FALSE(parseRecord(line)) << line.substr(0, 40);
  }
  const auto odd =
      parseRecord(R"({"time":"t","status":-1,"caller":7,"path":[],"size":-1,"exitCode":-1,)"
                  R"("checks":[3,{"name":"later","verdict":1}],"product":null,"later":{"x":1}})");
  ASSERT_TRUE(odd);
  EXPECT_EQ(recordLine(*odd),
            R"({"time":"t","caller":{"sid":null,"processId":null,"image":null},"path":"",)"
            R"("size":18446744073709551615,"sha256":"","signerDigest":"","signerSubject":"",)"
            R"("checks":[{"name":"later","verdict":"","detail":""}],"reason":null,"status":-1,)"
            R"("exitCode":4294967295,"durationMs":null,"product":"","productVersion":""})"
            "\n");
}

}  // namespace
}  // namespace zarn
