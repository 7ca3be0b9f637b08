// A certificate table comes from whoever wrote the file: judging it reads nothing
// outside, and what it accepts is bounded and of one type, as a second and simpler
// reading finds. The first bytes say how large the file is, so that small inputs
// stand for large files; what they do not hold reads as zeros.
#include <cstring>

#include "fuzz.h"
#include "trust/certificate_table.h"

namespace {

using zarn::fuzz::require;

struct SparseFile {
  std::uint64_t size = 0;
  std::string held;

  [[nodiscard]] std::uint32_t number(std::uint64_t offset, std::size_t bytes) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes && offset + i < held.size(); ++i)
      value |= std::uint32_t{static_cast<std::uint8_t>(held[offset + i])} << (8 * i);
    return value;
  }
};

void requireSound(const SparseFile& file, const zarn::CertificateTable& table) {
  const std::uint64_t header = std::uint64_t{file.number(0x3C, 4)} + 24;
  const std::uint64_t directory = header + (file.number(header, 2) == 0x20B ? 112 : 96) + 4 * 8;
  const std::uint64_t begin = file.number(directory, 4);
  const std::uint64_t size = file.number(directory + 4, 4);
  require(size != 0 && size <= (16U << 20U) && begin + size <= file.size);
  require(table.firstEntryBytes == file.number(begin, 4));
  for (std::uint64_t at = 0; at < size;) {
    const std::uint32_t length = file.number(begin + at, 4);
    require(length >= 8 && length <= size - at && file.number(begin + at + 6, 2) == 2);
    at = (at + length + 7) & ~std::uint64_t{7};
  }
}

void judgeTable(const std::string& text) {
  SparseFile file;
  if (text.size() < sizeof(file.size)) return;
  std::memcpy(&file.size, text.data(), sizeof(file.size));
  file.held = text.substr(sizeof(file.size), file.size);
  const auto table =
      zarn::judgeCertificateTable(file.size, [&](std::uint64_t offset, std::span<std::byte> bytes) {
        require(offset <= file.size && bytes.size() <= file.size - offset);
        for (std::byte& byte : bytes) byte = static_cast<std::byte>(file.number(offset++, 1));
        return true;
      });
  if (table.isAcceptable()) requireSound(file, table);
}

const zarn::fuzz::Target kCertificateTable("certificate_table", judgeTable);

}  // namespace
