// How calls get their turns, what leaves them, and how the listener that brings them ends.
#include "support/test.h"
#include "update/bounded_listener.h"
#include "update/call_queue.h"
#include "update/rpc_server.h"
#ifdef _WIN32
#include <fmt/format.h>

#include "update/interface/update_interface.h"
#endif

namespace zarn::testing {
namespace {

/// A queue in which one call runs already, and calls that wait on threads of their own.
struct Calls {
  explicit Calls(std::size_t waiting) : queue({.running = 1, .waiting = waiting}) {
    current.emplace(queue.enter("first", {}));
  }
  ~Calls() { queue.close(), serve(); }
  /// A call of each owner in turn; returns when the last one waits or has been refused.
  void call(const std::string& owners, const CallQueue::IsGone& isGone = {}) {
    for (const char owner : owners) {
      const std::size_t waiting = queue.waiting(), before = read(refusedOwners).size();
      threads.emplace_back([this, owner, isGone] {
        const auto turn = queue.enter({owner}, isGone);
        const MutexLock lock(mutex);
        (turn ? servedOwners : refusedOwners) += owner;
        if (!turn) refusedOwners += std::to_string(static_cast<int>(turn.refusal()));
      });
      while (queue.waiting() <= waiting && read(refusedOwners).size() <= before)
        std::this_thread::sleep_for(1ms);
    }
  }
  /// Owner and number of the reason of each call without a turn, as they were told.
  std::string refused(std::size_t atLeast = 0) {
    while (read(refusedOwners).size() < 2 * atLeast) std::this_thread::sleep_for(1ms);
    return read(refusedOwners);
  }
  /// Lets all that wait have their turns, one after the other, and says whose they were.
  std::string serve() {
    current.reset();
    threads.clear();
    return read(servedOwners);
  }
  std::string read(const std::string& owners) {
    const MutexLock lock(mutex);
    return owners;
  }

  Mutex mutex;
  std::string servedOwners, refusedOwners;
  CallQueue queue;
  std::optional<CallQueue::Turn> current;
  std::vector<std::jthread> threads;
};

TEST(CallQueue, GivesTurnsRoundAndNobodyMoreThanHalfThePlacesWhileOthersAsk) {
  for (const Lines& row : tableIn("update/turns.txt")) {
    Calls calls(std::stoul(row[0]));
    calls.call(row[1]);
    EXPECT_EQ(calls.serve(), row[2]) << row[1];
    EXPECT_EQ(calls.refused(), row[3] == "nobody" ? "" : row[3]) << row[1];
  }
}

TEST(CallQueue, WhoIsGoneGivesThePlaceUpAndGetsNoTurn) {
  std::atomic<bool> gone{false};
  Calls calls(2);
  calls.call("aa", [&] { return gone.load(); });
  gone = true;
  calls.call("b", [] { return true; });
  calls.refused(2);
  EXPECT_EQ(calls.queue.waiting(), 1U) << "b has a place, since a's were given up";
  EXPECT_EQ(calls.serve(), "");
  EXPECT_EQ(calls.refused(), "a2a2b2");
}

TEST(CallQueue, ClosingEndsAllThatWaitAndNotWhatRuns) {
  Calls calls(16);
  calls.call("aaa");
  calls.queue.close();
  calls.call("b");
  EXPECT_EQ(std::ranges::count(calls.refused(4), '3'), 4);
  EXPECT_FALSE(calls.queue.waitUntilIdle(10ms));
  EXPECT_EQ(calls.serve(), "");
  EXPECT_TRUE(calls.queue.waitUntilIdle(0ms));
}

constexpr auto kLimit = 300ms;

struct BoundedListenerTest : ::testing::Test {
  /// A listener of which each part can be made to hang. Outlives the threads left behind.
  struct Stage {
    std::atomic<bool> listens{true}, listenEnds{true}, stopEnds{true}, busy{false}, told{false};
    std::atomic<std::uint32_t> stopAnswer{9};
    std::atomic<int> stops{0};
  };

  ~BoundedListenerTest() override { stage_->listenEnds = stage_->stopEnds = true; }

  std::future<std::uint32_t> run() {
    return std::async(std::launch::async, [this] { return listener_.run(); });
  }

  const RecordingLog log_;
  const std::shared_ptr<Stage> stage_ = std::make_shared<Stage>();
  BoundedListener listener_{{.listen = [stage = stage_]() -> std::uint32_t {
                               while (!stage->told || !stage->listenEnds) std::this_thread::sleep_for(1ms);
                               return 7;
                             },
                             .stopListening = [stage = stage_]() -> std::uint32_t {
                               ++stage->stops;
                               if (!stage->listens) return BoundedListener::kNotListening;
                               for (stage->told = true; !stage->stopEnds;) std::this_thread::sleep_for(1ms);
                               return stage->stopAnswer;
                             },
                             .waitUntilIdle =
                                 [stage = stage_](std::chrono::milliseconds limit) {
                                   if (stage->busy) std::this_thread::sleep_for(limit / 10);
                                   return !stage->busy;
                                 }},
                            kLimit};
};

class WhateverHangs : public BoundedListenerTest, public ::testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(All, WhateverHangs, ::testing::Range(0, 4));
TEST_P(WhateverHangs, Ends) {
  stage_->listenEnds = (GetParam() & 1) == 0;
  stage_->stopEnds = (GetParam() & 2) == 0;
  auto running = run();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(listener_.stop(), stage_->stopEnds ? 9U : BoundedListener::kTimedOut);
  EXPECT_EQ(running.get(), stage_->listenEnds ? 7U : 0U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 10 * kLimit);
  EXPECT_EQ(log_.count("The listener did not end in time; the service ends without it."), GetParam() & 1);
}

TEST_F(BoundedListenerTest, CutsNoWorkShort) {
  stage_->busy = true;
  auto running = run();
  EXPECT_EQ(listener_.stop(), 9U);
  EXPECT_EQ(running.wait_for(3 * kLimit), std::future_status::timeout);
  stage_->busy = false;
  running.get();
}

TEST_F(BoundedListenerTest, AStopThatComesBeforeItListensIsNotLostAndALaterOneDoesNotWait) {
  stage_->listens = false;
  stage_->stopAnswer = 0;
  auto running = run();
  auto stopping = std::async(std::launch::async, [this] { return listener_.stop(); });
  EXPECT_EQ(stopping.wait_for(kLimit / 4), std::future_status::timeout);
  stage_->listenEnds = false;
  stage_->listens = true;
  EXPECT_EQ(stopping.get(), 0U);
  stage_->listens = false;
  const int stops = stage_->stops;
  EXPECT_EQ(listener_.stop(), BoundedListener::kNotListening);
  EXPECT_EQ(stage_->stops, stops + 1) << "tried once, since the first one had an effect";
  stage_->listenEnds = true;
  EXPECT_EQ(running.get(), 7U);
}

TEST(RpcServer, LetsNothingThrownOutAndRefusesPathsThatWindowsCannotHave) {
  const RecordingLog log;
  const auto answer = [](const wchar_t* path, const auto& work) {
    return rpc_server::answerCall("Install", path, Status::Failed, work);
  };
  const auto accept = [](const std::wstring&) { return Status::RebootRequired; };
  EXPECT_EQ(answer(L"p", [](auto&) -> Status { throw std::runtime_error("two\nlines"); }), Status::Failed);
  EXPECT_EQ(answer(L"p", [](auto&) -> Status { throw 7; }), Status::Failed);
  const std::wstring longest(32'767, L'x');
  EXPECT_EQ(answer(longest.c_str(), accept), Status::RebootRequired);
  EXPECT_EQ(answer((longest + L'x').c_str(), accept), Status::Failed);
  EXPECT_EQ(answer(nullptr, accept), Status::Failed);
  const std::string tooLong = "Install: the path is missing or too long.";
  EXPECT_EQ(log.texts(), (Lines{"Install: Caught std::exception two\\x0alines, type: std::runtime_error",
                                "Install: Caught std::exception unknown, type: unknown", tooLong, tooLong}));
}

#ifdef _WIN32
// Octet by octet: callers that were built elsewhere rely on them.
TEST(WireTables, DescribeTheThreeProceduresAndNameTheInterface) {
  using namespace update_interface;
  const auto rows = tableIn("update/wire_tables.txt");
  const auto octets = [](const auto& table) { return fmt::format("{:02x}", fmt::join(table, " ")); };
  EXPECT_EQ(octets(kProcedureFormat), rows.at(0).front());
  EXPECT_EQ(octets(kTypeFormat), rows.at(1).front());
  EXPECT_THAT(kProcedureOffsets, ElementsAre(0, 36, 78));
  const RPC_SYNTAX_IDENTIFIER wanted{
      {0x631c7d9c, 0x1797, 0x42f9, {0x8e, 0x96, 0x36, 0x7a, 0x9e, 0xe5, 0x88, 0x87}}, {1, 0}};
  const ServerInterface server({});
  const auto* const client = static_cast<const RPC_CLIENT_INTERFACE*>(kClientStub.RpcInterfaceInformation);
  for (const auto* id : {&server.description().InterfaceId, &client->InterfaceId})
    EXPECT_EQ(std::memcmp(id, &wanted, sizeof(wanted)), 0);
}
#endif

}  // namespace
}  // namespace zarn::testing
