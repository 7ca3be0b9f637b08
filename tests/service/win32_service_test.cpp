// How the service lives with the control manager, and what its program asks of Windows.
#include "service/win32_service.h"

#include <boost/algorithm/string/replace.hpp>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "support/recording_events.h"
#include "support/test.h"

namespace zarn::testing {
namespace {

/// A control manager whose every call stands in the log, and fails when told to.
struct RecordingServiceControl final : ServiceControl {
  RecordingServiceControl() { ServiceControl::use(this); }
  ~RecordingServiceControl() { ServiceControl::use(nullptr), Win32Service::forgetRegistered(); }

  Result<void> startDispatcher(const SERVICE_TABLE_ENTRYW* services) override {
    EXPECT_STREQ(services[0].lpServiceName, L"");
    EXPECT_EQ(services[1].lpServiceProc, nullptr);
    serviceThread_ = std::jthread([this, serviceMain = services[0].lpServiceProc] {
      serviceMain(0, nullptr);
      // The real dispatcher would go on waiting unless the service had stopped.
      SetEvent(over_.get());
    });
    WaitForSingleObject(over_.get(), INFINITE);
    return {};
  }
  Result<SERVICE_STATUS_HANDLE> registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX given) override {
    registeredName = name, handler = given;
    if (failing == "register") return failure(ERROR_INVALID_DATA);
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(this);
  }
  Result<void> setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) override {
    EXPECT_EQ(handle, reinterpret_cast<SERVICE_STATUS_HANDLE>(this));
    EXPECT_EQ(status.dwServiceType, 0x10U);
    logLine(LogLevel::Debug, "report %d controls %d exit %d point %d hint %d", status.dwCurrentState,
            status.dwControlsAccepted, status.dwWin32ExitCode, status.dwCheckPoint, status.dwWaitHint);
    // The dispatcher returns at once, while the service thread goes on.
    if (status.dwCurrentState == SERVICE_STOPPED) SetEvent(over_.get()), Sleep(50);
    if (failing == "report " + std::to_string(status.dwCurrentState)) return failure(ERROR_INVALID_DATA);
    return {};
  }

  std::string failing;
  std::wstring registeredName;
  LPHANDLER_FUNCTION_EX handler = nullptr;
  const KernelHandle over_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  std::jthread serviceThread_;
};

using Step = std::function<std::uint32_t()>;
const Step kWorks = [] { return 0U; };
const Step kRefuses = [] { return 5U; };
const Step kThrows = []() -> std::uint32_t { throw std::runtime_error("gone"); };

struct ScriptedService final : Win32Service {
  std::uint32_t initialize() override { return onInitialize(); }
  std::uint32_t run() override { return onRun(); }
  std::uint32_t stop() override { return onStop(); }

  Step onInitialize = kWorks, onRun = kWorks, onStop = kRefuses;
};

/// The log as one text, a line break after each line and "!" before errors, with short names
/// for what comes often.
std::string transcript(const RecordingLog& log) {
  std::string text;
  for (const auto& line : log.lines()) text += (line.level == LogLevel::Error ? "!" : "") + line.text + "\n";
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"Win32Service::serviceMain: ", "M "},
                                 {"Win32Service::serviceCtrlHandler: ", "C "},
                                 {"Win32Service::sendService", "S "},
                                 {"    Win32 Error: 13 " + systemErrorText(ERROR_INVALID_DATA), "(13)"}})
    boost::algorithm::replace_all(text, from, to);
  return text;
}

const std::string kPending =
    "M RegisterServiceCtrlHandlerEx\nS StartPending - SERVICE_START_PENDING\n"
    "report 2 controls 0 exit 0 point 1 hint 1000\n";
const std::string kStarting = kPending + "M Call initialize()\n";
const std::string kRunning = kStarting +
                             "M Finished initialize()\nS Running - SERVICE_RUNNING\n"
                             "report 4 controls 1 exit 0 point 0 hint 0\n";

void logEnd(std::uint32_t code, std::string_view reason) {
  logLine(LogLevel::Debug, "ended with %d%s", code, reason);
}

struct Win32ServiceTest : ::testing::Test {
  RecordingLog log_;
  RecordingServiceControl control_;
  ScriptedService service_;
};

TEST_F(Win32ServiceTest, LivesFromStartToStopAndOnlyOnceAProcess) {
  service_.onRun = [&] {
    for (const DWORD control : std::initializer_list<DWORD>{SERVICE_CONTROL_INTERROGATE,
                                                            SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_STOP})
      EXPECT_EQ(control_.handler(control, 0, nullptr, nullptr), 0U);
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
  const std::string gaveUp = "!Exiting Win32Service::serviceMain due to initialization failure.\nended with ";
  const std::string stopped = "S Stopped - SERVICE_STOPPED\nreport 1 controls 0 exit 0 point 0 hint 0\n";
  const std::string ran = kRunning + "M Call run()\n", ended = "M Service stopped with exitcode 0\n";
  const std::string failed = "() - SetServiceStatus() failed\n(13)\n";
  const struct {
    const char* failingCall;
    Step initialize, run;
    std::string expected;
    std::vector<std::string> events{};
  } cases[] = {
      {"register", kWorks, kWorks,
       "M RegisterServiceCtrlHandlerEx\nM RegisterServiceCtrlHandlerExW(), "
       "RegisterServiceCtrlHandlerExW() failed.\n(13)\nended with 1\n"},
      {"", kRefuses, kWorks,
       kStarting + "!M initialize() failure: 5, " + systemErrorPhrase(5) + "\nM Finished initialize()\n" +
           gaveUp + "5\n"},
      {"", kThrows, kWorks, kStarting + caught + gaveUp + "1gone\n"},
      {"report 2", kWorks, kWorks, kPending + "S StartPending" + failed + "ended with 1\n"},
      {"report 4", kWorks, kWorks,
       kRunning + "S Running" + failed + "M Failed entering Running state, aborting\nended with 1\n"},
      {"report 1", kWorks, kWorks,
       ran + "M Finished run()\n" + stopped + "S Stopped" + failed + ended + "ended with 1\n"},
      {"", kWorks, kThrows, ran + caught + stopped + ended, {"1021|0|gone"}},
      {"",
       kWorks,
       kRefuses,
       ran + "M Finished run()\nS Stopped - SERVICE_STOPPED\nreport 1 controls 0 exit 5 point 0 hint 0\n" +
           "M Service stopped with exitcode 5\n",
       {"1021|5|" + describeSystemError(5)}}};
  for (const auto& [failingCall, initialize, run, expected, expectedEvents] : cases) {
    RecordingEvents events;
    ScriptedService service;
    service.onInitialize = initialize, service.onRun = run;
    service.setUnfinishedRoutine(logEnd);
    log_.clear();
    {
      RecordingServiceControl control;
      control.failing = failingCall;
      service.runAsService("Test");
    }
    EXPECT_EQ(transcript(log_), expected) << failingCall;
    EXPECT_EQ(events.take(), expectedEvents);
  }
}

TEST_F(Win32ServiceTest, StopsWhatRunsThoughTheReportFailsAndLetsNoExceptionOutOfAControl) {
  const Step throwsOther = []() -> std::uint32_t { throw 1; };
  for (const auto& [failingCall, stop, line] :
       {std::tuple{"report 3", kWorks, "Finished stop()"},
        {"", kThrows, "Caught std::exception gone, type: std::runtime_error"},
        {"", throwsOther, "Caught an exception of unknown type"}}) {
    RecordingServiceControl control;
    control.failing = failingCall;
    service_.onStop = stop;
    EXPECT_EQ(ScriptedService().serviceCtrlHandler(SERVICE_CONTROL_STOP), 120U) << "it does not run yet";
    service_.onRun = [&] { return control.handler(SERVICE_CONTROL_STOP, 0, nullptr, nullptr); };
    log_.clear();
    EXPECT_EQ(service_.runAsService("Test"), 0U);
    EXPECT_TRUE(log_.contains(std::string("Win32Service::serviceCtrlHandler: ") + line)) << line;
    EXPECT_TRUE(log_.contains("Win32Service::serviceMain: Service stopped with exitcode 0")) << line;
  }
}

/// What lies at `offset` of the program, mapped as the loader does, without running any of it.
template <typename T>
const T* mapped(DWORD offset) {
  static const HMODULE program = LoadLibraryExA(ZARN_PROGRAM, nullptr, DONT_RESOLVE_DLL_REFERENCES);
  return reinterpret_cast<const T*>(reinterpret_cast<const char*>(program) + offset);
}

TEST(Program, AsksForWhatAServiceNeedsAndNoMore) {
  const auto headers = static_cast<DWORD>(mapped<IMAGE_DOS_HEADER>(0)->e_lfanew);
  const IMAGE_OPTIONAL_HEADER64& header = mapped<IMAGE_NT_HEADERS64>(headers)->OptionalHeader;
  EXPECT_EQ(header.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
  // High-entropy addresses, each start other ones, and no data that runs.
  EXPECT_EQ(header.DllCharacteristics & 0x0160, 0x0160);

  // Nothing beside the program and nothing that Windows does not bring along.
  const std::set<std::string> known = {"ADVAPI32.dll", "bcrypt.dll",   "CRYPT32.dll", "imagehlp.dll",
                                       "KERNEL32.dll", "msvcrt.dll",   "RPCRT4.dll",  "SHELL32.dll",
                                       "USER32.dll",   "WINTRUST.dll", "WS2_32.dll",  "ole32.dll",
                                       "IPHLPAPI.DLL", "MSWSOCK.dll",  "VERSION.dll", "ntdll.dll"};
  const DWORD imports = header.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (const auto* entry = mapped<IMAGE_IMPORT_DESCRIPTOR>(imports); entry->Name != 0; ++entry)
    EXPECT_EQ(known.count(mapped<char>(entry->Name)), 1U) << mapped<char>(entry->Name);
  const std::string program = readFile(ZARN_PROGRAM);
  for (const char* inManifest : {"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}", "level=\"asInvoker\""})
    EXPECT_NE(program.find(inManifest), std::string::npos) << inManifest;
}

}  // namespace
}  // namespace zarn::testing
