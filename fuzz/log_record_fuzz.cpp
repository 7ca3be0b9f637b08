// What was logged goes to the collector as one datagram and to the file as one line, and
// nothing of a secret behind a marker goes with it.
#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <limits>

#include "fuzz.h"
#include "log/base_log.h"
#include "log/log_line.h"
#include "log/network_log.h"
#include "log/token_scrubber.h"
#include "util/printable.h"

namespace {

using boost::asio::ip::udp;
using zarn::fuzz::require;

/// Without a start every line is written by whoever logs it, and to the collector alone.
class SentLog final : public zarn::BaseLog {
 public:
  SentLog() {
    setThreshold(zarn::LogLevel::Verbose);
    collector_.non_blocking(true);
    startNetworkLog("127.0.0.1", collector_.local_endpoint().port(),
                    std::numeric_limits<std::int64_t>::max());
  }
  void createLogDirectories() override {}
  std::string logDirectory() override { return {}; }
  std::int32_t rotatedFileCount() override { return 0; }
  std::string accountUserName() override { return user; }
  void onFileOpened() override {}
  void scrubMessage(std::string& message) override {
    zarn::scrubTokens(message, false);
    scrubbed = message;
  }

  /// The one datagram that comes of a line.
  std::string sent(zarn::LogLevel level, const std::string& message) {
    submit(level, message);
    std::string datagram = received();
    require(!datagram.empty() && received().empty());
    return datagram;
  }

  std::string user, scrubbed;

 private:
  std::string received() {
    boost::system::error_code error;
    return buffer_.substr(0, collector_.receive(boost::asio::buffer(buffer_), 0, error));
  }

  std::string buffer_ = std::string(2 * zarn::kMaximumDatagramBytes, '\0');
  boost::asio::io_context context_;
  udp::socket collector_{context_, udp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
};

constexpr std::string_view kSecret = "S3cr3t-T0ken-0f-2O!x";

bool hasOfSecret(const std::string& text) {
  return text.find(kSecret.substr(0, 6)) != std::string::npos ||
         text.find(kSecret.substr(14)) != std::string::npos;
}

/// No other rule masks the marker itself, or some of the secret's place.
bool isMarkedOnce(const std::string& head, std::string_view marker) {
  return std::ranges::none_of(zarn::kScrubRules, [&](const zarn::ScrubRule& rule) {
    return (head + std::string(marker)).find(rule.marker) < head.size();
  });
}

void judgeRecord(const std::string& input) {
  static auto& log = *new SentLog;  // its sockets live as long as the process
  zarn::fuzz::Taking taking(input);
  const auto level = static_cast<zarn::LogLevel>(taking.byte() % 5);
  const auto& rule = zarn::kScrubRules.at(taking.byte() % zarn::kScrubRules.size());
  const std::size_t quote = taking.byte();
  log.user = taking.text(taking.byte());
  const std::string head = taking.text(taking.byte());
  const std::string message = zarn::printable(head) + std::string(rule.marker) +
                              std::string(quote % 3 == 0 ? 1 : 0, quote % 2 == 0 ? '"' : '\'') +
                              std::string(kSecret) + taking.rest();
  const std::string datagram = log.sent(level, message);
  require(datagram.size() <= zarn::kMaximumDatagramBytes && datagram.starts_with("<1"));
  require(std::ranges::none_of(datagram, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }));
  zarn::LogItem item{{level, 1, {}}, zarn::printable(log.scrubbed)};
  const std::string line(zarn::LogLineRenderer().render(item));
  require(line.find('\n') == line.size() - 1);
  const std::string around = head + "\n" + taking.rest() + "\n" + log.user;
  if (hasOfSecret(around) || hasOfSecret(zarn::printable(around)) ||
      !isMarkedOnce(zarn::printable(head), rule.marker))
    return;
  require(log.scrubbed.size() == message.size());
  require(!hasOfSecret(datagram) && !hasOfSecret(line) && !hasOfSecret(log.scrubbed));
}

const zarn::fuzz::Target kLogRecord("log_record", judgeRecord);

}  // namespace
