// Which event an install request becomes, and what stands in it.
#include "update/install_events.h"

#include <gmock/gmock.h>

#include "support/recording_events.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;

TEST(InstallEvents, SayHowARequestEnded) {
  testing::RecordingEvents events;
  InstallRecord record, ran;
  record.path = "C:\\a.exe";
  record.caller = {"S-1-5-18", 7, "C:\\b.exe"};
  record.signerSubject = "CN=c", record.signerDigest = "d1", record.sha256 = "e2";
  const std::string asked = "|C:\\a.exe|S-1-5-18|C:\\b.exe|7|CN=c|d1|e2|";
  const auto eventOf = [&](const InstallRecord& ended) {
    reportInstall(ended);
    return events.take();
  };
  ran = record;
  ran.product = "Zarn", ran.productVersion = "1.2";
  for (const auto& [exitCode, event] : {std::pair{0U, "1000" + asked + "0|0|Zarn|1.2"},
                                        {3010U, "1000" + asked + "30000|3010|Zarn|1.2"},
                                        {1641U, "1000" + asked + "30001|1641|Zarn|1.2"},
                                        {1603U, "1001" + asked + "30002|1603|Zarn|1.2"},
                                        {30003U, "1001" + asked + "30003|30003|Zarn|1.2"}}) {
    ran.exitCode = exitCode, ran.status = judgeExitCode(exitCode).status;
    EXPECT_THAT(eventOf(ran), ElementsAre(event));
  }
  InstallRecord refused = record;
  refused.status = Status::SignerRefused;
  for (const Check check : {Check::Open, Check::Size, Check::Extension, Check::Copy, Check::Integrity})
    refused.note(check, Verdict::Passed);
  refused.note(Check::Identity, Verdict::Failed, "no list");
  EXPECT_THAT(eventOf(refused), ElementsAre("1002" + asked + "30005||identity|failed|no list"));
  record.reason = "The service stops.";
  EXPECT_THAT(eventOf(record), ElementsAre("1002" + asked + "30002|||not reached|The service stops."));
  reportRefusal({}, "C:\\f.exe", "too many wait");
  EXPECT_THAT(events.take(), ElementsAre("1002|C:\\f.exe|||||||30002|||not reached|too many wait"));
}

}  // namespace
}  // namespace zarn
