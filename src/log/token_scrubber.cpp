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

/// The eight bytes of text that end with an anchor, as one number; what a
/// marker wants them to be.
struct Neighbours {
  std::uint64_t bytes = 0;
  std::uint64_t mask = 0;  ///< zero where the marker has no byte

  [[nodiscard]] constexpr bool match(std::uint64_t text) const noexcept { return (text & mask) == bytes; }
};

constexpr std::size_t kBytesBeforeAnchor = sizeof(std::uint64_t) - kAnchorBytes;

constexpr Neighbours neighboursOf(std::string_view marker, std::size_t anchor) {
  Neighbours result;
  for (std::size_t i = 0; i < sizeof(std::uint64_t); ++i) {
    if (anchor + i < kBytesBeforeAnchor) continue;  // before the marker
    const char byte = marker[anchor + i - kBytesBeforeAnchor];
    result.bytes |= std::uint64_t{static_cast<unsigned char>(byte)} << (8 * i);
    result.mask |= std::uint64_t{0xFF} << (8 * i);
  }
  return result;
}

/// Rules whose anchors look alike to the filter, and what they agree on.
struct AnchorClass {
  RuleSet rules = 0;
  Neighbours common;

  constexpr void add(RuleSet rule, const Neighbours& other) {
    if (rules == 0) common = other;
    rules |= rule;
    const std::uint64_t differing = common.bytes ^ other.bytes;  // no marker holds a zero byte
    for (std::uint64_t byte = 0xFF; byte != 0; byte <<= 8) {
      if ((differing & byte) != 0) common.mask &= ~byte;
    }
    common.bytes &= common.mask;
  }
};

struct Anchors {
  std::array<std::size_t, kRuleCount> offset{};
  std::array<Neighbours, kRuleCount> neighbours{};
  /// Markers with a token anchor, by its fourth byte.
  std::array<AnchorClass, kLargestFourthByte + 1> byFourthByte{};
  /// Markers with a name anchor and no token anchor.
  AnchorClass named;
};

consteval Anchors findAnchors() {
  Anchors anchors;
  for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
    const std::string_view marker = kScrubRules[rule].marker;
    const std::size_t token = anchorOf(marker, isTokenAnchor);
    const std::size_t offset = token != kNoAnchor ? token : anchorOf(marker, isNameAnchor);
    AnchorClass& alike = token != kNoAnchor
                             ? anchors.byFourthByte[static_cast<unsigned char>(marker[token + 3])]
                             : anchors.named;
    anchors.offset[rule] = offset;
    anchors.neighbours[rule] = neighboursOf(marker, offset);  // does not compile without an anchor
    alike.add(RuleSet{1} << rule, anchors.neighbours[rule]);
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

static_assert(everyMarker([](std::string_view m) { return m.find(kScrubMask) == m.npos; }),
              "masking must never complete another marker");
static_assert(everyMarker([](std::string_view m) { return m.size() >= kAnchorBytes; }),
              "lines shorter than an anchor are not looked at");
static_assert(std::endian::native == std::endian::little, "neighbours are compared as numbers");
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
std::uint64_t anchorColumns(const char* bytes) noexcept {
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

bool standsAt(std::string_view text, std::size_t column, std::size_t rule) noexcept {
  const std::size_t offset = kAnchors.offset[rule];
  const std::string_view marker = kScrubRules[rule].marker;
  if (column < offset || text.size() - (column - offset) < marker.size()) return false;
  return std::memcmp(text.data() + (column - offset), marker.data(), marker.size()) == 0;
}

/// The rules whose marker stands in `text` with its anchor at `column`.
RuleSet rulesAt(std::string_view text, std::size_t column) noexcept {
  const bool isName = text[column] == 'y';
  const AnchorClass& alike =
      isName ? kAnchors.named : kAnchors.byFourthByte[static_cast<unsigned char>(text[column + 3])];
  // Words that merely look like a marker's are told apart by what stands before.
  const bool hasNeighbours = column >= kBytesBeforeAnchor;
  std::uint64_t neighbours = 0;
  if (hasNeighbours) {
    std::memcpy(&neighbours, text.data() + (column - kBytesBeforeAnchor), sizeof(neighbours));
    if (!alike.common.match(neighbours)) return 0;
  }
  RuleSet found = 0;
  for (RuleSet rules = alike.rules; rules != 0; rules &= rules - 1) {
    const auto rule = static_cast<std::size_t>(std::countr_zero(rules));
    if (hasNeighbours && !kAnchors.neighbours[rule].match(neighbours)) continue;
    if (standsAt(text, column, rule)) found |= RuleSet{1} << rule;
  }
  return found;
}

/// The rules at those of the 64 columns from `begin` that have their bit set.
RuleSet rulesAtColumns(std::string_view text, std::size_t begin, std::uint64_t columns) noexcept {
  RuleSet found = 0;
  for (; columns != 0; columns &= columns - 1) {
    found |= rulesAt(text, begin + static_cast<std::size_t>(std::countr_zero(columns)));
  }
  return found;
}

RuleSet rulesInShortText(std::string_view text) noexcept {
  // Zeros behind the text can complete an anchor but no marker.
  char padded[kBlockBytes] = {};
  std::copy(text.begin(), text.end(), padded);
  return rulesAtColumns({padded, kBlockBytes}, 0, anchorColumns(padded));
}

/// Every rule whose marker occurs in `text`.
RuleSet rulesIn(std::string_view text) noexcept {
  if (text.size() < kAnchorBytes) return 0;
  if (text.size() < kBlockBytes) return rulesInShortText(text);
  const char* const bytes = text.data();
  const std::size_t last = text.size() - kBlockBytes;  // where the last block begins
  RuleSet found = 0;
  std::size_t begin = 0;
  for (; begin + 3 * kColumns <= last; begin += 4 * kColumns) {
    const std::uint64_t columns = anchorColumns(bytes + begin) |
                                  anchorColumns(bytes + begin + kColumns) << kColumns |
                                  anchorColumns(bytes + begin + 2 * kColumns) << (2 * kColumns) |
                                  anchorColumns(bytes + begin + 3 * kColumns) << (3 * kColumns);
    if (columns != 0) found |= rulesAtColumns(text, begin, columns);
  }
  for (; begin < last; begin += kColumns) found |= rulesAtColumns(text, begin, anchorColumns(bytes + begin));
  return found | rulesAtColumns(text, last, anchorColumns(bytes + last));  // may overlap the block before
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
