#include "client/tool/machine/collected_text.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "client/tool/machine/files.h"
#include "log/token_scrubber.h"
#include "os/files.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr std::string_view kUtf16Mark = "\xff\xfe";

/// A line with its secrets masked, and as it was. Where a mask lies over the beginning of an
/// address, only the latter shows that a password follows.
struct Line {
  std::string shown;
  std::string original;

  void mask(std::size_t at, std::size_t length) {
    for (std::string* const text : {&shown, &original}) text->replace(at, length, "***");
  }
};

/// Names and passwords in the addresses of a line. Where an address ends is not known when a
/// password has signs of its own, so all up to the last "@" before a blank is one.
void maskSignIns(Line& line) {
  constexpr std::string_view separator = "://";
  const std::string& text = line.original;
  for (std::size_t at = 0; (at = text.find(separator, at)) != std::string::npos;) {
    at += separator.size();
    const std::size_t end = std::min(text.find_first_of(" \t\"'<>", at), text.size());
    const std::size_t sign = std::string_view(text).substr(0, end).rfind('@');
    if (sign != std::string::npos && sign >= at) line.mask(at, sign - at);
  }
}

/// The same where an address has no scheme: a colon that begins no path, and "@" behind it.
void maskSignInsWithoutScheme(Line& line) {
  constexpr std::string_view ends = " \t\"'<>=,;()";
  const std::string& text = line.original;
  for (std::size_t at = 0; (at = text.find_first_not_of(ends, at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(ends, at), text.size());
    const std::string_view word = std::string_view(text).substr(at, end - at);
    const std::size_t colon = word.find(':'), sign = word.rfind('@');
    const bool isSignIn =
        sign != std::string_view::npos && colon < sign && word[colon + 1] != '/' && word[colon + 1] != '\\';
    if (isSignIn) {
      line.mask(at, sign);  // after which the word is none any more
    } else {
      at = end;
    }
  }
}

std::string utf8OfUtf16(std::string_view bytes) {
  std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  std::ranges::replace(text, L'\0', L' ');  // which would end the text
  return StringUtils::utf16to8(text);
}

}  // namespace

std::string masked(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    Line line{std::string(text.substr(0, end)), std::string(text.substr(0, end))};
    scrubTokens(line.shown, false);  // which leaves everything at its place
    maskSignIns(line);
    maskSignInsWithoutScheme(line);
    result += line.shown;
    if (end < text.size()) result += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

Result<std::string> readLogText(const FileUtils::HeldFolder& folder, const std::string& name,
                                std::int64_t maximumBytes) {
  const auto file = folder.open(name, "rb");
  if (!file) return failure(file.error());
  std::string mark(kUtf16Mark.size(), '\0');
  mark.resize(std::fread(mark.data(), 1, mark.size(), file->get()));
  auto end = readEnd(folder, name, maximumBytes & ~std::int64_t{1});
  if (!end) return failure(end.error());
  std::string_view bytes = end->bytes;
  const bool isUtf16 = mark == kUtf16Mark;
  if (isUtf16 && !end->isCut) bytes.remove_prefix(kUtf16Mark.size());
  std::string text = isUtf16 ? utf8OfUtf16(bytes) : std::string(bytes);
  return end->isCut ? "... (the beginning is left out)\n" + text : std::move(text);
}

}  // namespace zarn::tool
