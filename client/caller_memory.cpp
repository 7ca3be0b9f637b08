#include "client/caller_memory.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "util/structured_exception.h"

namespace zarn::client {
namespace {

/// Pages are at least so large; what can be read of one can be read to its end.
constexpr std::size_t kPageBytes = 4096;

constexpr bool isHighSurrogate(wchar_t unit) noexcept {
  return unit >= 0xD800 && unit < 0xDC00;
}

constexpr DWORD kWritable = PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
constexpr DWORD kReadable = kWritable | PAGE_READONLY | PAGE_EXECUTE_READ;

/// Whether pages are what their owner would need to touch them. A page that guards a stack is not
/// touched: the fault would be the only sign that its owner gets.
bool isOpenFor(DWORD protection, const void* from, std::size_t bytes) noexcept {
  auto at = reinterpret_cast<std::uintptr_t>(from);
  const std::uintptr_t end = at + bytes;
  if (end < at) return false;
  while (at < end) {
    MEMORY_BASIC_INFORMATION region{};
    if (VirtualQuery(reinterpret_cast<const void*>(at), &region, sizeof(region)) == 0) return false;
    const bool isOpen = region.State == MEM_COMMIT && (region.Protect & protection) != 0 &&
                        (region.Protect & PAGE_GUARD) == 0;
    if (!isOpen) return false;
    at = reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
  }
  return true;
}

bool readSize(const void* record, std::uint32_t firstSize, std::uint32_t& size) noexcept {
  return readMemory(record, &size, sizeof(size)) && size >= firstSize && size <= kMostRecordBytes;
}

bool isZero(const std::byte* from, std::size_t bytes) noexcept {
  std::array<std::byte, 256> part{};
  while (bytes > 0) {
    const std::size_t count = std::min(bytes, part.size());
    const auto end = part.begin() + static_cast<std::ptrdiff_t>(count);
    if (!readMemory(from, part.data(), count) ||
        std::any_of(part.begin(), end, [](std::byte byte) { return byte != std::byte{0}; })) {
      return false;
    }
    from += count;
    bytes -= count;
  }
  return true;
}

}  // namespace

bool readMemory(const void* from, void* to, std::size_t bytes) noexcept {
  SIZE_T done = 0;
  return isOpenFor(kReadable, from, bytes) &&
         ReadProcessMemory(GetCurrentProcess(), from, to, bytes, &done) != 0 && done == bytes;
}

bool writeMemory(void* to, const void* from, std::size_t bytes) noexcept {
  // Not the debuggers' call for that: it may change what a page is for, which some processes forbid.
  // Another thread of the caller's may have given the page back since the look at it.
  return isOpenFor(kWritable, to, bytes) &&
         callCatching([&] { std::memcpy(to, from, bytes); }, catchEvery) == 0;
}

TextRead readText(const wchar_t* from, std::size_t mostUnits, std::wstring& text) {
  const auto address = reinterpret_cast<std::uintptr_t>(from);
  text.assign(mostUnits + 1, L'\0');
  auto* const to = reinterpret_cast<std::byte*>(text.data());
  const std::size_t most = text.size() * sizeof(wchar_t);
  for (std::size_t done = 0, seen = 0; done < most;) {
    const std::size_t count = std::min(most - done, kPageBytes - (address + done) % kPageBytes);
    if (!readMemory(reinterpret_cast<const void*>(address + done), to + done, count))
      return TextRead::Unreadable;
    done += count;
    // A unit may lie on two pages: only whole ones are looked at.
    const std::size_t whole = done / sizeof(wchar_t);
    const std::size_t end = std::wstring_view(text).substr(0, whole).find(L'\0', seen);
    if (end != std::wstring_view::npos) {
      text.resize(end);
      return TextRead::Whole;
    }
    seen = whole;
  }
  return TextRead::TooLong;
}

bool writeText(wchar_t* to, std::size_t units, std::wstring_view text) {
  if (units == 0) return false;
  std::wstring cut(text.substr(0, units - 1));
  if (cut.size() < text.size() && !cut.empty() && isHighSurrogate(cut.back())) cut.pop_back();
  return writeMemory(to, cut.c_str(), (cut.size() + 1) * sizeof(wchar_t));
}

bool readRecord(const void* from, void* to, std::uint32_t bytes, std::uint32_t firstSize) {
  std::uint32_t size = 0;
  if (!readSize(from, firstSize, size)) return false;
  const std::size_t known = std::min(size, bytes);
  return readMemory(from, to, known) && isZero(static_cast<const std::byte*>(from) + known, size - known);
}

std::uint32_t recordRoom(const void* record, std::uint32_t bytes, std::uint32_t firstSize) noexcept {
  std::uint32_t size = 0;
  return readSize(record, firstSize, size) ? std::min(size, bytes) : 0;
}

}  // namespace zarn::client
