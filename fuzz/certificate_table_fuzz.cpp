// A certificate table comes from whoever wrote the file: judging it reads nothing
// outside, and what it accepts is bounded and of one type, as a second and simpler
// reading finds. The first bytes say how large the file is, so that small inputs
// stand for large files; what they do not hold reads as zeros.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "trust/certificate_table.h"

namespace {

struct SparseFile {
  std::uint64_t size = 0;
  const std::uint8_t* data = nullptr;
  std::size_t held = 0;

  [[nodiscard]] std::uint32_t number(std::uint64_t offset, std::size_t bytes) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
      if (offset + i < held) value |= std::uint32_t{data[offset + i]} << (8 * i);
    }
    return value;
  }
};

void requireSound(const SparseFile& file, const zarn::CertificateTable& table) {
  const std::uint64_t header = std::uint64_t{file.number(0x3C, 4)} + 24;
  const std::uint64_t directory = header + (file.number(header, 2) == 0x20B ? 112 : 96) + 4 * 8;
  const std::uint64_t begin = file.number(directory, 4);
  const std::uint64_t size = file.number(directory + 4, 4);
  if (size == 0 || size > (16U << 20U) || begin + size > file.size) std::abort();
  if (table.firstEntryBytes != file.number(begin, 4)) std::abort();
  for (std::uint64_t at = 0; at < size;) {
    const std::uint32_t length = file.number(begin + at, 4);
    if (length < 8 || length > size - at || file.number(begin + at + 6, 2) != 2) std::abort();
    at = (at + length + 7) & ~std::uint64_t{7};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint64_t fileBytes = 0;
  if (size < sizeof(fileBytes)) return 0;
  std::memcpy(&fileBytes, data, sizeof(fileBytes));
  const SparseFile file{fileBytes, data + sizeof(fileBytes),
                        std::min<std::uint64_t>(size - sizeof(fileBytes), fileBytes)};
  const auto table =
      zarn::judgeCertificateTable(fileBytes, [&](std::uint64_t offset, std::span<std::byte> bytes) {
        if (offset > fileBytes || bytes.size() > fileBytes - offset) std::abort();
        for (std::size_t i = 0; i < bytes.size(); ++i) {
          bytes[i] = static_cast<std::byte>(file.number(offset + i, 1));
        }
        return true;
      });
  if (table.isAcceptable()) requireSound(file, table);
  return 0;
}
