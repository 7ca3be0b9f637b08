#include "service/win32_service.h"
#include "os/error_text.h"

#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

constexpr DWORD kFailure = ERROR_INVALID_DATA;

/// A control manager whose every call stands in the log, and fails when told to.
class RecordingServiceControl final : public ServiceControl {
 public:
  RecordingServiceControl() { ServiceControl::use(this); }
  ~RecordingServiceControl() {
    ServiceControl::use(nullptr);
    Win32Service::forgetRegistered();
  }

  Result<void> startDispatcher(const SERVICE_TABLE_ENTRYW* services) override {
    EXPECT_STREQ(services[0].lpServiceName, L"");
    EXPECT_EQ(services[1].lpServiceProc, nullptr);
    serviceThread_ = std::jthread([this, serviceMain = services[0].lpServiceProc] {
      serviceMain(0, nullptr);
      letDispatcherReturn();  // the real one would go on waiting unless the service had stopped
    });
    over_.get_future().wait();
    return {};
  }
  Result<SERVICE_STATUS_HANDLE> registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX given) override {
    registeredName = name;
    handler = given;
    if (failing == "register") return failure(kFailure);
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(this);
  }
  Result<void> setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) override {
    EXPECT_EQ(handle, reinterpret_cast<SERVICE_STATUS_HANDLE>(this));
    EXPECT_EQ(status.dwServiceType, 0x10U);
    logLine(LogLevel::Debug, "report %d controls %d exit %d point %d hint %d", status.dwCurrentState,
            status.dwControlsAccepted, status.dwWin32ExitCode, status.dwCheckPoint, status.dwWaitHint);
    if (status.dwCurrentState == SERVICE_STOPPED) {
      letDispatcherReturn();  // at once, while the service thread goes on
      Sleep(50);
    }
    if (failing == "report " + std::to_string(status.dwCurrentState)) return failure(kFailure);
    return {};
  }

  std::string failing;
  std::wstring registeredName;
  LPHANDLER_FUNCTION_EX handler = nullptr;

 private:
  void letDispatcherReturn() {
    std::call_once(returned_, [this] { over_.set_value(); });
  }

  std::promise<void> over_;
  std::once_flag returned_;
  std::jthread serviceThread_;
};

using Step = std::function<std::uint32_t()>;
const Step kWorks = [] { return 0U; };
const Step kRefuses = [] { return 5U; };
const Step kThrows = []() -> std::uint32_t { throw std::runtime_error("gone"); };

class ScriptedService final : public Win32Service {
 public:
  std::uint32_t initialize() override { return onInitialize(); }
  std::uint32_t run() override { return onRun(); }
  std::uint32_t stop() override { return onStop(); }

  Step onInitialize = kWorks;
  Step onRun = kWorks;
  Step onStop = kRefuses;
};

/// The log as one text, a line break after each line and "!" before errors, with short names
/// for what comes often.
std::string transcript(const RecordingLog& log) {
  std::string text;
  for (const auto& line : log.lines()) text += (line.level == LogLevel::Error ? "!" : "") + line.text + "\n";
  const std::string lastError = "    Win32 Error: 13 " + systemErrorText(kFailure);
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"Win32Service::serviceMain: ", "M "},
                                 {"Win32Service::serviceCtrlHandler: ", "C "},
                                 {"Win32Service::sendService", "S "},
                                 {lastError, "(13)"}}) {
    boost::algorithm::replace_all(text, from, to);
  }
  return text;
}

const std::string kPending =
    "M RegisterServiceCtrlHandlerEx\nS StartPending - SERVICE_START_PENDING\n"
    "report 2 controls 0 exit 0 point 1 hint 1000\n";
const std::string kStarting = kPending + "M Call initialize()\n";
const std::string kRunning =
    kStarting +
    "M Finished initialize()\nS Running - SERVICE_RUNNING\nreport 4 controls 1 exit 0 point 0 hint 0\n";
const std::string kGaveUp = "!Exiting Win32Service::serviceMain due to initialization failure.\n";

void logEnd(std::uint32_t code) {
  logLine(LogLevel::Debug, "ended with %d", code);
}

class Win32ServiceTest : public ::testing::Test {
 protected:
  RecordingLog log_;
  RecordingServiceControl control_;
  ScriptedService service_;
};

TEST_F(Win32ServiceTest, LivesFromStartToStopAndOnlyOnceAProcess) {
  service_.onRun = [&] {
    for (const auto control : {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_STOP}) {
      EXPECT_EQ(control_.handler(static_cast<DWORD>(control), 0, nullptr, nullptr), 0U);
    }
    return 7U;
  };
  service_.setUnfinishedRoutine(logEnd);
  EXPECT_EQ(service_.runAsService("Zarn\xc3\xa4"), 0U);
  EXPECT_EQ(control_.registeredName, L"Zarn\u00e4");
  EXPECT_EQ(transcript(log_),
            kRunning +
                "M Call run()\nC Received SERVICE_CONTROL_INTERROGATE\n"
                "C Received  5 (Not Implemented)\nC Received SERVICE_CONTROL_STOP\n"
                "S StopPending - SERVICE_STOP_PENDING\nreport 3 controls 0 exit 0 point 1 hint 0\n"
                "C Call stop()\nC stop() error, 5, " +
                systemErrorPhrase(5) +
                "\nC Finished stop()\nM Finished run()\nS Stopped - SERVICE_STOPPED\n"
                "report 1 controls 0 exit 7 point 0 hint 0\nM Service stopped with exitcode 7\n");
  ScriptedService second;
  EXPECT_THROW(second.runAsService("Second"), std::logic_error);
}

TEST_F(Win32ServiceTest, EndsEachFailedPathWithItsOwnLinesAndEndsWhatNobodyWasToldTheEndOf) {
  const std::string caught = "!M Caught std::exception gone, type: std::runtime_error\n";
  const std::string stopped = "S Stopped - SERVICE_STOPPED\nreport 1 controls 0 exit 0 point 0 hint 0\n";
  const struct {
    const char* failingCall;
    Step initialize, run;
    std::string expected;
  } cases[] = {
      {"register", kWorks, kWorks,
       "M RegisterServiceCtrlHandlerEx\n"
       "M RegisterServiceCtrlHandlerExW(), RegisterServiceCtrlHandlerExW() failed.\n(13)\nended with 1\n"},
      {"", kRefuses, kWorks,
       kStarting + "!M initialize() failure: 5, " + systemErrorPhrase(5) + "\nM Finished initialize()\n" +
           kGaveUp + "ended with 5\n"},
      {"", kThrows, kWorks, kStarting + caught + kGaveUp + "ended with 1\n"},
      {"report 2", kWorks, kWorks,
       kPending + "S StartPending() - SetServiceStatus() failed\n(13)\nended with 1\n"},
      {"report 4", kWorks, kWorks,
       kRunning + "S Running() - SetServiceStatus() failed\n(13)\n"
                  "M Failed entering Running state, aborting\nended with 1\n"},
      {"report 1", kWorks, kWorks,
       kRunning + "M Call run()\nM Finished run()\n" + stopped +
           "S Stopped() - SetServiceStatus() failed\n(13)\nM Service stopped with exitcode 0\nended with "
           "1\n"},
      {"", kWorks, kThrows,
       kRunning + "M Call run()\n" + caught + stopped + "M Service stopped with exitcode 0\n"},
  };
  for (const auto& [failingCall, initialize, run, expected] : cases) {
    ScriptedService service;
    service.onInitialize = initialize;
    service.onRun = run;
    service.setUnfinishedRoutine(logEnd);
    log_.clear();
    {
      RecordingServiceControl control;
      control.failing = failingCall;
      service.runAsService("Test");
    }
    EXPECT_EQ(transcript(log_), expected) << failingCall;
  }
}

TEST_F(Win32ServiceTest, StopsWhatRunsThoughTheReportFails) {
  EXPECT_EQ(service_.serviceCtrlHandler(SERVICE_CONTROL_STOP), 120U) << "it does not run yet";
  service_.onRun = [this] { return service_.serviceCtrlHandler(SERVICE_CONTROL_STOP); };
  control_.failing = "report 3";
  service_.serviceMain();
  EXPECT_TRUE(log_.contains("Win32Service::serviceCtrlHandler: Finished stop()"));
}

TEST_F(Win32ServiceTest, LetsNoExceptionOutOfAControl) {
  for (const auto& [thrown, line] :
       {std::pair<Step, std::string>{kThrows, "Caught std::exception gone, type: std::runtime_error"},
        {[]() -> std::uint32_t { throw 1; }, "Caught an exception of unknown type"}}) {
    RecordingServiceControl control;
    service_.onStop = thrown;
    service_.onRun = [&] {
      EXPECT_EQ(control.handler(SERVICE_CONTROL_STOP, 0, nullptr, nullptr), 0U);
      return 0U;
    };
    EXPECT_EQ(service_.runAsService("Test"), 0U);
    EXPECT_TRUE(log_.contains("Win32Service::serviceCtrlHandler: " + line)) << line;
  }
}

}  // namespace
}  // namespace zarn::testing
