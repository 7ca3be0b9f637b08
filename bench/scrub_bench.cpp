// scrub_bench candidate=NAME corpus=typical|stress|pairs milliseconds=N
//
// Scrubs the same lines again and again (masking is idempotent) and reports the
// bytes looked at per second. Afterwards they must equal what rule after rule makes
// of them.
#include <hs/hs.h>

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <random>
#include <span>

#include "log/token_scrubber.h"
#include "measure.h"

namespace zarn::bench {
namespace {

constexpr std::size_t kLines = 400'000;  // more than the caches hold
constexpr std::size_t kLineBytes = 175;
constexpr std::size_t kOneMarkedLineIn = 100;

using Lines = std::vector<std::string>;

constexpr std::array kTypicalWords = {"request",
                                      "from",
                                      "192.168.1.20:32400",
                                      "GET",
                                      "/library/sections/2/all",
                                      "in",
                                      "12ms",
                                      "200",
                                      "Bundle",
                                      "checked",
                                      "identity",
                                      "of",
                                      "with",
                                      "C:\\Temp",
                                      "closed",
                                      "status",
                                      "update",
                                      "ready",
                                      "Scanning",
                                      "path:",
                                      "thread",
                                      "(reused)",
                                      "HTTP/1.1",
                                      "response"};

/// Words that look like the beginning or the middle of a marker.
constexpr std::array kNearMisses = {"key",    "token",    "socket", "monkey", "keyboard", "broken",
                                    "tokens", "keystore", "taken",  "Token",  "keys",     "kernel"};

/// Words with the byte pairs that the filter looks for, and no marker.
constexpr std::array kPairWords = {"for",   "found",     "info",    "none", "version=3", "n/a",
                                   "known", "section=2", "on-deck", "x=>y", "my_file",   "main=1"};

/// The stress corpus has a near miss as every second word, the pairs corpus a word
/// that the filter cannot pass over.
Lines makeCorpus(const std::string& name) {
  static constexpr std::array<const char*, 0> kNone{};
  const std::span<const char* const> seeded = name == "stress"  ? std::span<const char* const>(kNearMisses)
                                              : name == "pairs" ? std::span<const char* const>(kPairWords)
                                                                : kNone;
  std::minstd_rand random(1);
  Lines lines(kLines);
  for (std::size_t i = 0; i < kLines; ++i) {
    while (lines[i].size() < kLineBytes) {
      lines[i].append(kTypicalWords[random() % kTypicalWords.size()]).append(" ");
      if (!seeded.empty()) lines[i].append(seeded[random() % seeded.size()]).append(" ");
    }
    lines[i].resize(kLineBytes);
    if (i % kOneMarkedLineIn != 0) continue;
    const auto marker = kScrubRules[random() % kScrubRules.size()].marker;
    lines[i].replace(random() % (kLineBytes - marker.size()), marker.size(), marker);
  }
  return lines;
}

// ---- Candidates ----------------------------------------------------------------

void scrubZarn(std::string& line) {
  scrubTokens(line, false);
}

void apply(const ScrubRule& rule, std::string& line) {
  std::size_t at = 0;
  while ((at = line.find(rule.marker, at)) != std::string::npos) {
    at += rule.marker.size();
    if (at < line.size() && (line[at] == '\'' || line[at] == '"')) ++at;
    const std::size_t masked = std::min(line.size() - at, rule.maskLength);
    std::memset(line.data() + at, kScrubMask, masked);
    at += masked;
  }
}

void scrubWithFind(std::string& line) {
  for (const ScrubRule& rule : kScrubRules) apply(rule, line);
}

/// No scrubber: how fast a line can be looked through at all.
void lookThrough(std::string& line) {
  keep(std::memchr(line.data(), '\x01', line.size()));
}

struct HyperscanFree {
  void operator()(hs_database_t* database) const { hs_free_database(database); }
  void operator()(hs_scratch_t* scratch) const { hs_free_scratch(scratch); }
};

/// Finds the rules with Hyperscan, then applies those in their order.
class Hyperscan {
 public:
  Hyperscan() {
    std::array<const char*, kScrubRules.size()> markers{};
    std::array<std::size_t, kScrubRules.size()> lengths{};
    std::array<unsigned, kScrubRules.size()> flags{};
    std::array<unsigned, kScrubRules.size()> numbers{};
    for (unsigned i = 0; i < kScrubRules.size(); ++i) {
      markers[i] = kScrubRules[i].marker.data();
      lengths[i] = kScrubRules[i].marker.size();
      flags[i] = HS_FLAG_SINGLEMATCH;
      numbers[i] = i;
    }
    hs_database_t* database = nullptr;
    hs_compile_error_t* error = nullptr;
    require(hs_compile_lit_multi(markers.data(), flags.data(), numbers.data(), lengths.data(),
                                 kScrubRules.size(), HS_MODE_BLOCK, nullptr, &database, &error) == HS_SUCCESS,
            "Hyperscan does not compile the markers");
    database_.reset(database);
    hs_scratch_t* scratch = nullptr;
    require(hs_alloc_scratch(database, &scratch) == HS_SUCCESS, "no scratch space");
    scratch_.reset(scratch);
  }

  void scrub(std::string& line) const {
    std::uint32_t found = 0;
    hs_scan(database_.get(), line.data(), static_cast<unsigned>(line.size()), 0, scratch_.get(), note,
            &found);
    for (; found != 0; found &= found - 1)
      apply(kScrubRules[static_cast<std::size_t>(std::countr_zero(found))], line);
  }

 private:
  static int note(unsigned rule, unsigned long long, unsigned long long, unsigned, void* found) {
    *static_cast<std::uint32_t*>(found) |= 1U << rule;
    return 0;
  }

  std::unique_ptr<hs_database_t, HyperscanFree> database_;
  std::unique_ptr<hs_scratch_t, HyperscanFree> scratch_;
};

void scrubWithHyperscan(std::string& line) {
  static const Hyperscan hyperscan;
  hyperscan.scrub(line);
}

template <void (*scrub)(std::string&)>
void scrubAll(Lines& lines) {
  for (std::string& line : lines) scrub(line);
}

// ---- Measuring -----------------------------------------------------------------

struct Candidate {
  std::string_view name;
  void (*scrubAll)(Lines&);
  bool scrubs;
};

constexpr std::array<Candidate, 4> kCandidates = {{{"zarn", scrubAll<scrubZarn>, true},
                                                   {"find", scrubAll<scrubWithFind>, true},
                                                   {"hyperscan", scrubAll<scrubWithHyperscan>, true},
                                                   {"memchr", scrubAll<lookThrough>, false}}};

void measure(const Options& options) {
  const Candidate& candidate = byName(kCandidates, options.text("candidate"));
  const Lines original = makeCorpus(options.text("corpus"));
  Lines lines = original;
  candidate.scrubAll(lines);  // makes what is made once

  const auto start = Clock::now();
  const auto end = start + std::chrono::milliseconds(options.number("milliseconds"));
  std::size_t passes = 0;
  auto now = start;
  for (; now < end; now = Clock::now(), ++passes) candidate.scrubAll(lines);

  Lines expected = original;
  if (candidate.scrubs) scrubAll<scrubWithFind>(expected);
  require(lines == expected, "not scrubbed as by one rule after the other");
  require(expected != original || !candidate.scrubs, "the corpus has no markers");
  report("bytes_per_s", static_cast<double>(passes * kLines * kLineBytes) / seconds(now - start));
}

}  // namespace
}  // namespace zarn::bench

int main(int count, char** arguments) {
  return zarn::bench::runBenchmark(count, arguments, zarn::bench::measure);
}
