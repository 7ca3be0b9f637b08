// The fault switch: a program that is linked with fault_switch.cpp can be told from outside
// which of its calls to the system fails, or where it stops to be killed. This header is
// what the program and whoever drives it (fault_control.h) share.
//
// The program's own import table is walked before its entry runs, and every function in it
// that can fail is led through a thunk. What it asks GetProcAddress for goes the same way.
// Calls that the system's DLLs make themselves are not ours and pass unseen. fault_table.cpp
// knows of each function how it says that it failed, and what kind of call it is; one that
// is not in it is named in `unknown`, and a driver fails its run for that.
//
// ZarnUpdateServiceUnderFaults.exe, in the build's tools/stage/faults, is the service with the
// switch in it: put it in the place of ZarnUpdateService.exe on a stage. It is never shipped.
//
// All of it lives in the named section `kSectionName`, which the driver makes before the
// program starts, so that start-up is covered. A program that finds no section, or one of
// another version, changes nothing and runs as if the switch were not there.
//
// Driver's side: set `kinds`, `function`, `site`, `wanted`, `limit`, reset `counter` and `hits`, then
// set `mode`; FaultControl::arm() does it in that order. A call counts when its kind is
// among `kinds`, and `function` is either kAnyFunction or its row, and `site` either 0 or
// its site. The counted call number `wanted` (from 1) is the first that is hit, and as many
// as `limit` are.
//   Off      nothing is counted
//   Count    counts; every call of any kind adds to the table of sites
//   Fail     calls `wanted` to `wanted` + `limit` - 1 fail: they do nothing and say so as the
//            function does, but for those that give something back, which do it and say
//            that they failed
//   Stop     at call `wanted` the event kStoppedEventName is set, and the thread stays there
//            until the process is killed; every later counted call stays, too
// `clockOffset` is added to all that tells the time of day, whatever the mode, and to no
// clock that measures spans.
#pragma once

#include <atomic>
#include <cstdint>

namespace zarn::faults {

inline constexpr wchar_t kSectionName[] = L"Global\\zarn-fault-switch";
inline constexpr wchar_t kStoppedEventName[] = L"Global\\zarn-fault-switch-stopped";
inline constexpr std::uint32_t kVersion = 1;

/// What a call is about. Files, Registry and Process change what outlives the process.
enum class Kind : std::uint32_t {
  None = 0,       ///< cannot fail, or fails for a wrong argument only; has no thunk
  Files = 1,      ///< opens, makes, writes, renames or removes files
  Registry = 2,   ///< opens or changes the registry
  Process = 4,    ///< starts or ends a process, reports to the control manager, listens for calls
  Memory = 8,     ///< the allocator
  Thread = 16,    ///< makes threads, and what they wait with
  Wait = 32,      ///< waits
  Network = 64,   ///< sockets and names
  Trust = 128,    ///< signatures, certificates, keys and random bytes
  Query = 256,    ///< asks for something that is there
  Release = 512,  ///< gives something back
  Text = 1024,    ///< converts text and times
};
inline constexpr std::uint32_t kAllKinds = 2047;
inline constexpr std::uint32_t kChangingKinds = 7;
constexpr std::uint32_t bit(Kind kind) noexcept {
  return static_cast<std::uint32_t>(kind);
}

enum class Mode : std::uint32_t { Off, Count, Fail, Stop };

inline constexpr std::int32_t kAnyFunction = -1;
inline constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};
inline constexpr std::size_t kFunctions = 512;
inline constexpr std::size_t kSites = 1U << 16;
inline constexpr std::size_t kNameBytes = 56;
/// The most return addresses that make a site, innermost first.
inline constexpr std::size_t kSiteDepth = 12;

/// A place that calls: a function by its row in the table, and the return addresses in the
/// program's own code that lead there, each less the address that the program is loaded at.
struct Site {
  std::atomic<std::uint64_t> id;  ///< a hash of what follows; 0 is an empty place
  std::atomic<std::uint32_t> function;
  std::atomic<std::uint32_t> calls;
  std::uint32_t addresses[kSiteDepth];
};

struct Section {
  std::uint32_t version;
  std::atomic<std::uint32_t> isAttached;  ///< processes that have found this section
  std::atomic<std::uint32_t> processId;   ///< of the last one
  std::atomic<Mode> mode;
  std::atomic<std::uint32_t> kinds;
  std::atomic<std::int32_t> function;
  std::atomic<std::uint64_t> site;
  std::atomic<std::uint64_t> wanted;
  std::atomic<std::uint64_t> limit;
  std::atomic<std::uint32_t> depth;       ///< return addresses that make a site, at most kSiteDepth
  std::atomic<std::int64_t> clockOffset;  ///< in units of 100 ns

  std::atomic<std::uint64_t> counter;  ///< calls that counted
  std::atomic<std::uint64_t> hits;     ///< calls that failed, or stopped
  std::atomic<std::uint64_t> hitSite;  ///< of the first hit
  std::atomic<std::int32_t> hitFunction;
  std::uint32_t hitAddresses[kSiteDepth];

  std::atomic<std::uint32_t> unknownCount;
  char unknown[64][kNameBytes];          ///< functions without a row
  std::atomic<std::uint32_t> lostSites;  ///< calls from sites for which there was no place
  Site sites[kSites];
};

}  // namespace zarn::faults
