// Programs of nothing but headers and a certificate table, to be changed at will.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zarn::testing {

/// Writes `value` over `size` bytes at `offset`, lowest byte first.
inline void put(std::string& image, std::size_t offset, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) image.at(offset + i) = static_cast<char>(value >> (8 * i) & 0xFFU);
}

struct TableEntry {
  std::uint32_t length = 72;  ///< as it says itself; what it has is a multiple of eight
  std::uint16_t type = 2;     ///< PKCS #7 signed data
};

struct ProgramImage {
  explicit ProgramImage(bool is64Bit, const std::vector<TableEntry>& entries = {TableEntry()})
      : optionalHeader(kHeaders + 24), directories(optionalHeader + (is64Bit ? 112U : 96U)) {
    bytes.resize(table());
    put(bytes, 0, 0x5A4D, 2);  // "MZ"
    put(bytes, 0x3C, kHeaders, 4);
    put(bytes, kHeaders, 0x4550, 4);                         // "PE"
    put(bytes, kHeaders + 4, is64Bit ? 0x8664 : 0x014C, 2);  // the machine
    put(bytes, kHeaders + 20, table() - optionalHeader, 2);  // size of the optional header
    put(bytes, optionalHeader, is64Bit ? 0x20B : 0x10B, 2);
    put(bytes, directories - 4, 16, 4);  // their number
    for (const TableEntry& entry : entries) {
      const std::size_t offset = bytes.size();
      bytes.resize(offset + std::max(8U, (entry.length + 7U) / 8 * 8));
      put(bytes, offset, entry.length, 4);
      put(bytes, offset + 4, 0x0200, 2);  // the revision
      put(bytes, offset + 6, entry.type, 2);
    }
    claim(table(), bytes.size() - table());
  }

  /// Where the certificate table begins unless the headers were told otherwise.
  [[nodiscard]] std::size_t table() const { return directories + 16U * 8; }

  void claim(std::uint64_t offset, std::uint64_t size) {
    put(bytes, directories + 4U * 8, offset, 4);
    put(bytes, directories + 4U * 8 + 4, size, 4);
  }

  static constexpr std::size_t kHeaders = 64;
  std::size_t optionalHeader;
  std::size_t directories;
  std::string bytes;
};

/// The bytes of a program whose headers and one entry, of zeros, claim `length` bytes.
inline std::string claiming(std::uint64_t length) {
  ProgramImage image(true);
  image.claim(image.table(), length);
  put(image.bytes, image.table(), length, 4);
  return image.bytes;
}

}  // namespace zarn::testing
