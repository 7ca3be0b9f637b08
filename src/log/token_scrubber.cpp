#include "log/token_scrubber.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "log/scrub_rules.h"

// Nearly no line holds a marker, so the work is to find that out fast. One pass
// looks at 16 columns at a time for an "anchor" that each marker contains:
// without regard to case "ken" or "key" and then a byte up to '>', or else "yZ".
// At an anchor the few markers that can stand there are compared in full. The
// rules found so are then run in their order.
//
// That equals running all rules in order, because no marker contains the mask
// letter: a marker found after masking has no masked byte in it, so it stood
// there before.

namespace zarn {
namespace {

using RuleSet = std::uint32_t;

constexpr std::size_t kRuleCount = kScrubRules.size();
constexpr RuleSet kAllRules = (RuleSet{1} << kRuleCount) - 1;
constexpr RuleSet kCrashKeyRules = kAllRules & ~((RuleSet{1} << kFirstCrashKeyRule) - 1);

constexpr unsigned char kLargestFourthByte = '>';
constexpr std::size_t kAnchorBytes = 4;
constexpr std::size_t kNoAnchor = ~std::size_t{0};

constexpr char foldCase(char c) noexcept {
  return static_cast<char>(c | 0x20);
}

constexpr bool isTokenAnchor(std::string_view four) noexcept {
  return foldCase(four[0]) == 'k' && foldCase(four[1]) == 'e' &&
         (foldCase(four[2]) == 'n' || foldCase(four[2]) == 'y') &&
         static_cast<unsigned char>(four[3]) <= kLargestFourthByte;
}

constexpr bool isNameAnchor(std::string_view four) noexcept {
  return four[0] == 'y' && four[1] == 'Z';
}

/// Where in the rule's marker its anchor stands.
constexpr std::size_t anchorOf(std::string_view marker, bool (*isAnchor)(std::string_view) noexcept) {
  for (std::size_t i = 0; i + kAnchorBytes <= marker.size(); ++i) {
    if (isAnchor(marker.substr(i, kAnchorBytes))) return i;
  }
  return kNoAnchor;
}

struct Anchors {
  std::array<std::size_t, kRuleCount> offset{};
  /// Rules by the fourth byte of a token anchor.
  std::array<RuleSet, kLargestFourthByte + 1> byFourthByte{};
  /// Rules whose marker holds the name anchor and no token anchor.
  RuleSet named = 0;
};

consteval Anchors findAnchors() {
  Anchors anchors;
  for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
    const std::string_view marker = kScrubRules[rule].marker;
    const RuleSet bit = RuleSet{1} << rule;
    std::size_t offset = anchorOf(marker, isTokenAnchor);
    if (offset != kNoAnchor) {
      anchors.byFourthByte[static_cast<unsigned char>(marker[offset + 3])] |= bit;
    } else {
      offset = anchorOf(marker, isNameAnchor);
      anchors.named |= bit;
    }
    anchors.offset[rule] = offset;
  }
  return anchors;
}

constexpr Anchors kAnchors = findAnchors();

consteval bool everyMarker(bool (*holds)(std::string_view)) {
  for (const ScrubRule& rule : kScrubRules) {
    if (!holds(rule.marker)) return false;
  }
  return true;
}

consteval bool everyRuleHasAnAnchor() {
  for (const std::size_t offset : kAnchors.offset) {
    if (offset == kNoAnchor) return false;
  }
  return true;
}

static_assert(everyMarker([](std::string_view m) { return m.find(kScrubMask) == m.npos; }),
              "masking must never complete another marker");
static_assert(everyMarker([](std::string_view m) { return m.size() >= kAnchorBytes; }),
              "lines shorter than an anchor are not looked at");
static_assert(everyRuleHasAnAnchor(), "the filter would never see this marker");
static_assert(kRuleCount < 32, "RuleSet has a bit for each rule");

// ---- The filter ----------------------------------------------------------------

constexpr std::size_t kColumns = 16;
/// Bytes that one look at a block reads.
constexpr std::size_t kBlockBytes = kColumns + kAnchorBytes - 1;

__m128i load(const char* bytes) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

__m128i equals(__m128i bytes, char c) noexcept {
  return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c));
}

/// A bit for each of the 16 columns at which an anchor begins.
std::uint32_t anchorColumns(const char* bytes) noexcept {
  const __m128i caseBit = _mm_set1_epi8(0x20);
  const __m128i first = load(bytes);
  const __m128i second = load(bytes + 1);
  const __m128i third = _mm_or_si128(load(bytes + 2), caseBit);
  const __m128i fourth = load(bytes + 3);

  const __m128i ke =
      _mm_and_si128(equals(_mm_or_si128(first, caseBit), 'k'), equals(_mm_or_si128(second, caseBit), 'e'));
  const __m128i nOrY = _mm_or_si128(equals(third, 'n'), equals(third, 'y'));
  const __m128i smallFourth =
      _mm_cmpeq_epi8(_mm_min_epu8(fourth, _mm_set1_epi8(static_cast<char>(kLargestFourthByte))), fourth);
  const __m128i token = _mm_and_si128(_mm_and_si128(ke, nOrY), smallFourth);
  const __m128i name = _mm_and_si128(equals(first, 'y'), equals(second, 'Z'));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_or_si128(token, name)));
}

/// The rules whose marker stands in `text` with its anchor at `column`.
RuleSet rulesAt(std::string_view text, std::size_t column) noexcept {
  const auto fourth = static_cast<unsigned char>(text[column + 3]);
  RuleSet candidates = text[column] == 'y' ? kAnchors.named : kAnchors.byFourthByte[fourth];
  RuleSet found = 0;
  for (; candidates != 0; candidates &= candidates - 1) {
    const auto rule = static_cast<std::size_t>(std::countr_zero(candidates));
    const std::size_t offset = kAnchors.offset[rule];
    const std::string_view marker = kScrubRules[rule].marker;
    if (column < offset || text.size() - (column - offset) < marker.size()) continue;
    if (std::memcmp(text.data() + (column - offset), marker.data(), marker.size()) == 0) {
      found |= RuleSet{1} << rule;
    }
  }
  return found;
}

RuleSet rulesInBlock(std::string_view text, std::size_t begin) noexcept {
  RuleSet found = 0;
  for (std::uint32_t columns = anchorColumns(text.data() + begin); columns != 0; columns &= columns - 1) {
    found |= rulesAt(text, begin + static_cast<std::size_t>(std::countr_zero(columns)));
  }
  return found;
}

RuleSet rulesInShortText(std::string_view text) noexcept {
  // Zeros behind the text can complete an anchor but no marker.
  char padded[kBlockBytes] = {};
  std::copy(text.begin(), text.end(), padded);
  return rulesInBlock({padded, kBlockBytes}, 0);
}

/// Every rule whose marker occurs in `text`.
RuleSet rulesIn(std::string_view text) noexcept {
  if (text.size() < kAnchorBytes) return 0;
  if (text.size() < kBlockBytes) return rulesInShortText(text);
  RuleSet found = 0;
  const std::size_t last = text.size() - kBlockBytes;
  for (std::size_t begin = 0; begin < last; begin += kColumns) found |= rulesInBlock(text, begin);
  return found | rulesInBlock(text, last);  // may overlap the block before
}

// ---- Masking -------------------------------------------------------------------

void applyRule(const ScrubRule& rule, std::string& message) noexcept {
  std::size_t position = 0;
  while ((position = message.find(rule.marker, position)) != std::string::npos) {
    position += rule.marker.size();
    if (position < message.size() && (message[position] == '\'' || message[position] == '"')) ++position;
    const std::size_t masked = std::min(message.size() - position, rule.maskLength);
    std::memset(message.data() + position, kScrubMask, masked);
    position += masked;
  }
}

}  // namespace

void scrubTokens(std::string& message, bool crashKeysOnly) noexcept {
  RuleSet rules = rulesIn(message) & (crashKeysOnly ? kCrashKeyRules : kAllRules);
  for (; rules != 0; rules &= rules - 1) {
    applyRule(kScrubRules[static_cast<std::size_t>(std::countr_zero(rules))], message);
  }
}

}  // namespace zarn
