// Every call of the service that can fail fails once, and the service is killed at every call that
// changes something; outcomes.txt says what may come of it.
//   fault_tests [SCENARIO...]
// ZARN_LONG=1: every call; else some, or ZARN_RUNS of each, drawn by ZARN_SEED, which is printed.
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>
#include <regex>

#include "e2e/service_under_test.h"
#include "faults/fault_table.h"
#include "faults/faulty_service.h"
#include "support/test.h"

namespace zarn::testing {
namespace {

using namespace faults;
using update_interface::Procedure;

const bool isLong = std::getenv("ZARN_LONG") != nullptr;

std::size_t shortRuns(std::size_t usual) {
  const char* const given = std::getenv("ZARN_RUNS");
  return given != nullptr ? static_cast<std::size_t>(std::atoi(given)) : usual;
}

/// Whether each run needs a process of its own, in which nothing has been asked for yet if it is cold.
enum class Process : std::uint8_t { Kept, Warmed, Cold };

struct Scenario {
  const char* name;
  std::string expected;
  std::size_t shortRuns;
  Process process;
  const char* plan;
  /// The outcome; of "start" the order is in force before.
  std::function<std::string(FaultyService&)> act;

  [[nodiscard]] bool isStart() const { return std::string_view(name) == "start"; }
};

/// Asks the service for something that is done to a bundle.
auto asks(Procedure procedure, const char* name) {
  return [=](FaultyService& subject) { return subject.request(procedure, bundle(name)); };
}

const Scenario kScenarios[] = {
    {"start", "serves", 6, Process::Cold, "exit=1641\n",
     [](FaultyService& subject) { return subject.start() ? std::string("serves") : subject.end(0); }},
    {"first check", "0", 4, Process::Warmed, "", asks(Procedure::CheckBundle, "approved.exe")},
    {"check", "0", 24, Process::Kept, "", asks(Procedure::CheckBundle, "approved.exe")},
    {"refused check", "30005", 24, Process::Kept, "", asks(Procedure::CheckBundle, "decoy.exe")},
    {"install", "30001", 12, Process::Kept, "exit=1641\nlog=dd_vcredist_amd64.log\n",
     asks(Procedure::Install, "approved.exe")},
    {"refused install", "30005", 12, Process::Kept, "exit=1641\n", asks(Procedure::Install, "decoy.exe")},
    {"restart", "0, ended 1467", 4, Process::Warmed, "exit=0\n",
     [](FaultyService& subject) {
       const std::string answer = subject.request(Procedure::Install, bundle("approved.exe"));
       return answer == "0" ? answer + ", " + subject.end() : answer;
     }},
    {"rotation", "done", 12, Process::Kept, "",
     [](FaultyService& subject) {
       const std::string answer = subject.request(Procedure::SetLocalAppDataPath, "");
       return answer + (subject.request(Procedure::CheckBundle, bundle("unsigned.exe")) == "30004"
                            ? ""
                            : ", next check fails");
     }},
    {"stop", "ended 0", 4, Process::Warmed, "", [](FaultyService& subject) { return subject.stop(); }},
};

constexpr wchar_t kStaged[] = L"ZarnMediaServerUpdate.exe";
constexpr char kElsewhere[] = R"(C:\zarn-test\elsewhere)";

/// Killed at each of their changes. Their installs end with a restart, their settings change.
const Scenario kKilled[] = {
    {"start", "", 3, Process::Cold, "",
     [](FaultyService& subject) { return std::string(subject.start() ? "" : "ended"); }},
    {"install", "", 8, Process::Kept, "exit=0\nlog=dd_vcredist_amd64.log\n",
     asks(Procedure::Install, "approved.exe")},
    {"move", "", 4, Process::Kept, "",
     [](FaultyService& subject) { return subject.request(Procedure::SetLocalAppDataPath, kElsewhere); }}};

/// The first line that is not whole in what the service leaves behind; empty when all are.
std::string tornLine() {
  static const std::regex line(R"(\w{3} \d\d, \d{4} \d\d:\d\d:\d\d\.\d{3} \[\w{4,}\] [A-Z]+ - [^\n]*)");
  const std::string elsewhere = std::string(kElsewhere) + R"(\Zarn Media Server\Logs)";
  for (const std::string& folder :
       {ServiceUnderTest::logDirectory(), elsewhere, std::string(R"(C:\ProgramData\Zarn Update Service)")}) {
    boost::system::error_code missing;
    for (const auto& entry : fs::directory_iterator(toPath(folder), missing)) {
      const std::string name = toUtf8(entry.path()), kind = toUtf8(entry.path().extension());
      if (kind != ".jsonl" && (kind != ".log" || name.ends_with("Startup Crash.log"))) continue;
      std::istringstream lines(readFile(name));
      for (std::string text; std::getline(lines, text);) {
        if (text.ends_with('\r')) text.pop_back();
        if (lines.eof() || !(kind == ".log" ? std::regex_match(text, line) : nlohmann::json::accept(text)))
          return text + " in " + name;
      }
    }
  }
  return {};
}

struct Seen {
  std::set<std::uint64_t> sites;
  std::size_t runs = 0;
  std::map<std::string, std::size_t> outcomes;
};

std::string kindOf(const std::string& function) {
  return std::string(nameOf(functionTable()[static_cast<std::size_t>(rowOf(function))].kind));
}

class Sweep {
 public:
  void run(const Scenario& scenario) {
    ServiceUnderTest::planInstaller(scenario.plan);
    approveOnly(stageSetting("approved_digest"));
    const auto [calls, sites] = count(scenario);
    std::vector<Order> orders;
    for (std::uint64_t n = 1; n <= calls; ++n)
      orders.push_back({.kinds = kAllKinds & ~bit(Kind::Memory), .wanted = n});
    for (const std::uint64_t site : sites) orders.push_back({.kinds = bit(Kind::Memory), .site = site});
    if (!isLong) {
      std::shuffle(orders.begin(), orders.end(), random_);
      orders.resize(std::min(orders.size(), shortRuns(scenario.shortRuns)));
    }
    std::cout << scenario.name << ": " << calls << " calls, " << sites.size()
              << " places that ask for memory, " << orders.size() << " runs" << std::endl;
    for (const Order& order : orders) round(scenario, order);
    judgeSuspects(scenario);
  }
  /// Ends the process from outside at each of a scenario's calls that change something.
  void killAtEachChange(const Scenario& scenario, int times) {
    subject_.kill();
    fs::remove_all(toPath(ServiceUnderTest::logDirectory()));  // what failed calls cut is not judged here
    ServiceUnderTest::planInstaller(scenario.plan);
    std::vector<std::uint64_t> places(countChanges(scenario));
    std::iota(places.begin(), places.end(), 1);
    std::cout << "killed in " << scenario.name << ": " << places.size() << " calls that change something"
              << std::endl;
    if (!isLong) {
      std::shuffle(places.begin(), places.end(), random_);
      places.resize(std::min(places.size(), shortRuns(scenario.shortRuns)));
    }
    for (int i = 0; i < times; ++i)
      for (const std::uint64_t n : places) killAt(scenario, n);
  }
  /// False when there was an outcome that outcomes.txt does not allow.
  bool judge() {
    std::set<Lines> allowed;
    for (const Lines& row : tableIn("faults/outcomes.txt")) allowed.insert(row);
    bool isGood = true;
    std::size_t runs = 0;
    for (const auto& [place, seen] : seen_) {
      const auto& [scenario, function] = place;
      std::cout << scenario << " | " << function << " | " << seen.sites.size() << " | " << seen.runs;
      runs += seen.runs;
      for (const auto& [outcome, times] : seen.outcomes) {
        const bool isAllowed =
            std::ranges::any_of(std::array<std::string, 3>{"any", kindOf(function), function},
                                [&, &scenario = scenario, &outcome = outcome](const auto& who) {
                                  return allowed.contains({scenario, who, outcome});
                                });
        isGood &= isAllowed;
        std::cout << " | " << (isAllowed ? "" : "NOT ALLOWED: ") << outcome << " (" << times << ")";
      }
      std::cout << "\n";
    }
    for (const std::string& name : subject_.control.unknown()) {
      std::cout << "not in the table of functions: " << name << "\n";
      isGood = false;
    }
    std::cout << runs << " runs" << std::endl;
    return isGood;
  }

 private:
  std::uint64_t countChanges(const Scenario& scenario) {
    subject_.kill();
    if (!scenario.isStart()) ensureServing();
    subject_.control.arm({.mode = Mode::Count, .kinds = kChangingKinds});
    scenario.act(subject_);
    Sleep(100);
    subject_.control.off();
    subject_.request(Procedure::SetLocalAppDataPath, "");
    return subject_.control.section().counter;
  }

  void killAt(const Scenario& scenario, std::uint64_t n) {
    if (scenario.isStart())
      subject_.kill();
    else
      ensureServing();
    ServiceUnderTest::forgetInstallerRuns();
    subject_.control.arm({.mode = Mode::Stop, .kinds = kChangingKinds, .wanted = n});
    auto act = std::async(std::launch::async, [&] { return scenario.act(subject_); });
    bool hasStopped = false;
    while (!hasStopped && act.wait_for(0ms) != std::future_status::ready)
      hasStopped = subject_.control.waitUntilStopped(GetCurrentProcess(), 10);
    subject_.killFromOutside();
    act.wait();
    subject_.control.off();
    if (!hasStopped) return;  // not every run makes the same calls
    Seen& seen = seen_[{std::string("killed in ") + scenario.name, subject_.control.hitFunction()}];
    const std::string outcome = afterKill();
    seen.sites.insert(subject_.control.section().hitSite);
    ++seen.runs;
    if (++seen.outcomes[outcome] == 1 && outcome != "as before") describe(scenario, {.wanted = n}, outcome);
  }

  std::string afterKill() {
    bool hasOrphan = FaultyService::endOrphans(kStaged);
    const auto runs = ServiceUnderTest::installerRuns();
    if (runs.size() > 1 || (runs.size() == 1 && runs[0].who != "genuine")) return "ran what it should not";
    if (!subject_.start()) return "next start fails";
    if (FileUtils::exists(ServiceUnderTest::stagedCopy())) {
      // What was on its way when its maker was killed is there only now.
      hasOrphan |= FaultyService::endOrphans(kStaged);
      if (!subject_.start()) return "next start fails";
      if (FileUtils::exists(ServiceUnderTest::stagedCopy())) return "a stale copy stays";
    }
    if (const std::string now = storedAppDataPath(); !now.empty() && now != kElsewhere)
      return "setting " + now;
    subject_.request(Procedure::SetLocalAppDataPath, "");
    if (const std::string torn = tornLine(); !torn.empty()) return "torn: " + torn;
    ServiceUnderTest::planInstaller("exit=1641\n");
    const std::string next = subject_.request(Procedure::Install, bundle("approved.exe"));
    if (next != "30001") return "next install " + next;
    return hasOrphan ? "as before, but for an installer that never began" : "as before";
  }

  /// How many calls but for memory a scenario makes, and from where it asks for memory.
  std::pair<std::uint64_t, std::vector<std::uint64_t>> count(const Scenario& scenario) {
    subject_.kill();
    ensureServing(scenario.process != Process::Cold);
    if (scenario.process == Process::Kept) scenario.act(subject_);
    subject_.control.forgetSites();
    subject_.control.arm({.mode = Mode::Count, .kinds = kAllKinds & ~bit(Kind::Memory)});
    const std::string outcome = scenario.act(subject_);
    Sleep(100);  // what its threads do behind it
    subject_.control.off();
    if (outcome != scenario.expected) throw std::runtime_error(std::string(scenario.name) + ": " + outcome);
    std::vector<std::uint64_t> sites;
    for (const Site& site : subject_.control.section().sites)
      if (site.id != 0 && functionTable()[site.function].kind == Kind::Memory) sites.push_back(site.id);
    return {subject_.control.section().counter.load(), sites};
  }

  void round(const Scenario& scenario, const Order& order) {
    if (scenario.process != Process::Kept) subject_.kill();
    if (!scenario.isStart()) ensureServing(scenario.process != Process::Cold);
    ServiceUnderTest::forgetInstallerRuns();
    const std::size_t logged = ServiceUnderTest::log().size();
    subject_.control.arm(order);
    std::string outcome = scenario.act(subject_);
    if (outcome.starts_with("no answer")) outcome += ", " + subject_.end(10'000);
    subject_.control.off();
    const auto& section = subject_.control.section();
    if (section.hits == 0) return;  // not every run makes the same calls
    const bool hasFailed = outcome != scenario.expected;
    for (const auto& run : ServiceUnderTest::installerRuns()) outcome += ", ran " + run.who;
    outcome += whatIsLeft(hasFailed && scenario.process == Process::Kept ? logged : std::string::npos);
    Seen& seen = seen_[{scenario.name, subject_.control.hitFunction()}];
    seen.sites.insert(section.hitSite);
    ++seen.runs;
    if (++seen.outcomes[outcome] == 1) describe(scenario, order, outcome);
    if (scenario.process != Process::Kept) return;
    if (const std::size_t held = subject_.held(); held > mostHeld_) {
      mostHeld_ = held;
      suspects_.push_back({.site = section.hitSite});
    }
  }

  /// Warm means that what a process makes once is there.
  void ensureServing(bool isWarm = true) {
    if (subject_.isAlive()) return;
    if (!subject_.start()) throw std::runtime_error("a start without any fault fails: " + subject_.end(0));
    if (!isWarm) return;
    for (int i = 0; i < 3; ++i) subject_.request(Procedure::CheckBundle, bundle("approved.exe"));
    mostHeld_ = subject_.held() + 3;
  }

  /// What is not as it was before. A request that failed says so in the log, behind `logged`.
  std::string whatIsLeft(std::size_t logged) {
    const bool hasEnded = !subject_.isAlive();
    if (hasEnded && !subject_.start()) return ", next start fails";
    if (hasEnded && FileUtils::exists(ServiceUnderTest::stagedCopy())) return ", a copy stays";
    const std::string approved = bundle("approved.exe");
    if (const std::string next = subject_.request(Procedure::CheckBundle, approved); next != "0") {
      subject_.kill();
      return ", next check " + next;
    }
    if (hasEnded || logged == std::string::npos) return {};
    std::string text;
    const bool isWritten = waitUntil([&] {  // all that was to be written before the next check's line
      text = ServiceUnderTest::log().substr(logged);
      return text.rfind("CheckBundle() from UpdateInterface: " + approved) != std::string::npos;
    });
    const bool says =
        std::ranges::any_of(std::array{" ERROR - ", " WARN - ", "ailed"},
                            [&](const char* word) { return text.find(word) != std::string::npos; });
    return !isWritten ? ", log stands still" : says ? "" : ", silent";
  }

  /// Whether what made the most handles and threads so far makes more of them each time.
  void judgeSuspects(const Scenario& scenario) {
    for (const Order& order : suspects_) {
      ensureServing();
      const std::size_t before = subject_.held();
      for (int i = 0; i < 8; ++i) {
        subject_.control.arm(order);
        scenario.act(subject_);
        subject_.control.off();
        subject_.request(Procedure::CheckBundle, bundle("approved.exe"));
      }
      const std::size_t after = subject_.held();
      if (!subject_.isAlive() || after < before + 8) continue;
      std::cout << "  handles and threads: " << before << " to " << after << std::endl;
      ++seen_[{scenario.name, subject_.control.hitFunction()}].outcomes["leaves handles or threads"];
      describe(scenario, order, "leaves handles or threads");
    }
    suspects_.clear();
  }

  void describe(const Scenario& scenario, const Order& order, const std::string& outcome) {
    std::cout << "  " << scenario.name << ", " << subject_.control.hitFunction() << ", call " << order.wanted
              << ": " << outcome << ", at";
    for (const std::uint32_t address : subject_.control.section().hitAddresses)
      if (address != 0) std::cout << " " << std::hex << address << std::dec;
    std::cout << std::endl;
  }

  static unsigned seed() {
    const char* const given = std::getenv("ZARN_SEED");
    const unsigned value =
        given != nullptr ? static_cast<unsigned>(std::atoi(given)) : std::random_device()();
    std::cout << "ZARN_SEED=" << value << std::endl;
    return value;
  }

  FaultyService subject_;
  std::size_t mostHeld_ = 0;
  std::vector<Order> suspects_;
  std::mt19937 random_{seed()};
  std::map<std::pair<std::string, std::string>, Seen> seen_;
};

}  // namespace
}  // namespace zarn::testing

int main(int count, char** arguments) {
  using namespace zarn::testing;
  const std::set<std::string> wanted(arguments + 1, arguments + count);
  try {
    Sweep sweep;
    for (const auto& scenario : kScenarios)
      if (wanted.empty() || wanted.contains(scenario.name)) sweep.run(scenario);
    for (const auto& scenario : kKilled)
      if (wanted.empty() || wanted.contains(std::string("killed in ") + scenario.name))
        sweep.killAtEachChange(scenario, isLong ? 3 : 1);
    return sweep.judge() ? 0 : 1;
  } catch (const std::exception& error) {
    std::cout << error.what() << std::endl;
    return 2;
  }
}
