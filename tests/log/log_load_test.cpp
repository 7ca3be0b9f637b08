// The log under load: 16 threads, small files, a collector. ZARN_LONG=1: a million lines of each thread.
#ifndef _WIN32
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <cerrno>

#include "log/probe_log.h"
#include "os/process.h"

namespace {
std::atomic<std::uint64_t> sent{0}, failed{0};
}

#ifndef _WIN32
// Every thousandth datagram fails, as it may when the system is short of memory.
extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  if ((sent + failed) % 1000 == 999) return ++failed, errno = ENOBUFS, -1;
  return ++sent, syscall(SYS_sendmsg, socket, message, flags);
}
extern "C" ssize_t sendto(int socket, const void* data, std::size_t size, int flags, const sockaddr* to,
                          socklen_t length) {
  if ((sent + failed) % 1000 == 999) return ++failed, errno = ENOBUFS, -1;
  return ++sent, syscall(SYS_sendto, socket, data, size, flags, to, length);
}
#endif

namespace zarn::testing {
namespace {

using boost::asio::ip::udp;

/// Counts what arrives.
class CountingCollector {
 public:
  ~CountingCollector() { stop(); }
  std::uint16_t port() const { return socket_.local_endpoint().port(); }
  /// What the system threw away because nobody took it in time, by its own account.
  std::uint64_t dropped() const {
#ifdef _WIN32
    std::ifstream table(R"(Z:\proc\net\udp)");
#else
    std::ifstream table("/proc/net/udp");
#endif
    char place[20];
    std::snprintf(place, sizeof(place), "0100007F:%04X ", port());
    for (std::string line; std::getline(table, line);)
      if (line.find(place) < 20)
        return std::stoull(line.substr(line.find_last_of(' ', line.find_last_not_of(' '))));
    return 0;
  }
  std::uint64_t received() const {
    return received_;
  }
  void stop() {
    if (!thread_.joinable()) return;
    udp::socket(context_, udp::v4()).send_to(boost::asio::buffer("", 0), socket_.local_endpoint());
    thread_.join();
  }

 private:
  void receive() {
    std::array<char, 2048> datagram;
    while (const std::size_t size = socket_.receive(boost::asio::buffer(datagram)))
      received_ += size > 0 ? 1U : 0U;
  }
  boost::asio::io_context context_;
  udp::socket socket_{context_, udp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
  std::atomic<std::uint64_t> received_{0};
  std::thread thread_{[this] { receive(); }};
};

struct LogUnderLoad : ::testing::TestWithParam<bool> {
  static constexpr std::size_t kThreads = 16;
  static std::string line(std::size_t thread, std::size_t number) {
    return std::to_string(thread) + " " + std::to_string(number) + " " + std::string(number * 7 % 60, '.');
  }
  struct Found {
    std::uint64_t threads = 0, banners = 0, notices = 0, lost = 0;
  };
  /// What stands in the files: whole lines, in each thread's order and so none twice, and how many are said
  /// to be lost.
  Found readFiles() const {
    std::size_t files = 1;
    while (FileUtils::exists(LogFiles::path(directory.path(), "Test", files))) ++files;
    std::array<std::size_t, kThreads> next{};
    Found found;
    const std::string notice = "Log lines that were lost because the queue had no room for them: ";
    for (std::size_t file = files; file-- > 0;)
      for (const std::string& text : messagesIn(directory.path(), file)) {
        if (text == "banner") {
          ++found.banners;
          continue;
        }
        if (text.starts_with(notice)) {
          ++found.notices;
          found.lost += std::stoull(text.substr(notice.size()));
          continue;
        }
        ++found.threads;
        const std::size_t thread = std::stoul(text), number = std::stoul(text.substr(text.find(' ')));
        EXPECT_EQ(text, line(thread, number));
        EXPECT_GE(number, next.at(thread)) << "in file " << file;
        next.at(thread) = number + 1;
      }
    std::cout << files << " files, " << found.threads << " lines, " << found.lost << " lost\n";
    EXPECT_EQ(found.banners, files + 1);
    EXPECT_GT(files, 3U);
    return found;
  }
  const TempDirectory directory;
};

TEST_P(LogUnderLoad, EveryLineStandsOnceAndWholeAndInOrderAndIsSentOrNot) {
  const bool isPaced = GetParam(), isLong = environmentVariable("ZARN_LONG").has_value();
#ifdef _WIN32
  constexpr std::size_t shortLines = 500;
#else
  constexpr std::size_t shortLines = 4000;
#endif
  const std::size_t lines = isLong ? 1'000'000 : shortLines;
  sent = failed = 0;
  CountingCollector collector;
  ProbeLog log(directory.path(), {.fileBytes = isLong ? 1U << 20 : shortLines << 5});
  log.keptFiles = std::numeric_limits<std::int32_t>::max();
  log.whenOpened = [&] { log.submit(LogLevel::Info, "banner"); };
  log.startNetworkLog("127.0.0.1", collector.port(), std::numeric_limits<std::int32_t>::max());
  log.start("Test");
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([&, thread] {
      for (std::size_t number = 0; number < lines; ++number) {
        log.submit(LogLevel::Info, line(thread, number));
        if (isPaced && number % 1000 == 999) log.flush();
      }
    });
  for (std::thread& thread : threads) thread.join();
  log.flush();
  log.submit(LogLevel::Info, "banner");  // what was lost before is told with the next line that finds room
  log.flush();
  const Found found = readFiles();
  EXPECT_EQ(found.threads + found.lost, kThreads * lines);
  EXPECT_TRUE(!isPaced || found.lost == 0);
  const std::uint64_t dropped = collector.dropped();
  collector.stop();
  std::cout << collector.received() << " datagrams arrived, " << dropped << " dropped by the system, "
            << failed << " not sent\n";
  EXPECT_EQ(collector.received() + dropped + failed, found.threads + found.banners + found.notices);
#ifndef _WIN32
  EXPECT_GT(failed, 0U);
#endif
}

INSTANTIATE_TEST_SUITE_P(Paced, LogUnderLoad, ::testing::Bool());

}  // namespace
}  // namespace zarn::testing
