#include "trust/certificate_table.h"

#include <array>
#include <optional>

namespace zarn {
namespace {

// Offsets and values of the Portable Executable format, for 32-bit (PE32) and
// 64-bit (PE32+) programs. The system's names would need its headers.
constexpr std::uint32_t kDosSignature = 0x5A4D;  // "MZ"
constexpr std::uint64_t kOffsetOfHeaderOffset = 0x3C;
constexpr std::uint32_t kSignature = 0x00004550;  // "PE", 0, 0
constexpr std::uint64_t kOptionalHeader = 24;     // behind the signature and the file header
constexpr std::uint32_t kMagic32 = 0x10B;
constexpr std::uint32_t kMagic64 = 0x20B;
constexpr std::uint64_t kDirectories32 = 96;  // within the optional header
constexpr std::uint64_t kDirectories64 = 112;
constexpr std::uint64_t kCountBeforeDirectories = 4;
constexpr std::uint32_t kSecurityDirectory = 4;
constexpr std::uint64_t kDirectoryBytes = 8;

// An entry is its length, a revision, a type and its content.
constexpr std::uint32_t kEntryHeaderBytes = 8;
constexpr std::uint64_t kTypeInEntry = 6;
constexpr std::uint32_t kPkcs7SignedData = 2;
constexpr std::uint64_t kEntryAlignment = 8;

class ImageReader {
 public:
  ImageReader(std::uint64_t fileBytes, const ReadAt& readAt) : fileBytes_(fileBytes), readAt_(readAt) {}

  [[nodiscard]] bool contains(std::uint64_t offset, std::uint64_t size) const {
    return offset <= fileBytes_ && size <= fileBytes_ - offset;
  }

  /// Little-endian, 2 or 4 bytes; nothing when they are not to be had.
  template <std::size_t size>
  [[nodiscard]] std::optional<std::uint32_t> number(std::uint64_t offset) const {
    std::array<std::byte, size> bytes{};
    if (!contains(offset, size) || !readAt_(offset, bytes)) return std::nullopt;
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = (value << 8U) | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
  }

 private:
  const std::uint64_t fileBytes_;
  const ReadAt& readAt_;
};

struct Place {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  std::uint64_t endOfHeaders = 0;  ///< as far as they are read here
};

/// Where the headers say that the table is; nothing without headers or without a table.
std::optional<Place> findTable(const ImageReader& image) {
  if (image.number<2>(0) != kDosSignature) return std::nullopt;
  const auto headers = image.number<4>(kOffsetOfHeaderOffset);
  if (!headers || image.number<4>(*headers) != kSignature) return std::nullopt;
  const std::uint64_t optionalHeader = *headers + kOptionalHeader;
  const auto magic = image.number<2>(optionalHeader);
  if (magic != kMagic32 && magic != kMagic64) return std::nullopt;
  const std::uint64_t directories = optionalHeader + (magic == kMagic32 ? kDirectories32 : kDirectories64);
  const auto count = image.number<4>(directories - kCountBeforeDirectories);
  if (!count || *count <= kSecurityDirectory) return std::nullopt;
  const std::uint64_t entry = directories + kSecurityDirectory * kDirectoryBytes;
  // Unlike those of other directories, this address is an offset in the file.
  const auto offset = image.number<4>(entry);
  const auto size = image.number<4>(entry + sizeof(std::uint32_t));
  if (!offset || !size || *size == 0) return std::nullopt;
  return Place{*offset, *size, entry + kDirectoryBytes};
}

/// The length of the entry at `offset`, of which `left` bytes of the table are left;
/// nothing for one that no parser may see.
std::optional<std::uint32_t> acceptableEntry(const ImageReader& image, std::uint64_t offset,
                                             std::uint64_t left) {
  if (left < kEntryHeaderBytes) return std::nullopt;
  const auto length = image.number<4>(offset);
  if (!length || *length < kEntryHeaderBytes || *length > left) return std::nullopt;
  if (image.number<2>(offset + kTypeInEntry) != kPkcs7SignedData) return std::nullopt;
  return length;
}

}  // namespace

CertificateTable judgeCertificateTable(std::uint64_t fileBytes, const ReadAt& readAt) {
  using Verdict = CertificateTable::Verdict;
  const ImageReader image(fileBytes, readAt);
  const auto table = findTable(image);
  if (!table) return {Verdict::Missing};
  // A table in the headers could change what it is described by, and one of any size
  // would make a parser allocate as much.
  if (table->size > kMaxCertificateTableBytes || table->offset < table->endOfHeaders ||
      !image.contains(table->offset, table->size)) {
    return {Verdict::Refused};
  }
  CertificateTable judged{Verdict::Acceptable};
  std::size_t entries = 0;
  for (std::uint64_t position = 0; position < table->size;) {
    const auto length = acceptableEntry(image, table->offset + position, table->size - position);
    if (!length || ++entries > kMaxCertificateEntries) return {Verdict::Refused};
    if (entries == 1) judged.firstEntryBytes = *length;
    const std::uint64_t behind = position + *length;
    position = (behind + kEntryAlignment - 1) / kEntryAlignment * kEntryAlignment;
    // Some parsers look for the next entry right behind this one and others at a
    // multiple of eight, in the table or in the file: all must find the same.
    const bool isAmbiguous = position != behind || table->offset % kEntryAlignment != 0;
    if (position < table->size && isAmbiguous) return {Verdict::Refused};
  }
  return judged;
}

}  // namespace zarn
