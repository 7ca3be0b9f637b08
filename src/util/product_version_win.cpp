#include <fmt/xchar.h>
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

#include "util/file_utils.h"
#include "util/product_version.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// The file's author chose the size; a real one stays below 64 KiB.
constexpr DWORD kMaxResourceBytes = 1U << 20U;

struct Translation {
  WORD language;
  WORD codePage;
};

/// The named text in the resource's first language.
std::string textOf(const void* resource, std::size_t resourceBytes, const wchar_t* name) {
  void* found = nullptr;
  UINT size = 0;
  if (VerQueryValueW(resource, L"\\VarFileInfo\\Translation", &found, &size) == 0 ||
      size < sizeof(Translation)) {
    return {};
  }
  const auto* const translation = static_cast<const Translation*>(found);
  const std::wstring block =
      fmt::format(L"\\StringFileInfo\\{:04x}{:04x}\\{}", translation->language, translation->codePage, name);
  if (VerQueryValueW(resource, block.c_str(), &found, &size) == 0 || size == 0) return {};
  // A block of the wrong kind counts bytes where characters are counted here.
  const auto* const begin = static_cast<const std::byte*>(found);
  const auto* const end = static_cast<const std::byte*>(resource) + resourceBytes;
  if (begin < resource || begin >= end) return {};
  const std::size_t most = static_cast<std::size_t>(end - begin) / sizeof(wchar_t);
  std::wstring text(static_cast<const wchar_t*>(found), std::min<std::size_t>(size, most));
  text.resize(text.find(L'\0') == std::wstring::npos ? text.size() : text.find(L'\0'));
  return StringUtils::utf16to8(text);
}

std::optional<ProductVersion> numberOf(const void* resource) {
  void* found = nullptr;
  UINT size = 0;
  if (VerQueryValueW(resource, L"\\", &found, &size) == 0 || size < sizeof(VS_FIXEDFILEINFO)) {
    return std::nullopt;
  }
  const auto& information = *static_cast<const VS_FIXEDFILEINFO*>(found);
  if (information.dwSignature != VS_FFI_SIGNATURE) return std::nullopt;
  return ProductVersion{{HIWORD(information.dwProductVersionMS), LOWORD(information.dwProductVersionMS),
                         HIWORD(information.dwProductVersionLS), LOWORD(information.dwProductVersionLS)}};
}

}  // namespace

FileVersion readFileVersion(const std::string& path) {
  const auto file = FileUtils::toPath(path);
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(file.c_str(), &ignored);
  if (size == 0 || size > kMaxResourceBytes) return {};
  std::vector<std::byte> resource(size);
  if (GetFileVersionInfoW(file.c_str(), 0, size, resource.data()) == 0) return {};
  return {textOf(resource.data(), size, L"ProductName"), textOf(resource.data(), size, L"ProductVersion"),
          numberOf(resource.data())};
}

}  // namespace zarn
