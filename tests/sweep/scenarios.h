// What is done while calls fail or the disk is full, and what must hold of it afterwards whatever
// failed. The constructor sets up, act() is what fails, judge() says what became of it and
// that everything goes on.
#pragma once

#include <sys/syscall.h>

#include <map>

#include "http/elastic_thread_pool.h"
#include "http/http_client.h"
#include "log/probe_log.h"
#include "support/test_servers.h"
#include "trust/certificate_profile.h"
#include "update/installer_logs.h"
#include "update/record_folder.h"
#include "update/temporary_folder.h"

namespace zarn::testing {

struct LogLife {
  static constexpr int kLines = 10;
  static inline const std::string kRest = std::string(2000, 'x');
  LogLife() {
    for (const std::size_t number : {0U, 1U})
      writeFile(LogFiles::path(dir.path(), "Test", number), "0 - older\n");
    log.keptFiles = 3;
    setLogSink(&log);
    // Elsewhere it is looked up where this program lies, and the process ends without an answer.
    FileUtils::setApplicationDataOverride(dir.path());
  }
  ~LogLife() {
    FileUtils::setApplicationDataOverride("");
    setLogSink(nullptr);
  }
  void act() {
    try {
      log.start("Test");
    } catch (const std::exception&) {
      isStarted = false;
      return;
    }
    quietly([&] { log.enableNetworkLogging("127.0.0.1", 9, 1); });  // as its caller does
    for (int line = 0; line < kLines; ++line) {
      logLine(LogLevel::Info, "line %d %s", line, kRest);
      if (line == kLines / 2) log.flush(5s), log.requestRotation();
    }
    log.flush(5s);
  }
  std::string judge() {
    if (!isStarted) {
      const auto crash = readFile(FileUtils::join(dir.path(), "Startup Crash.log"));
      EXPECT_TRUE(crash.empty() || crash.find(": Failed to initialize logging: ") != crash.npos) << crash;
      ProbeLog next(dir.path());
      next.start("Test");
      next.write({"served"});
      EXPECT_THAT(messagesIn(dir.path()), ElementsAre("served"));
      return "no start" + std::string(crash.empty() ? "" : ", and why");
    }
    log.write({"served"});
    EXPECT_TRUE(log.stop(5s));
    Lines all;
    for (const std::size_t number : {3U, 2U, 1U, 0U})
      for (auto& line : messagesIn(dir.path(), number)) all.push_back(std::move(line));
    EXPECT_EQ(all.empty() ? "" : all.back(), "served") << ::testing::PrintToString(all);
    int next = 0, missing = 0;
    bool isSaid = false;
    for (const std::string& line : all) {
      isSaid |= line.starts_with("Log lines that were lost") || line.starts_with("Error: Exception in") ||
                line.starts_with("safe_fopen");
      if (!line.starts_with("line ") || !line.ends_with(" " + kRest)) continue;  // or torn
      const int number = std::stoi(line.substr(5));
      EXPECT_GE(number, next) << "in order, once";
      missing += number - next;
      next = number + 1;
    }
    missing += kLines - next;
    return missing == 0 ? "every line" : isSaid ? "lines missing, and said so" : "lines missing";
  }
  TempDirectory dir;
  ProbeLog log{dir.path(), {.again = 0ms}};
  bool isStarted = true;
};

struct LogEnd {
  LogEnd() {
    log.start("Test");
    log.enableNetworkLogging("127.0.0.1", 9, 1);
    log.write({"first"});
  }
  void act() {
    log.submit(LogLevel::Info, "last");
    flushed = log.flush(5s);
    stopped = log.stop(5s);
  }
  std::string judge() {
    EXPECT_TRUE(flushed && stopped);
    const Lines all = messagesIn(dir.path());
    EXPECT_THAT(all, AllOf(::testing::Contains("first")));
    return all.back() == "last" ? "the last line" : "no last line";
  }
  TempDirectory dir;
  ProbeLog log{dir.path()};
  bool flushed = false, stopped = false;
};

struct Record {
  Record() { writeFile(file, "torn"); }
  bool append(std::string_view line) const {
    const auto held =
        FileUtils::HeldFolder::hold(dir.path(), FileUtils::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return held && appendLine(*held, kHistoryNames, line, 20);
  }
  void act() {
    for (std::size_t i = 0; i < lines.size(); ++i) quietly([&] { isWritten[i] = append(lines[i]); });
  }
  std::string judge() {
    EXPECT_TRUE(append("last\n"));
    std::string wanted = "torn\n";
    for (std::size_t i = 0; i < lines.size(); ++i) wanted += isWritten[i] ? lines[i] : "";
    EXPECT_EQ(readFile(dir / "Update History.1.jsonl") + readFile(file), wanted + "last\n")
        << "a line that was answered as written, and no other";
    return std::ranges::count(isWritten, false) == 0 ? "every record" : "records refused";
  }
  RecordingLog log;
  TempDirectory dir;
  const std::string file = dir / "Update History.jsonl";
  const Lines lines = {"one\n", "three\n", "five-six\n", "seven\n", "eight\n"};
  std::array<bool, 5> isWritten{};
};

struct Collection {
  Collection() {
    for (const auto& [name, text] : logs) writeFile(folder.temp / name, text);
  }
  void act() {
    try {
      collectInstallerLogs();
    } catch (const std::bad_alloc&) {
      threw = true;
    }
  }
  std::size_t whole() const {
    std::size_t count = 0;
    for (const auto& [name, text] : logs) {
      const std::string copy = folder.installerLog(name);
      if (!FileUtils::exists(copy)) continue;
      EXPECT_TRUE(readFile(copy) == text) << name << " is not whole";
      ++count;
    }
    return count;
  }
  std::string judge() {
    const bool isComplete = whole() == logs.size();
    const bool isSaid = !log.texts().empty();
    collectInstallerLogs();
    EXPECT_EQ(whole(), logs.size()) << "the next collection makes up for it";
    return isComplete ? "every log"
           : threw    ? "out of memory"
           : isSaid   ? "logs missing, and said so"
                      : "logs missing";
  }
  RecordingLog log;
  TemporaryFolder folder;
  const std::map<std::string, std::string> logs = {{"Zarn Media Server.log", std::string(150'000, 'z')},
                                                   {"dd_vcredist.log", "short"}};
  bool threw = false;
};

struct Profile {
  // libcurl goes on with a socket that it could not keep from blocking, and may then wait for ever.
  static constexpr long kSpared = SYS_fcntl;
  static ProfileAnswer fetch() {
    return CertificateProfileClient(servers().host("good"), 20, servers().file("ca")).fetch();
  }
  static const TestServers& servers() {
    static const TestServers instance;
    return instance;
  }
  static const ApprovedDigests& approved() {
    static const ApprovedDigests digests = fetch().value();
    return digests;
  }
  void act() {
    const auto transfer = [this](std::shared_ptr<HttpContext> ctx) {
      ctx->cacert = servers().file("ca");
      ctx->timeout = 20;
      auto unanswered = HttpContext::create(servers().url("silent"), "GET");
      HttpClientRunner runner;
      const auto promise = HttpClient::submit(std::move(ctx), runner);
      try {
        abandoned = HttpClient::submit(std::move(unanswered), runner);
      } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): an answer, too
      }
      return promise->wait();
    };
    try {
      answer = CertificateProfileClient(servers().host("good"), transfer).fetch();
    } catch (const std::bad_alloc&) {
      return;
    }
  }
  std::string judge() {
    EXPECT_TRUE(!answer || !*answer || **answer == approved()) << "approved what is not on the list";
    auto settled = std::make_shared<std::promise<void>>();
    if (abandoned) abandoned->then([settled](auto&) { settled->set_value(); });
    EXPECT_TRUE(!abandoned || settled->get_future().wait_for(10s) == std::future_status::ready);
    const auto next = fetch();
    EXPECT_TRUE(next && *next == approved()) << "the next request is served";
    return !answer ? "out of memory" : *answer ? "the list" : "no list";
  }
  RecordingLog log;
  std::shared_ptr<HttpClient::Response> abandoned;
  std::optional<ProfileAnswer> answer;
};

struct Pool {
  void act() {
    try {
      ElasticThreadPool pool(1, 3, 5ms);
      pool.makeLowerBound();
      for (int task = 0; task < 20; ++task) {
        try {
          pool.post([this] { ++run; });
          ++posted;
        } catch (const std::bad_alloc&) {
          isRefused = true;
        }
      }
    } catch (const std::exception&) {
      isRefused = true;
    }
  }
  std::string judge() {
    EXPECT_EQ(run, posted) << "each once";
    return isRefused ? "tasks refused" : "every task";
  }
  RecordingLog log;
  std::atomic<int> run{0};
  int posted = 0;
  bool isRefused = false;
};

}  // namespace zarn::testing
