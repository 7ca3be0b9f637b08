// Which event an install request becomes, and what stands in it.
#include "update/install_events.h"

#include "support/recording_events.h"
#include "support/test.h"

namespace zarn {
namespace {

TEST(InstallEvents, SayHowARequestEnded) {
  testing::RecordingEvents events;
  InstallRecord record, ran;
  record.path = "C:\\a.exe";
  record.caller = {"S-1-5-18", 7, "C:\\b.exe"};
  record.signerSubject = "CN=c", record.signerDigest = "d1", record.sha256 = "e2";
  ran = record;
  ran.product = "Zarn", ran.productVersion = "1.2";
  for (const std::uint32_t exitCode : {0U, 3010U, 1641U, 1603U, 259U, 30003U}) {
    ran.exitCode = exitCode, ran.status = judgeExitCode(exitCode).status;
    reportInstall(ran);
  }
  InstallRecord refused = record;
  refused.status = Status::SignerRefused;
  for (const Check check : {Check::Open, Check::Size, Check::Extension, Check::Copy, Check::Integrity})
    refused.note(check, Verdict::Passed);
  refused.note(Check::Identity, Verdict::Failed, "no list");
  reportInstall(refused);
  record.reason = "The service stops.";
  reportInstall(record);
  reportRefusal({}, "C:\\f.exe", "too many wait");
  std::string told;
  for (const std::string& event : events.take()) told += event + "\n";
  EXPECT_EQ(told, testing::readFile(ZARN_SOURCE "/tests/update/events.txt"));
}

}  // namespace
}  // namespace zarn
