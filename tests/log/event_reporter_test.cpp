// Events on their way: how many are written, what stands in them, and that nobody waits for
// the system's event log.
#include "log/event_reporter.h"

#include "support/test.h"

namespace zarn::testing {
namespace {

using std::chrono::seconds;

TEST(EventRates, LetSoManyThroughInAMinuteAndCountTheRest) {
  EventRates rates;
  constexpr std::uint32_t most = factsOf(EventId::RequestRefused).perMinute;
  const auto start = EventRates::Time() + std::chrono::hours(1);
  const auto admitted = [&](int second, int times, EventId id = EventId::RequestRefused) {
    std::uint32_t count = 0;
    for (int i = 0; i < times; ++i) count += rates.admit(id, start + seconds(second)) ? 1U : 0U;
    return count;
  };
  const auto omitted = [&](int second, bool atOnce = false) {
    const auto answer = rates.takeOmitted(start + seconds(second), atOnce);
    return answer ? std::pair(answer->id, answer->number) : std::pair(EventId(), std::uint64_t{0});
  };
  EXPECT_EQ(admitted(0, 5), 5U);
  EXPECT_EQ(rates.nextDue(), std::nullopt);
  EXPECT_EQ(admitted(59, 101), most - 5);
  EXPECT_EQ(admitted(59, 1, EventId::UpdateInstalled), 1U) << "another id has its own rate";
  EXPECT_EQ(rates.nextDue(), start + seconds(60));
  EXPECT_EQ(omitted(59).second, 0U);
  EXPECT_EQ(omitted(60), std::pair(EventId::RequestRefused, std::uint64_t{106 - most}));
  EXPECT_EQ(omitted(60).second, 0U) << "told once";
  EXPECT_EQ(admitted(61, 1000), most) << "from here a minute counts anew";
  EXPECT_EQ(omitted(62, true).second, 1000 - most);
}

TEST(EventText, IsCutAndWithoutSecretsControlsAndPlacesForOtherTexts) {
  for (const auto& [text, shown] : std::initializer_list<std::pair<std::string, std::string>>{
           {"", "-"},
           {"C:\\Grüße\\a.exe", "C:\\Grüße\\a.exe"},
           {"a\r\n\x1b\xff", "a\\x0d\\x0a\\x1b\\xff"},
           {"%1 %%2%", "\\x251 \\x25\\x252\\x25"},
           {"X-Zarn-Token=0123456789abcdefghij!", "X-Zarn-Token=xxxxxxxxxxxxxxxxxxxx!"},
           {"X-Zarn-Token%3D0123456789abcdefghij", "X-Zarn-Token\\x253Dxxxxxxxxxxxxxxxxxxxx"},
           {std::string(5000, 'a'), std::string(kLongestInsertion, 'a') + "... (5000 characters)"}}) {
    EXPECT_EQ(insertionText(text), shown);
  }
  EXPECT_LT(insertionText(std::string(40'000, '\n')).size(), 2 * kLongestInsertion + 40);
}

/// Keeps events, and can be held up as an event log that does not answer holds up its callers.
class Recorder final : public EventWriter {
 public:
  void write(const EventFacts& event, std::span<const std::string> insertions) override {
    answers_.wait();
    texts_.push_back(std::to_string(static_cast<unsigned>(event.id)) + "|" + insertions[0] + "|" +
                     insertions[1]);
    if (texts_.size() == 2) throw std::runtime_error("costs this event");
  }
  void answer() { answer_.set_value(); }
  [[nodiscard]] const Lines& texts() const { return texts_; }

 private:
  std::promise<void> answer_;
  std::shared_future<void> answers_ = answer_.get_future().share();
  Lines texts_;
};

TEST(EventReporter, NobodyWaitsForAnEventLogThatDoesNotAnswer) {
  constexpr auto shortly = 50ms;
  Recorder writer;
  EventReporter reporter(writer);
  EXPECT_TRUE(reporter.flush(shortly)) << "nothing was reported";
  const std::array<std::string_view, 2> texts = {"C:\\a", ""};
  for (int i = 0; i < 100; ++i) reporter.take(EventId::AppDataPathNotUsed, texts);
  EXPECT_FALSE(reporter.flush(shortly));
  reporter.take(EventId::StartFailed, texts);
  writer.answer();
  EXPECT_TRUE(reporter.flush(seconds(60)));
  EXPECT_THAT(writer.texts(), ElementsAre("1011|C:\\a|-", "1011|C:\\a|-", "1020|C:\\a|-", "1003|98|1011"));
}

TEST(EventReporter, KeepsABoundedNumberOfEventsAndCountsTheOthers) {
  Recorder writer;
  EventReporter reporter(writer);
  const std::vector<std::string_view> texts(12, "x");
  for (const EventFacts& facts : kEvents) {
    for (int i = 0; i < 100; ++i) reporter.take(facts.id, std::span(texts).first(insertionCount(facts)));
  }
  writer.answer();
  EXPECT_TRUE(reporter.flush(seconds(60)));
  std::size_t kept = 0, counted = 0;
  for (const std::string& text : writer.texts()) {
    text.starts_with("1003|") && !text.ends_with("x") ? counted += std::stoul(text.substr(5)) : ++kept;
  }
  EXPECT_EQ(kept + counted, 100 * kEvents.size());
  // What waits, and what the writer may have had already.
  EXPECT_LE(kept, EventReporter::kMostWaiting + 1);
}

TEST(Events, StandInTheDocumentation) {
  const std::string manual = readFile(ZARN_SOURCE "/docs/operations.md");
  std::size_t row = manual.find("\n| id | level | a minute | inserted strings |");
  ASSERT_NE(row, std::string::npos);
  row = manual.find('\n', manual.find('\n', row + 1) + 1) + 1;
  for (const EventFacts& facts : kEvents) {
    const char* const level = facts.level == EventLevel::Error     ? "error"
                              : facts.level == EventLevel::Warning ? "warning"
                                                                   : "information";
    std::string wanted = "| " + std::to_string(static_cast<unsigned>(facts.id)) + " | " + level + " | " +
                         std::to_string(facts.perMinute) + " | " + std::string(facts.insertions) + " | ";
    EXPECT_EQ(manual.substr(row, wanted.size()), wanted);
    row = manual.find('\n', row) + 1;
  }
  EXPECT_EQ(manual[row], '\n') << "a row of no event";
}

}  // namespace
}  // namespace zarn::testing
