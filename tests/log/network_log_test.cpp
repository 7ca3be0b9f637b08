// What happens to lines on their way: secrets are masked, and copies go to a collector.
#include "log/network_log.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>

#include "log/probe_log.h"
#include "log/reachable_endpoint.h"
#include "log/token_scrubber.h"
#include "os/clock.h"
#include "support/test.h"

namespace zarn::testing {
namespace {

using boost::asio::ip::udp;

TEST(SyslogRecord, PartsInOrderAndNothingThatBeginsASecondRecord) {
  EXPECT_EQ(syslogRecord(LogLevel::Info, "Nov 15 22:42:15", "Zarn Update Service", "me", "text\r\n"),
            "<134>Nov 15 22:42:15 x ZarnUpdateService: [me] text");
  EXPECT_EQ(syslogRecord(LogLevel::Debug, "T", "N", "a\nb", "1\n<128>T x N: 2\t\x1b[0m\x7f"),
            "<135>T x N: [a b] 1 <128>T x N: 2  [0m ");
  EXPECT_EQ(syslogRecord(LogLevel::Warn, "", "", "", ""), "<132> x : [] ");
  // It is cut at 1024 bytes, between characters.
  const std::string head = syslogRecord(LogLevel::Info, "T", "N", "u", "");
  for (std::size_t room = 1022; room <= 1025; ++room) {
    const std::string ascii(room - head.size(), 'a');
    EXPECT_EQ(syslogRecord(LogLevel::Info, "T", "N", "u", ascii + "\xe2\x82\xac"),
              (head + ascii).substr(0, 1024));
  }
  EXPECT_EQ(syslogRecord(LogLevel::Info, "T", "N", "", std::string(3000, '\x80')).size(), 1024U);
}

TEST(SyslogCollector, IsHostAndPort) {
  for (const Lines& row : tableIn("log/collectors.txt")) {
    const auto parsed = parseCollector(row[1]);
    EXPECT_EQ(parsed ? parsed->host + " " + std::to_string(parsed->port) : "none", row[0]) << row[1];
  }
  EXPECT_FALSE(parseCollector(""));
}

TEST(CollectorAddress, IsTheFirstThatCanBeReached) {
  for (const Lines& row : tableIn("log/addresses.txt")) {
    std::vector<udp::endpoint> endpoints;
    for (std::size_t cell = 1; cell < row.size(); ++cell)
      endpoints.emplace_back(boost::asio::ip::make_address(row[cell]), 514);
    EXPECT_EQ(reachableEndpoint(endpoints).address().to_string(), row[0]);
  }
}

TEST_F(LogTest, CopiesLinesToTheNetworkUntilItsTimeIsUp) {
  boost::asio::io_context context;
  udp::socket collector(context, udp::endpoint(boost::asio::ip::address_v4::loopback(), 0));
  const std::uint16_t port = collector.local_endpoint().port();
  auto receive = [&, datagram = std::string(65536, '\0')]() mutable {
    return datagram.substr(0, collector.receive(boost::asio::buffer(datagram)));
  };
  log_.scrub = [](std::string& message) { std::replace(message.begin(), message.end(), '1', 'x'); };
  log_.start("Test");
  ASSERT_TRUE(log_.enableNetworkLogging("127.0.0.1", port, 2));
  log_.submit(LogLevel::Error, "token 1\n");
  log_.flush();
  const std::string head = "... .. ..:..:.. x Test: \\[user\\] ";
  const std::string enabled = "Enabling networked logging for 2 minutes.";
  EXPECT_THAT(receive(), MatchesRegex("<134>" + head + enabled));
  EXPECT_THAT(receive(), MatchesRegex("<128>" + head + "token x"));
  log_.startNetworkLog("127.0.0.1", port, os::wallTime().seconds - 1);
  log_.write({"late"});
  log_.write({"later"});
  EXPECT_THAT(messages(),
              ElementsAre(enabled, "token x", "late", "Time is up, disabling networked logging.", "later"));
  EXPECT_EQ(collector.available(), 0U);
}

std::string scrubbed(std::string text, bool crashKeysOnly = false) {
  scrubTokens(text, crashKeysOnly);
  return text;
}

TEST(TokenScrubber, MasksWhatFollowsEveryMarkerWhereverItStands) {
  const std::string value = "ABCDEFGHIJKLMNOPQRSTUVWX0123456789abcdef" + std::string(60, 'n');
  for (const auto& [marker, length, isCrashKey] : kScrubRules) {
    for (std::size_t column = 0; column < 130; ++column) {  // in all places of the blocks that are searched
      for (const char* const quote : {"", "'", "\""}) {
        const std::string start = std::string(column, 'n').append(marker) + quote;
        for (const std::size_t behind : {0U, 1U, 31U, 100U}) {
          const std::string masked(std::min(behind, length), 'x');
          const std::string text = start + value.substr(0, behind);
          ASSERT_EQ(scrubbed(text), start + masked + text.substr(start.size() + masked.size()));
          ASSERT_EQ(scrubbed(text, true), isCrashKey ? scrubbed(text) : text);
        }
      }
    }
  }
}

TEST(TokenScrubber, AppliesRuleAfterRuleToEveryOccurrence) {
  for (const Lines& row : tableIn("log/scrubbed.txt")) EXPECT_EQ(scrubbed(row[0]), row[1]);
}

}  // namespace
}  // namespace zarn::testing
