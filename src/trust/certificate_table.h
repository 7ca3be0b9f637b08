// Whether a program's certificate table may be shown to the system's parsers.
//
// The table is the file author's: it may claim any size, lie anywhere and hold
// entries that make a parser fault or give memory away. It is judged here, with a
// few small reads, before anybody else sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace zarn {

/// Far above any signature: real ones, time stamps included, stay below 64 KiB.
inline constexpr std::uint32_t kMaxCertificateTableBytes = 16U << 20U;
inline constexpr std::size_t kMaxCertificateEntries = 64;

/// Fills `bytes` with what the file holds from `offset` on; false when it cannot.
using ReadAt = std::function<bool(std::uint64_t offset, std::span<std::byte> bytes)>;

struct CertificateTable {
  enum class Verdict : std::uint8_t {
    Missing,     ///< no PE32 or PE32+ program, or one without a table: an unsigned file
    Acceptable,  ///< lies in the file and holds nothing but PKCS #7 signed data
    Refused,
  };
  Verdict verdict = Verdict::Refused;
  /// What the first entry claims, its header included; 0 unless acceptable.
  std::uint32_t firstEntryBytes = 0;

  [[nodiscard]] bool isAcceptable() const noexcept { return verdict == Verdict::Acceptable; }
};

/// Of a file of `fileBytes`, within which every read stays. Acceptable is a table of
/// at most kMaxCertificateTableBytes that lies behind the headers and in the file,
/// and is filled by at most kMaxCertificateEntries entries, each of them at least a
/// header long, in the table to its end and of the type "PKCS #7 signed data".
[[nodiscard]] CertificateTable judgeCertificateTable(std::uint64_t fileBytes, const ReadAt& readAt);

}  // namespace zarn
