#include "log/token_scrubber.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Nearly no line holds a marker, so the work is to find that out fast. One pass
// looks for three kinds of byte pairs; every marker contains one. The kinds were
// chosen by counting pairs in the service's own logs, in English text, in request
// lines and in lines full of words like "token" and "key": of all that cover the
// markers with a mask each, these occur least. At a pair, six bytes around it
// are looked up in tables that answer the markers which can stand there: nearly
// always none, and without a branch that could be mispredicted. The few that are
// left are compared in full. The rules found so are then run in their order.
// SSE2 is enough, which every x86-64 processor has.
//
// That equals running all rules in order, because no marker contains the mask
// letter: a marker found after masking has no masked byte in it, so it stood
// there before.

namespace zarn {
namespace {

using RuleSet = std::uint32_t;

constexpr std::size_t kRuleCount = kScrubRules.size();
constexpr RuleSet kAllRules = (RuleSet{1} << kRuleCount) - 1;

consteval RuleSet crashKeyRules() {
  RuleSet rules = 0;
  for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
    if (kScrubRules[rule].isCrashKey) rules |= RuleSet{1} << rule;
  }
  return rules;
}

// ---- Pairs -----------------------------------------------------------------------

/// Matches two neighbouring bytes that have these values in these bits.
struct Pair {
  unsigned char firstMask, firstBits, secondMask, secondBits;

  [[nodiscard]] constexpr bool matches(char first, char second) const noexcept {
    return (static_cast<unsigned char>(first) & firstMask) == firstBits &&
           (static_cast<unsigned char>(second) & secondMask) == secondBits;
  }
  /// As a little-endian number of 16 bits.
  [[nodiscard]] constexpr short mask() const noexcept {
    return static_cast<short>(firstMask | secondMask << 8);
  }
  [[nodiscard]] constexpr short bits() const noexcept {
    return static_cast<short>(firstBits | secondBits << 8);
  }
};
/// One of "FNfn" before one of "-/=?mo}" or a control character: "n=", "n-", "fo".
constexpr Pair kEndPair{0xD7, 'n' & 0xD7, 0xAD, '=' & 0xAD};
/// "y" before one of "JKNOZ[^_": "yZ", "yK", "y_".
constexpr Pair kNamePair{0xFF, 'y', 0xEA, 'Z' & 0xEA};
constexpr Pair kArrowPair{0xFF, '=', 0xFF, '>'};

/// Where in the marker its first pair stands; the marker's length without one.
constexpr std::size_t pairIn(std::string_view marker) {
  std::size_t i = 0;
  while (i + 1 < marker.size() && !kEndPair.matches(marker[i], marker[i + 1]) &&
         !kNamePair.matches(marker[i], marker[i + 1]) && !kArrowPair.matches(marker[i], marker[i + 1])) {
    ++i;
  }
  return i + 1 < marker.size() ? i : marker.size();
}

// ---- Candidates ------------------------------------------------------------------

/// Places relative to a pair whose bytes tell the markers, and words that look
/// like them, apart.
constexpr std::array<std::ptrdiff_t, 6> kTellingPlaces = {-3, -2, -1, 0, 1, 2};
constexpr std::size_t kLeftmost = -kTellingPlaces.front();
constexpr std::size_t kRightmost = kTellingPlaces.back();

constexpr std::size_t kOutside = 256;  ///< stands for a byte beyond the text

struct Tables {
  std::array<std::size_t, kRuleCount> pair{};
  /// For each telling place, by the byte there: the rules that it does not rule out.
  std::array<std::array<RuleSet, kOutside + 1>, kTellingPlaces.size()> fitting{};
};

consteval Tables makeTables() {
  Tables tables;
  for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
    const std::string_view marker = kScrubRules[rule].marker;
    tables.pair[rule] = pairIn(marker);
    for (std::size_t i = 0; i < kTellingPlaces.size(); ++i) {
      // A place before the marker's begin wraps around to a large number.
      const std::size_t place = tables.pair[rule] + static_cast<std::size_t>(kTellingPlaces[i]);
      const bool isInMarker = place < marker.size();
      for (std::size_t byte = 0; byte <= kOutside; ++byte) {
        const bool fits = !isInMarker || byte == static_cast<unsigned char>(marker[place]);
        if (fits) tables.fitting[i][byte] |= RuleSet{1} << rule;
      }
    }
  }
  return tables;
}

constexpr Tables kTables = makeTables();

consteval bool everyMarker(bool (*holds)(std::string_view)) {
  for (const ScrubRule& rule : kScrubRules) {
    if (!holds(rule.marker)) return false;
  }
  return true;
}

static_assert(everyMarker([](std::string_view m) { return m.find(kScrubMask) == m.npos; }),
              "masking must never complete another marker");
static_assert(everyMarker([](std::string_view m) { return pairIn(m) < m.size(); }),
              "the filter would never see this marker");
static_assert(std::endian::native == std::endian::little, "pairs are compared as numbers");
static_assert(kRuleCount < 32, "RuleSet has a bit for each rule");

/// The rules whose marker may stand in `text` with its pair at `column`: none is
/// missing, and few are wrong.
inline RuleSet candidatesAt(std::string_view text, std::size_t column) noexcept {
  const auto candidates = [column](auto byteAt) {
    RuleSet fitting = kAllRules;
    for (std::size_t i = 0; i < kTellingPlaces.size(); ++i) {
      fitting &= kTables.fitting[i][byteAt(column + static_cast<std::size_t>(kTellingPlaces[i]))];
    }
    return fitting;
  };
  const auto byte = [text](std::size_t place) -> std::size_t {
    return static_cast<unsigned char>(text[place]);
  };
  if (column >= kLeftmost && column + kRightmost < text.size()) [[likely]]
    return candidates(byte);
  return candidates([&](std::size_t place) { return place < text.size() ? byte(place) : kOutside; });
}

bool standsAt(std::string_view text, std::size_t column, std::size_t rule) noexcept {
  const std::size_t pair = kTables.pair[rule];
  const std::string_view marker = kScrubRules[rule].marker;
  return column >= pair && text.substr(column - pair, marker.size()) == marker;
}

RuleSet standingAt(std::string_view text, std::size_t column, RuleSet candidates) noexcept {
  RuleSet found = 0;
  for (; candidates != 0; candidates &= candidates - 1) {
    const auto rule = static_cast<std::size_t>(std::countr_zero(candidates));
    if (standsAt(text, column, rule)) found |= RuleSet{1} << rule;
  }
  return found;
}

/// The rules whose marker's pair stands at one of the 64 columns from `begin` that
/// have their bit set.
RuleSet rulesAtColumns(std::string_view text, std::size_t begin, std::uint64_t columns) noexcept {
  RuleSet found = 0;
  for (; columns != 0; columns &= columns - 1) {
    const std::size_t column = begin + static_cast<std::size_t>(std::countr_zero(columns));
    const RuleSet candidates = candidatesAt(text, column);
    if (candidates != 0) [[unlikely]]
      found |= standingAt(text, column, candidates);
  }
  return found;
}

// ---- The filter ----------------------------------------------------------------

constexpr std::size_t kColumns = 16;
constexpr std::size_t kBlockColumns = 4 * kColumns;

/// All bits set in the 16-bit lanes that hold a pair.
inline __m128i pairLanes(const char* bytes) noexcept {
  const __m128i lanes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  const auto equal = [&](const Pair& pair) {
    return _mm_cmpeq_epi16(_mm_and_si128(lanes, _mm_set1_epi16(pair.mask())), _mm_set1_epi16(pair.bits()));
  };
  return _mm_or_si128(_mm_or_si128(equal(kEndPair), equal(kNamePair)), equal(kArrowPair));
}

/// The pairs that begin in 16 columns of text; one byte more is read.
class PairScan {
 public:
  explicit PairScan(const char* bytes) noexcept : even_(pairLanes(bytes)), odd_(pairLanes(bytes + 1)) {}

  /// Not all zero when a pair begins at any of the columns.
  [[nodiscard]] __m128i any() const noexcept { return _mm_or_si128(even_, odd_); }
  /// A bit for each column at which one begins.
  [[nodiscard]] std::uint64_t columns() const noexcept {
    const __m128i low = _mm_set1_epi16(0xFF);
    return static_cast<std::uint32_t>(
        _mm_movemask_epi8(_mm_or_si128(_mm_and_si128(even_, low), _mm_andnot_si128(low, odd_))));
  }

 private:
  __m128i even_;
  __m128i odd_;
};

/// A bit for each of the 64 columns at which a pair begins; one byte more is read.
inline std::uint64_t pairsInBlock(const char* bytes) noexcept {
  const PairScan first(bytes);
  const PairScan second(bytes + kColumns);
  const PairScan third(bytes + 2 * kColumns);
  const PairScan fourth(bytes + 3 * kColumns);
  const __m128i any =
      _mm_or_si128(_mm_or_si128(first.any(), second.any()), _mm_or_si128(third.any(), fourth.any()));
  if (_mm_movemask_epi8(any) == 0) [[likely]]
    return 0;
  return first.columns() | second.columns() << kColumns | third.columns() << (2 * kColumns) |
         fourth.columns() << (3 * kColumns);
}

RuleSet rulesInShortText(std::string_view text) noexcept {
  // Zeros behind the text can complete no pair.
  char padded[kBlockColumns + 1] = {};
  std::copy(text.begin(), text.end(), padded);
  return rulesAtColumns(text, 0, pairsInBlock(padded));
}

/// Every rule whose marker occurs in `text`.
RuleSet rulesIn(std::string_view text) noexcept {
  if (text.size() <= kBlockColumns) return rulesInShortText(text);
  const std::size_t last = text.size() - (kBlockColumns + 1);  // where the last block begins
  RuleSet found = 0;
  for (std::size_t begin = 0; begin < last; begin += kBlockColumns) {
    const std::uint64_t columns = pairsInBlock(text.data() + begin);
    if (columns != 0) found |= rulesAtColumns(text, begin, columns);
  }
  // The last block may overlap the one before.
  return found | rulesAtColumns(text, last, pairsInBlock(text.data() + last));
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
  RuleSet rules = rulesIn(message) & (crashKeysOnly ? crashKeyRules() : kAllRules);
  for (; rules != 0; rules &= rules - 1) {
    applyRule(kScrubRules[static_cast<std::size_t>(std::countr_zero(rules))], message);
  }
}

}  // namespace zarn
