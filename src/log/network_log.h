// Copies of log lines for a syslog collector, as UDP datagrams, for a limited time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "util/logging.h"

namespace zarn {

inline constexpr std::size_t kMaximumDatagramBytes = 1024;

/// The syslog priority of a level. Verbose deliberately lies outside the facility
/// of the others, and errors have the highest severity.
[[nodiscard]] std::uint32_t syslogPriority(LogLevel level) noexcept;

/// One record, of at most kMaximumDatagramBytes, cut between characters:
///
///   <134>Nov 15 22:42:15 x ZarnUpdateService: [user] message
///
/// `timeText` is the time of sending and `baseName` that of the log, whose blanks
/// are left out. A line break at the message's end is dropped and every other
/// control character becomes a blank, so that nothing in a message can begin a
/// second record.
[[nodiscard]] std::string syslogRecord(LogLevel level, std::string_view timeText, std::string_view baseName,
                                       std::string_view userName, std::string_view message);

/// A UDP socket towards one collector.
class CollectorSocket {
 public:
  /// Resolves a name, which may wait for the network. Throws a std::exception on failure.
  CollectorSocket(const std::string& host, std::uint16_t port);
  CollectorSocket(const CollectorSocket&) = delete;
  CollectorSocket& operator=(const CollectorSocket&) = delete;
  ~CollectorSocket();

  /// Never waits. Throws boost::system::system_error for "send_to".
  void send(std::string_view datagram);
  /// Throws boost::system::system_error for "close".
  void close();

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

/// The networked copy of one log: off until start(). Owns its socket. Not for two threads
/// at once: the logger holds its write lock around every call.
class NetworkLog {
 public:
  /// Copies lines until `expiry`, in seconds since the epoch.
  void start(std::unique_ptr<CollectorSocket> socket, std::int64_t expiry);
  void stop() noexcept;

  [[nodiscard]] bool isOn() const noexcept { return expiry_ != kOff && expiry_ != 0; }
  [[nodiscard]] bool isExpired(std::int64_t now) const noexcept { return now > expiry_; }

  /// Sends one scrubbed line. A failure is passed over and nothing is sent again, since
  /// the line still goes to the file.
  void send(LogLevel level, std::string_view baseName, std::string_view userName, std::string_view message);

 private:
  static constexpr std::int64_t kOff = -1;

  std::int64_t expiry_ = kOff;
  std::unique_ptr<CollectorSocket> socket_;
};

// What configures the copy, for how long included: both or neither must be set.

struct Collector {
  std::string host;
  std::uint16_t port = 0;
};

/// Reads "host:port", an IPv6 address in brackets; nothing when it is neither.
[[nodiscard]] std::optional<Collector> parseCollector(std::string_view text);

/// Reads a positive number; nothing when it is none.
[[nodiscard]] std::optional<std::int32_t> parseCollectorMinutes(std::string_view text);

}  // namespace zarn
