#include "service/win32_service.h"

#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "service/service_control.h"
#include "support/recording_log.h"

namespace zarn {
namespace {

static_assert(!std::has_virtual_destructor_v<Win32Service>);

constexpr DWORD kFailure = ERROR_INVALID_DATA;

/// A control manager whose every call stands in the log, and fails when told to.
class RecordingServiceControl final : public ServiceControl {
 public:
  RecordingServiceControl() { ServiceControl::use(this); }
  ~RecordingServiceControl() {
    ServiceControl::use(nullptr);
    Win32ServiceRegistration::forget();
  }

  bool startDispatcher(const SERVICE_TABLE_ENTRYW* services) override {
    EXPECT_STREQ(services[0].lpServiceName, L"");
    EXPECT_EQ(services[1].lpServiceProc, nullptr);
    if (fails("dispatch")) return false;
    std::thread service(services[0].lpServiceProc, 0, nullptr);
    duringRun();
    service.join();
    return true;
  }
  SERVICE_STATUS_HANDLE registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX given) override {
    registeredName = name;
    handler = given;
    return fails("register") ? nullptr : reinterpret_cast<SERVICE_STATUS_HANDLE>(this);
  }
  bool setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) override {
    EXPECT_EQ(handle, reinterpret_cast<SERVICE_STATUS_HANDLE>(this));
    EXPECT_EQ(status.dwServiceType, 0x10U);
    EXPECT_EQ(status.dwServiceSpecificExitCode, 0U);
    logLine(LogLevel::Debug, "report %d controls %d exit %d point %d hint %d", status.dwCurrentState,
            status.dwControlsAccepted, status.dwWin32ExitCode, status.dwCheckPoint, status.dwWaitHint);
    return !fails("report " + std::to_string(status.dwCurrentState));
  }

  std::string failing;
  std::wstring registeredName;
  LPHANDLER_FUNCTION_EX handler = nullptr;
  std::function<void()> duringRun = [] {};

 private:
  bool fails(const std::string& call) const {
    SetLastError(kFailure);
    return call == failing;
  }
};

class ScriptedService final : public Win32Service {
 public:
  std::uint32_t initialize() override { return onInitialize(); }
  std::uint32_t run() override { return onRun(); }
  std::uint32_t stop() override { return onStop(); }

  std::function<std::uint32_t()> onInitialize = [] { return 0U; };
  std::function<std::uint32_t()> onRun = [] { return 0U; };
  std::function<std::uint32_t()> onStop = [] { return 0U; };
};

/// The log as one text, a line break after each line, with short names for what comes often.
std::string transcript(const testing::RecordingLog& log) {
  std::string text;
  for (const auto& line : log.lines()) text += line.text + "\n";
  const std::string lastError = "    Win32 Error: 13 " + systemErrorText(kFailure);
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"Win32Service::serviceMain: ", "M "},
                                 {"Win32Service::serviceCtrlHandler: ", "C "},
                                 {"Win32Service::sendService", "S "},
                                 {lastError, "(13)"}}) {
    boost::algorithm::replace_all(text, from, to);
  }
  return text;
}

const std::string kStarting =
    "M RegisterServiceCtrlHandlerEx\nS StartPending - SERVICE_START_PENDING\n"
    "report 2 controls 0 exit 0 point 1 hint 1000\n";
const std::string kInitialized = "M Call initialize()\nM Finished initialize()\n";
const std::string kRunning = "S Running - SERVICE_RUNNING\nreport 4 controls 1 exit 0 point 0 hint 0\n";
const std::string kStopped = "S Stopped - SERVICE_STOPPED\nreport 1 controls 0 exit 0 point 0 hint 0\n";
const std::string kEnded = "M Service stopped with exitcode 0\n";
const std::string kGaveUp = "Exiting Win32Service::serviceMain due to initialization failure.";

class Win32ServiceTest : public ::testing::Test {
 protected:
  testing::RecordingLog log_;
  RecordingServiceControl control_;
  ScriptedService service_;
};

TEST_F(Win32ServiceTest, LivesFromStartToStopAndOnlyOnceAProcess) {
  std::promise<void> running;
  std::promise<void> stopped;
  service_.onRun = [&] {
    running.set_value();
    stopped.get_future().wait();
    return 7U;
  };
  service_.onStop = [here = std::this_thread::get_id()] {
    EXPECT_EQ(std::this_thread::get_id(), here);
    return 5U;
  };
  control_.duringRun = [&] {
    running.get_future().wait();
    for (const auto control : {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_STOP}) {
      EXPECT_EQ(control_.handler(static_cast<DWORD>(control), 0, nullptr, nullptr), 0U);
    }
    stopped.set_value();
  };

  EXPECT_EQ(service_.runAsService("Zarn\xc3\xa4"), 0U);
  EXPECT_EQ(control_.registeredName, L"Zarn\u00e4");
  EXPECT_EQ(transcript(log_),
            kStarting + kInitialized + kRunning +
                "M Call run()\nC Received SERVICE_CONTROL_INTERROGATE\n"
                "C Received  5 (Not Implemented)\nC Received SERVICE_CONTROL_STOP\n"
                "S StopPending - SERVICE_STOP_PENDING\nreport 3 controls 0 exit 0 point 1 hint 0\n"
                "C Call stop()\nC stop() error, 5, " +
                systemErrorPhrase(5) +
                "\nC Finished stop()\nM Finished run()\nS Stopped - SERVICE_STOPPED\n"
                "report 1 controls 0 exit 7 point 0 hint 0\nM Service stopped with exitcode 7\n");
  log_.clear();
  try {
    ScriptedService second;
    second.runAsService("Second");
    ADD_FAILURE() << "a second service ran";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "Only one Win32Service may be instantiated in a process.");
  }
  EXPECT_EQ(transcript(log_), "");
}

TEST_F(Win32ServiceTest, EndsEachFailedPathWithItsOwnLines) {
  using Step = std::function<std::uint32_t()>;
  const Step works = [] { return 0U; };
  const Step refuses = [] { return 5U; };
  const Step fails = []() -> std::uint32_t { throw std::runtime_error("gone"); };
  const std::string caught = "M Caught std::exception gone, type: std::runtime_error\n";
  struct Case {
    const char* failingCall;
    Step initialize;
    Step run;
    std::string expected;
  };
  const std::string noStatus = "() - SetServiceStatus() failed\n(13)\n";
  for (const Case& each : {
           Case{"register", works, works,
                "M RegisterServiceCtrlHandlerEx\n"
                "M RegisterServiceCtrlHandlerExW(), RegisterServiceCtrlHandlerExW() failed.\n(13)\n"},
           {"report 2", works, works, kStarting + "S StartPending" + noStatus},
           {"", refuses, works,
            kStarting + "M Call initialize()\nM initialize() failure: 5, " + systemErrorPhrase(5) +
                "\nM Finished initialize()\n" + kGaveUp + "\n"},
           {"", fails, works, kStarting + "M Call initialize()\n" + caught + kGaveUp + "\n"},
           {"report 4", works, works,
            kStarting + kInitialized + kRunning + "S Running" + noStatus +
                "M Failed entering Running state, aborting\n"},
           {"", works, fails,
            kStarting + kInitialized + kRunning + "M Call run()\n" + caught + kStopped + kEnded},
           {"report 1", works, works,
            kStarting + kInitialized + kRunning + "M Call run()\nM Finished run()\n" + kStopped +
                "S Stopped" + noStatus + kEnded},
       }) {
    ScriptedService service;
    service.onInitialize = each.initialize;
    service.onRun = each.run;
    control_.failing = each.failingCall;
    log_.clear();
    service.serviceMain();
    EXPECT_EQ(transcript(log_), each.expected) << each.failingCall;
    for (const auto& line : log_.lines()) {
      const bool isError = line.text.find("Caught") != std::string::npos || line.text == kGaveUp ||
                           line.text.find("initialize() failure") != std::string::npos;
      EXPECT_EQ(line.level, isError ? LogLevel::Error : LogLevel::Debug) << line.text;
    }
  }
}

TEST_F(Win32ServiceTest, StopsThoughTheReportFails) {
  service_.onRun = [this] { return service_.serviceCtrlHandler(SERVICE_CONTROL_STOP); };
  control_.failing = "report 3";
  service_.serviceMain();
  EXPECT_NE(transcript(log_).find(
                "S StopPending() - SetServiceStatus() failed\n(13)\nC Call stop()\nC Finished stop()"),
            std::string::npos);
}

TEST_F(Win32ServiceTest, AnswersControlsBeforeItRuns) {
  EXPECT_EQ(service_.serviceCtrlHandler(SERVICE_CONTROL_STOP), 120U);
  EXPECT_EQ(service_.serviceCtrlHandler(SERVICE_CONTROL_INTERROGATE), 0U);
  EXPECT_EQ(transcript(log_),
            "C Received SERVICE_CONTROL_STOP\n"
            "C Service not running (!SERVICE_RUNNING), ignoring SERVICE_CONTROL_STOP\n"
            "C Received  1 (Not Implemented)\nC Received SERVICE_CONTROL_INTERROGATE\n");
}

TEST_F(Win32ServiceTest, ReportsADispatcherThatRefuses) {
  control_.failing = "dispatch";
  EXPECT_EQ(service_.runAsService("Zarn"), kFailure);
  EXPECT_EQ(log_.lines().front(),
            (testing::LoggedLine{LogLevel::Error,
                                 "Win32Service::runAsService() - StartServiceCtrlDispatcher() failed"}));
}

}  // namespace
}  // namespace zarn
