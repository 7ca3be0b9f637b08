// The log under load: 16 threads, small files, a collector. ZARN_LONG=1: a million lines.
#ifndef _WIN32
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <fmt/format.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <cerrno>

#include "log/probe_log.h"
#include "os/process.h"

static std::atomic<std::uint64_t> sends{0}, failures{0};

#ifdef _WIN32
constexpr char kSocketTable[] = R"(Z:\proc\net\udp)";
constexpr std::size_t kShortLines = 500;
#else
constexpr char kSocketTable[] = "/proc/net/udp";
constexpr std::size_t kShortLines = 4000;

// Every thousandth datagram fails, as it may when the system is short of memory.
static bool fails() {
  return ++sends % 1000 == 0 && ++failures != 0 && (errno = ENOBUFS) != 0;
}
extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  return fails() ? -1 : syscall(SYS_sendmsg, socket, message, flags);
}
extern "C" ssize_t sendto(int socket, const void* data, std::size_t size, int flags, const sockaddr* to,
                          socklen_t length) {
  return fails() ? -1 : syscall(SYS_sendto, socket, data, size, flags, to, length);
}
#endif

namespace zarn::testing {
namespace {

using boost::asio::ip::udp;
const std::string kLost = "Log lines that were lost because the queue had no room for them: ";

/// Counts what arrives, until an empty datagram does.
struct CountingCollector {
  /// What the system threw away because nobody took it in time, by its own account.
  [[nodiscard]] std::uint64_t dropped() const {
    const std::string place = fmt::format("0100007F:{:04X} ", socket.local_endpoint().port());
    std::ifstream table(kSocketTable);
    std::string line;
    while (line.find(place) > 20 && std::getline(table, line)) {
    }
    return std::stoull(line.substr(line.find_last_of(' ', line.find_last_not_of(' '))));
  }
  [[nodiscard]] std::uint64_t stop() {
    while (counting.wait_for(10ms) != std::future_status::ready)
      udp::socket(context, udp::v4()).send_to(boost::asio::buffer("", 0), socket.local_endpoint());
    return counting.get();
  }
  boost::asio::io_context context;
  udp::socket socket{context, udp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
  std::future<std::uint64_t> counting = std::async(std::launch::async, [this] {
    std::array<char, 2048> datagram;
    std::uint64_t count = 0;
    while (socket.receive(boost::asio::buffer(datagram)) != 0) ++count;
    return count;
  });
};

struct LogUnderLoad : LogTest, ::testing::WithParamInterface<bool> {
  static constexpr std::size_t kThreads = 16;
  LogUnderLoad() : LogTest({.fileBytes = isLong() ? 1U << 20 : kShortLines << 5}) {}
  static bool isLong() { return environmentVariable("ZARN_LONG").has_value(); }
  static std::string line(std::size_t thread, std::size_t number) {
    return std::to_string(thread) + " " + std::to_string(number) + " " + std::string(number * 7 % 60, '.');
  }
};

TEST_P(LogUnderLoad, EveryLineStandsOnceAndWholeAndInOrderAndIsSentOrNot) {
  const bool isPaced = GetParam();
  const std::size_t lines = isLong() ? 1'000'000 / kThreads : kShortLines;
  failures = 0;
  CountingCollector collector;
  log_.keptFiles = std::numeric_limits<std::int32_t>::max();
  log_.startNetworkLog("127.0.0.1", collector.socket.local_endpoint().port(), log_.keptFiles);
  log_.start("Test");
  std::vector<std::future<void>> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread)
    threads.push_back(std::async(std::launch::async, [&, thread] {
      for (std::size_t number = 0; number < lines; ++number) {
        log_.submit(LogLevel::Info, line(thread, number));
        if (isPaced && number % 1000 == 999) log_.flush();
      }
    }));
  threads.clear();  // waits for all
  log_.flush();
  log_.write({"last"});  // what was lost before is told with the next line that finds room

  std::size_t files = 1;
  while (FileUtils::exists(file(files))) ++files;
  std::array<std::size_t, kThreads> next{};
  std::uint64_t found = 0, others = 0, lost = 0;
  for (std::size_t left = files; left-- > 0;)
    for (const std::string& text : messages(left)) {
      const bool isNotice = text.starts_with(kLost);
      if (isNotice) lost += std::stoull(text.substr(kLost.size()));
      if (isNotice || text == "last") {
        ++others;
        continue;
      }
      const std::size_t thread = std::stoul(text), number = std::stoul(text.substr(text.find(' ')));
      EXPECT_EQ(text, line(thread, number));
      EXPECT_GE(number, std::exchange(next.at(thread), number + 1));
      ++found;
    }
  const std::uint64_t failed = failures.exchange(0), dropped = collector.dropped(),
                      received = collector.stop();
  std::cout << files << " files, " << found << " lines, " << lost << " told as lost; " << received
            << " datagrams arrived, " << dropped << " dropped by the system, " << failed << " failed\n";
  EXPECT_GT(files, 3U);
  EXPECT_EQ(found + lost, kThreads * lines);
  EXPECT_TRUE(!isPaced || lost == 0);
  EXPECT_EQ(received + dropped + failed, found + others);
}

INSTANTIATE_TEST_SUITE_P(Paced, LogUnderLoad, ::testing::Bool());

}  // namespace
}  // namespace zarn::testing
