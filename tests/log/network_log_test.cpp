#include "log/network_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <chrono>

#include "log/log_files.h"
#include "log/log_platform.h"
#include "log/probe_log.h"

namespace zarn {
namespace {

using boost::asio::ip::udp;
using ::testing::ElementsAre;
using testing::messagesIn;
using testing::ProbeLog;
using testing::Reads;
using testing::TempDirectory;

/// A collector on loopback.
class Receiver {
 public:
  [[nodiscard]] std::uint16_t port() const { return socket_.local_endpoint().port(); }

  /// The next datagram; empty when none comes.
  std::string receive(std::chrono::milliseconds patience = std::chrono::seconds(5)) {
    std::string datagram(65536, '\0');
    std::size_t length = 0;
    socket_.async_receive(boost::asio::buffer(datagram),
                          [&](const boost::system::error_code& error, std::size_t received) {
                            if (!error) length = received;
                          });
    context_.restart();
    context_.run_for(patience);
    socket_.cancel();
    context_.restart();
    context_.run();  // the receive has been answered when this returns
    datagram.resize(length);
    return datagram;
  }

 private:
  boost::asio::io_context context_;
  udp::socket socket_{context_, udp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
};

TEST(SyslogRecord, PartsInOrderAndNothingThatBeginsASecondRecord) {
  EXPECT_EQ(syslogRecord(LogLevel::Info, "Nov 15 22:42:15", "Zarn Update Service", "me", "text\r\n"),
            "<134>Nov 15 22:42:15 x ZarnUpdateService: [me] text");
  EXPECT_EQ(syslogRecord(LogLevel::Debug, "T", "N", "a\nb", "1\n<128>T x N: 2\t\x1b[0m\x7f"),
            "<135>T x N: [a b] 1 <128>T x N: 2  [0m ");
  const std::pair<LogLevel, const char*> priorities[] = {
      {LogLevel::Error, "<128>"}, {LogLevel::Warn, "<132>"},    {LogLevel::Info, "<134>"},
      {LogLevel::Debug, "<135>"}, {LogLevel::Verbose, "<136>"}, {LogLevel{9}, "<128>"}};
  for (const auto& [level, priority] : priorities) {
    EXPECT_EQ(syslogRecord(level, "", "", "", ""), std::string(priority) + " x : [] ");
  }
}

TEST(SyslogRecord, IsCutAt1024BytesBetweenCharacters) {
  const std::string head = syslogRecord(LogLevel::Info, "T", "N", "u", "");
  for (const std::size_t room :
       {std::size_t{1022}, std::size_t{1023}, std::size_t{1024}, std::size_t{1025}}) {
    const std::string ascii(room - head.size(), 'a');
    EXPECT_EQ(syslogRecord(LogLevel::Info, "T", "N", "u", ascii + "\xe2\x82\xac"),
              head + ascii.substr(0, 1024 - head.size()));
  }
  EXPECT_EQ(syslogRecord(LogLevel::Info, "T", "N", std::string(3000, 'u'), "text").size(), 1024U);
  EXPECT_EQ(syslogRecord(LogLevel::Info, "T", "N", "", std::string(3000, '\x80')).size(), 1024U);
}

TEST(SyslogCollector, IsHostAndPort) {
  const struct {
    const char* text;
    const char* result;
  } cases[] = {{"collector:514", "collector 514"},
               {"[::1]:65535", "::1 65535"},
               {"10.0.0.1:1", "10.0.0.1 1"},
               {"collector", ""},
               {"collector:", ""},
               {":514", ""},
               {"[]:514", ""},
               {"::1:514", ""},
               {"collector:0", ""},
               {"c:65536", ""},
               {"c:-1", ""},
               {"c:51x", ""},
               {"", ""}};
  for (const auto& [text, result] : cases) {
    const auto parsed = parseCollector(text);
    EXPECT_EQ(parsed ? parsed->host + " " + std::to_string(parsed->port) : "", result) << text;
  }
}

class NetworkedLog : public ::testing::Test {
 protected:
  void SetUp() override { log_.start("A Test Log"); }
  std::vector<std::string> written() {
    log_.flush();
    return messagesIn(LogFiles::path(dir_.path(), "A Test Log", 0));
  }

  TempDirectory dir_;
  ProbeLog log_{dir_.path()};
  Receiver receiver_;
};

TEST_F(NetworkedLog, CopiesLinesWhileItIsOn) {
  log_.submit(LogLevel::Info, "before");
  log_.flush();
  ASSERT_TRUE(log_.enableNetworkLogging("127.0.0.1", receiver_.port(), 2));
  log_.submit(LogLevel::Verbose, "one\n");
  log_.submit(LogLevel::Error, std::string(5000, 'e'));
  log_.flush();
  const std::string head = "??? ## ##:##:## x ATestLog: [user] ";
  EXPECT_THAT(receiver_.receive(), Reads("<134>" + head + "Enabling networked logging for 2 minutes."));
  EXPECT_THAT(receiver_.receive(), Reads("<136>" + head + "one"));
  const std::string cut = receiver_.receive();
  EXPECT_THAT(cut, Reads("<128>" + head + "eee*eee"));
  EXPECT_EQ(cut.size(), 1024U);

  log_.disableNetworkLogging();
  log_.submit(LogLevel::Info, "after");
  EXPECT_THAT(written(), ElementsAre("before", "Enabling networked logging for 2 minutes.", "one",
                                     std::string(5000, 'e'), "after"));
  EXPECT_EQ(receiver_.receive(std::chrono::milliseconds(50)), "");
}

TEST_F(NetworkedLog, EndsWithItsTime) {
  log_.startNetworkLog("127.0.0.1", receiver_.port(), platform::currentLogTime().seconds - 1);
  log_.submit(LogLevel::Info, "late");
  log_.flush();
  EXPECT_THAT(written(), ElementsAre("late", "Time is up, disabling networked logging."));
  log_.submit(LogLevel::Info, "later");
  EXPECT_THAT(written(), ElementsAre("late", "Time is up, disabling networked logging.", "later"));

  log_.setSynchronous(true);  // the notice comes from inside a line, and is lost
  log_.startNetworkLog("127.0.0.1", receiver_.port(), platform::currentLogTime().seconds - 1);
  log_.submit(LogLevel::Info, "last");
  EXPECT_EQ(written().back(), "last");
  EXPECT_EQ(receiver_.receive(std::chrono::milliseconds(50)), "");
}

TEST_F(NetworkedLog, FailuresLeaveTheFileAlone) {
  EXPECT_FALSE(log_.enableNetworkLogging("127.0.0.1", receiver_.port(), 0));
  EXPECT_FALSE(log_.enableNetworkLogging("no such host", 514, 1));
  // Nobody may broadcast without asking for it: every send fails.
  ASSERT_TRUE(log_.enableNetworkLogging("255.255.255.255", 514, 1));
  log_.submit(LogLevel::Info, "line");
  EXPECT_THAT(written(),
              ElementsAre("Error enabling networked logging: the number of minutes must be positive.",
                          Reads("Error enabling networked logging: resolve: *."),
                          "Enabling networked logging for 1 minutes.", "line"));
}

}  // namespace
}  // namespace zarn
