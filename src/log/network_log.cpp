#include "log/network_log.h"

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/system/system_error.hpp>
#include <ctime>
#include <exception>
#include <iterator>
#include <utility>
#include <vector>

#include "log/log_line.h"
#include "log/reachable_endpoint.h"
#include "os/clock.h"
#include "os/text.h"
#include "util/exceptions.h"

namespace zarn {
namespace {

using boost::asio::ip::udp;

constexpr std::size_t kTimestampBytes = 128;

bool isControl(char c) noexcept {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

/// `bytes`, or a few less so that no UTF-8 character is cut in two.
std::size_t cutBetweenCharacters(std::string_view text, std::size_t bytes) noexcept {
  constexpr std::size_t longestTail = 3;
  for (std::size_t end = bytes; end + longestTail >= bytes && end > 0; --end) {
    if ((static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U) return end;
  }
  return bytes;  // no UTF-8
}

std::string sendingTime() {
  const std::tm fields = localCalendarTime(os::wallTime().seconds);
  std::array<char, kTimestampBytes> buffer{};
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), "%b %d %H:%M:%S", &fields)};
}

}  // namespace

// Facility "local use 0" with the severity behind it: 16 * 8 + severity. Collectors are
// set up for these numbers, odd as the last one is (see the header).
std::uint32_t syslogPriority(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::Error:
      return 128;
    case LogLevel::Warn:
      return 132;
    case LogLevel::Info:
      return 134;
    case LogLevel::Debug:
      return 135;
    case LogLevel::Verbose:
      return 136;
  }
  return 128;
}

std::string syslogRecord(LogLevel level, std::string_view timeText, std::string_view baseName,
                         std::string_view userName, std::string_view message) {
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) message.remove_suffix(1);

  std::string record = "<" + std::to_string(syslogPriority(level)) + ">";
  record.append(timeText).append(" x ");
  std::copy_if(baseName.begin(), baseName.end(), std::back_inserter(record), [](char c) { return c != ' '; });
  record.append(": [").append(userName).append("] ");
  // What is cut away below need not be copied first.
  record.append(message.substr(0, kMaximumDatagramBytes + 1));
  std::replace_if(record.begin(), record.end(), isControl, ' ');
  if (record.size() > kMaximumDatagramBytes) {
    record.resize(cutBetweenCharacters(record, kMaximumDatagramBytes));
  }
  return record;
}

// ---- The socket ------------------------------------------------------------------

struct CollectorSocket::Connection {
  boost::asio::io_context context{1};
  udp::endpoint endpoint;
  udp::socket socket{context};
};

udp::endpoint reachableEndpoint(const std::vector<udp::endpoint>& endpoints) {
  // Connecting a datagram socket sends nothing, but fails without a route. The socket
  // that sends is another one, and not connected: the system would report on it that
  // nobody listens, and a line would be lost for that report.
  boost::asio::io_context context{1};
  const auto isReachable = [&context](const udp::endpoint& endpoint) {
    udp::socket socket(context);
    boost::system::error_code error;
    socket.open(endpoint.protocol(), error);
    if (!error) socket.connect(endpoint, error);
    return !error;
  };
  const auto found = std::find_if(endpoints.begin(), endpoints.end(), isReachable);
  return found != endpoints.end() ? *found : endpoints.front();
}

CollectorSocket::CollectorSocket(const std::string& host, std::uint16_t port)
    : connection_(std::make_unique<Connection>()) {
  // A name may have addresses of both families while the machine reaches only one.
  udp::resolver resolver(connection_->context);
  std::vector<udp::endpoint> endpoints;
  for (const auto& result : resolver.resolve(host, std::to_string(port), udp::resolver::numeric_service)) {
    endpoints.push_back(result.endpoint());
  }
  connection_->endpoint = reachableEndpoint(endpoints);
  connection_->socket.open(connection_->endpoint.protocol());
  // A full send buffer must cost the copy, not hold up the writer.
  connection_->socket.non_blocking(true);
}

CollectorSocket::~CollectorSocket() = default;

void CollectorSocket::send(std::string_view datagram) {
  connection_->socket.send_to(boost::asio::buffer(datagram.data(), datagram.size()), connection_->endpoint);
}

void CollectorSocket::close() {
  connection_->socket.close();
}

// ---- The networked log -------------------------------------------------------------

void NetworkLog::start(std::unique_ptr<CollectorSocket> socket, std::int64_t expiry) {
  stop();
  socket_ = std::move(socket);
  expiry_ = expiry;
}

void NetworkLog::stop() noexcept {
  // Off before anything can fail: a socket that cannot be closed is not used again.
  expiry_ = kOff;
  const auto closing = std::move(socket_);
  quietly([&] {
    if (closing) closing->close();  // the socket is gone either way
  });
}

void NetworkLog::send(LogLevel level, std::string_view baseName, std::string_view userName,
                      std::string_view message) {
  // What is not sent is not tried again; the line still goes to the file.
  quietly([&] { socket_->send(syslogRecord(level, sendingTime(), baseName, userName, message)); });
}

std::optional<Collector> parseCollector(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    return std::nullopt;  // where the address ends cannot be told
  }
  const auto port = os::parseNumber<std::uint16_t>(text.substr(colon + 1));
  if (!port || *port == 0 || host.empty()) return std::nullopt;
  return Collector{std::string(host), *port};
}

std::optional<std::int32_t> parseCollectorMinutes(std::string_view text) {
  const auto minutes = os::parseNumber<std::int32_t>(text);
  return minutes && *minutes >= 1 ? minutes : std::nullopt;
}

}  // namespace zarn
