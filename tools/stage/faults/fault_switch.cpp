// The part of the fault switch that is linked into the program; fault_section.h says what it does.
#include "faults/fault_section.h"

#include <windows.h>

#include <winternl.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "faults/fault_table.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;  // NOLINT: the linker's name

namespace zarn::faults {
namespace {

/// What a thunk leaves on its stack; the assembly below knows these offsets.
struct Frame {
  std::uint64_t room[4];
  std::uint64_t floats[8];  ///< xmm0 to xmm3
  std::uint64_t result;
  std::uint64_t ending;
  std::uint64_t kept[8];  ///< rbx rbp rsi rdi r12 r13 r14 r15
  std::uint64_t unused;
  std::uint64_t returnAddress;
  std::uint64_t arguments[4];
};
static_assert(offsetof(Frame, result) == 0x60 && offsetof(Frame, kept) == 0x70);
static_assert(offsetof(Frame, returnAddress) == 0xb8);

enum Ending : std::uint64_t { GoOn, FailAtOnce, DoAndFail };

constexpr std::size_t kStubBytes = 32;

// No object here needs a constructor: the first thunk runs before any has been called.
constinit Section* section = nullptr;
constinit std::uint64_t imageBytes = 0;
constinit unsigned char* stubs = nullptr;
constinit std::array<void*, kFunctions> targets{};
constinit HANDLE stoppedEvent = nullptr;

template <typename Function>
Function as(FARPROC address) noexcept {
  Function function = nullptr;
  static_assert(sizeof(function) == sizeof(address));
  std::memcpy(&function, &address, sizeof(function));
  return function;
}

// ---- The system's own, as they were before the table was changed -------------------
using GetProcAddressFunction = FARPROC(WINAPI*)(HMODULE, LPCSTR);
using SetEventFunction = BOOL(WINAPI*)(HANDLE);
using FileTimeFunction = void(WINAPI*)(FILETIME*);
using SystemTimeFunction = void(WINAPI*)(SYSTEMTIME*);
constinit GetProcAddressFunction realGetProcAddress = nullptr;
constinit SetEventFunction realSetEvent = nullptr;
constinit FileTimeFunction realTime = nullptr;

// ---- Sites ------------------------------------------------------------------------------

std::uint64_t imageBase() noexcept {
  return reinterpret_cast<std::uint64_t>(&__ImageBase);
}

bool isOurs(std::uint64_t address) noexcept {
  return address - imageBase() < imageBytes;
}

/// The return addresses in our own code that lead to the thunk; 0 behind the last.
void walk(const Frame& frame, std::uint32_t (&addresses)[kSiteDepth]) noexcept {
  std::fill(std::begin(addresses), std::end(addresses), 0);
  CONTEXT context;
  context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
  context.Rip = frame.returnAddress;
  context.Rsp = reinterpret_cast<std::uint64_t>(&frame.arguments);
  context.Rbx = frame.kept[0];
  context.Rbp = frame.kept[1];
  context.Rsi = frame.kept[2];
  context.Rdi = frame.kept[3];
  context.R12 = frame.kept[4];
  context.R13 = frame.kept[5];
  context.R14 = frame.kept[6];
  context.R15 = frame.kept[7];
  const std::size_t depth = std::min<std::size_t>(section->depth.load(), kSiteDepth);
  for (std::size_t i = 0; i < depth && isOurs(context.Rip); ++i) {
    addresses[i] = static_cast<std::uint32_t>(context.Rip - imageBase());
    DWORD64 base = 0;
    RUNTIME_FUNCTION* const function = RtlLookupFunctionEntry(context.Rip - 1, &base, nullptr);
    if (function == nullptr) return;
    void* handlerData = nullptr;
    DWORD64 establisher = 0;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip - 1, function, &context, &handlerData, &establisher,
                     nullptr);
  }
}

std::uint64_t idOf(std::uint32_t row, const std::uint32_t (&addresses)[kSiteDepth]) noexcept {
  std::uint64_t hash = (0xcbf29ce484222325U ^ row) * 0x100000001b3U;
  for (const std::uint32_t address : addresses) hash = (hash ^ address) * 0x100000001b3U;
  return hash == 0 ? 1 : hash;
}

void noteSite(std::uint32_t row, std::uint64_t id, const std::uint32_t (&addresses)[kSiteDepth]) noexcept {
  for (std::size_t tries = 0; tries < 64; ++tries) {
    Site& site = section->sites[(id + tries) % kSites];
    std::uint64_t there = 0;
    if (site.id.compare_exchange_strong(there, id)) {
      site.function = row;
      std::copy(std::begin(addresses), std::end(addresses), site.addresses);
      there = id;
    }
    if (there != id) continue;
    ++site.calls;
    return;
  }
  ++section->lostSites;
}

// ---- What a call is told --------------------------------------------------------------

void setReason(const FunctionRow& row) noexcept {
  if (row.says == Says::CrtZero || row.says == Says::CrtMinusOne) {
    errno = static_cast<int>(row.error);
  } else {
    SetLastError(row.error);
  }
}

void fail(const FunctionRow& row, Frame& frame) noexcept {
  const bool isMinusOne = row.says == Says::MinusOne || row.says == Says::CrtMinusOne;
  frame.result = isMinusOne ? ~std::uint64_t{0} : row.says == Says::Code ? row.error : 0;
  frame.ending = row.kind == Kind::Release ? DoAndFail : FailAtOnce;
  constexpr int kFailedStream = 0x20;  // the C library's _IOERR
  if (row.stream != 0) reinterpret_cast<FILE*>(frame.arguments[row.stream - 1])->_flag |= kFailedStream;
  if (frame.ending == FailAtOnce) setReason(row);
}

[[noreturn]] void stayUntilKilled() noexcept {
  realSetEvent(stoppedEvent);
  for (;;) Sleep(INFINITE);
}

bool isHit(std::uint32_t row, Frame& frame, Mode mode) noexcept {
  const std::uint64_t onlySite = section->site.load();
  std::uint32_t addresses[kSiteDepth];
  std::uint64_t id = 0;
  if (onlySite != 0) {
    walk(frame, addresses);
    id = idOf(row, addresses);
    if (id != onlySite) return false;
  }
  const std::uint64_t number = section->counter.fetch_add(1) + 1;
  const std::uint64_t wanted = section->wanted.load();
  if (mode == Mode::Count || number < wanted || number - wanted >= section->limit.load()) return false;
  if (section->hits.fetch_add(1) == 0) {
    if (id == 0) walk(frame, addresses);
    std::copy(std::begin(addresses), std::end(addresses), section->hitAddresses);
    section->hitFunction = static_cast<std::int32_t>(row);
    section->hitSite = id != 0 ? id : idOf(row, addresses);
  }
  return true;
}

// ---- Replacements -------------------------------------------------------------------------

constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
constexpr std::uint64_t kEpoch = 116'444'736'000'000'000;  // 1970 in units since 1601

std::uint64_t now() noexcept {
  FILETIME time{};
  realTime(&time);
  const std::uint64_t units = (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
  return units + static_cast<std::uint64_t>(section->clockOffset.load());
}

void WINAPI offFileTime(FILETIME* time) noexcept {
  const std::uint64_t units = now();
  time->dwLowDateTime = static_cast<DWORD>(units);
  time->dwHighDateTime = static_cast<DWORD>(units >> 32U);
}

void WINAPI offSystemTime(SYSTEMTIME* time) noexcept {
  FILETIME units{};
  offFileTime(&units);
  FileTimeToSystemTime(&units, time);
}

std::int64_t offSeconds(std::int64_t* seconds) noexcept {
  const auto value = static_cast<std::int64_t>((now() - kEpoch) / kUnitsPerSecond);
  if (seconds != nullptr) *seconds = value;
  return value;
}

void offParts(struct __timeb64* parts) noexcept {
  struct Parts {  // of what the C library calls __timeb64
    std::int64_t time;
    unsigned short milliseconds;
    short zone, daylight;
  };
  const std::uint64_t units = now() - kEpoch;
  const Parts value{static_cast<std::int64_t>(units / kUnitsPerSecond),
                    static_cast<unsigned short>(units % kUnitsPerSecond / 10'000), 0, 0};
  std::memcpy(parts, &value, sizeof(value));
}

FARPROC WINAPI askedFor(HMODULE module, LPCSTR name) noexcept;

template <typename Function>
void* addressOf(Function* function) noexcept {
  return reinterpret_cast<void*>(function);
}

/// What stands in for a function whose calls go on; null for most.
void* replacementOf(std::string_view name) noexcept {
  if (name == "GetProcAddress") return addressOf(askedFor);
  if (name == "GetSystemTimeAsFileTime" || name == "GetSystemTimePreciseAsFileTime")
    return addressOf(offFileTime);
  if (name == "GetSystemTime") return addressOf(offSystemTime);
  if (name == "_time64") return addressOf(offSeconds);
  if (name == "_ftime64") return addressOf(offParts);
  return nullptr;
}

void noteUnknown(const char* name) noexcept {
  const std::size_t noted = std::min<std::size_t>(section->unknownCount.load(), std::size(section->unknown));
  for (std::size_t i = 0; i < noted; ++i)
    if (std::strncmp(section->unknown[i], name, kNameBytes - 1) == 0) return;
  const std::uint32_t place = section->unknownCount.fetch_add(1);
  if (place < std::size(section->unknown)) std::strncpy(section->unknown[place], name, kNameBytes - 1);
}

/// What the program calls instead of the function of this name at `real`.
void* ledAstray(const char* name, void* real) noexcept {
  const std::int32_t number = rowOf(name);
  if (number == kAnyFunction) {
    noteUnknown(name);
    return real;
  }
  const FunctionRow& row = functionTable()[static_cast<std::size_t>(number)];
  void* const replacement = replacementOf(name);
  if (row.kind == Kind::None) return replacement != nullptr ? replacement : real;
  void*& target = targets[static_cast<std::size_t>(number)];
  if (target == nullptr) target = replacement != nullptr ? replacement : real;
  return stubs + static_cast<std::size_t>(number) * kStubBytes;
}

FARPROC WINAPI askedFor(HMODULE module, LPCSTR name) noexcept {
  const FARPROC real = realGetProcAddress(module, name);
  if (real == nullptr || reinterpret_cast<std::uint64_t>(name) < 0x10000) return real;
  return reinterpret_cast<FARPROC>(ledAstray(name, reinterpret_cast<void*>(real)));
}

}  // namespace
}  // namespace zarn::faults

// What a thunk asks: where to go on. Called with the row's number and the thunk's frame.
extern "C" void* zarnFaultDecide(std::uint32_t number, zarn::faults::Frame* frame) noexcept {
  using namespace zarn::faults;
  const FunctionRow& row = functionTable()[number];
  const Mode mode = section->mode.load(std::memory_order_acquire);
  frame->ending = GoOn;
  if (mode == Mode::Off) return targets[number];
  if (mode == Mode::Count) {
    std::uint32_t addresses[kSiteDepth];
    walk(*frame, addresses);
    noteSite(number, idOf(number, addresses), addresses);
  }
  const std::int32_t function = section->function.load();
  if ((section->kinds.load() & bit(row.kind)) == 0 ||
      (function != kAnyFunction && function != static_cast<std::int32_t>(number))) {
    return targets[number];
  }
  if (mode == Mode::Stop && section->hits.load() != 0) stayUntilKilled();
  if (!isHit(number, *frame, mode)) return targets[number];
  if (mode == Mode::Stop) stayUntilKilled();
  fail(row, *frame);
  return targets[number];
}

// What a thunk does behind a call that was done and is said to have failed.
extern "C" void zarnFaultSetReason(std::uint32_t number) noexcept {
  zarn::faults::setReason(zarn::faults::functionTable()[number]);
}

// A stub of its own leads each function here, its row's number in eax, which no call uses.
// The caller's room for four arguments keeps them; registers that a call must leave alone
// are written down for the walk through the callers.
extern "C" void zarnFaultThunk();
__asm__(R"(
  .text
  .globl zarnFaultThunk
zarnFaultThunk:
  movq %rcx, 8(%rsp)
  movq %rdx, 16(%rsp)
  movq %r8, 24(%rsp)
  movq %r9, 32(%rsp)
  subq $0xb8, %rsp
  movups %xmm0, 0x20(%rsp)
  movups %xmm1, 0x30(%rsp)
  movups %xmm2, 0x40(%rsp)
  movups %xmm3, 0x50(%rsp)
  movq %rbx, 0x70(%rsp)
  movq %rbp, 0x78(%rsp)
  movq %rsi, 0x80(%rsp)
  movq %rdi, 0x88(%rsp)
  movq %r12, 0x90(%rsp)
  movq %r13, 0x98(%rsp)
  movq %r14, 0xa0(%rsp)
  movq %r15, 0xa8(%rsp)
  movl %eax, 0xb0(%rsp)
  movl %eax, %ecx
  movq %rsp, %rdx
  call zarnFaultDecide
  movups 0x20(%rsp), %xmm0
  movups 0x30(%rsp), %xmm1
  movups 0x40(%rsp), %xmm2
  movups 0x50(%rsp), %xmm3
  movq 0xc0(%rsp), %rcx
  movq 0xc8(%rsp), %rdx
  movq 0xd0(%rsp), %r8
  movq 0xd8(%rsp), %r9
  cmpq $0, 0x68(%rsp)
  jne 1f
  addq $0xb8, %rsp
  jmp *%rax
1:
  cmpq $1, 0x68(%rsp)
  je 2f
  call *%rax
  movl 0xb0(%rsp), %ecx
  call zarnFaultSetReason
2:
  movq 0x60(%rsp), %rax
  addq $0xb8, %rsp
  ret
)");

namespace zarn::faults {
namespace {

// ---- The beginning -----------------------------------------------------------------------

void writeStub(std::size_t number) noexcept {
  // mov eax, number; movabs r11, thunk; jmp r11
  unsigned char* const at = stubs + number * kStubBytes;
  const std::uint64_t thunk = reinterpret_cast<std::uint64_t>(&zarnFaultThunk);
  at[0] = 0xb8;
  std::memcpy(at + 1, &number, 4);
  at[5] = 0x49;
  at[6] = 0xbb;
  std::memcpy(at + 7, &thunk, 8);
  at[15] = 0x41;
  at[16] = 0xff;
  at[17] = 0xe3;
}

template <typename Type>
Type* inImage(std::uint64_t offset) noexcept {
  return reinterpret_cast<Type*>(imageBase() + offset);
}

void changeImports(const IMAGE_DATA_DIRECTORY& directory) noexcept {
  for (auto* dll = inImage<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress); dll->Name != 0; ++dll) {
    const auto* names = inImage<IMAGE_THUNK_DATA>(dll->OriginalFirstThunk);
    auto* slots = inImage<IMAGE_THUNK_DATA>(dll->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
      const auto* const by = inImage<IMAGE_IMPORT_BY_NAME>(names->u1.AddressOfData);
      const char* const name = reinterpret_cast<const char*>(&by->Name);
      slots->u1.Function =
          reinterpret_cast<std::uint64_t>(ledAstray(name, reinterpret_cast<void*>(slots->u1.Function)));
    }
  }
}

/// Finds the driver's section; false when there is none, or one of another version.
bool findSection(HMODULE kernel) noexcept {
  const auto openMapping =
      as<HANDLE(WINAPI*)(DWORD, BOOL, LPCWSTR)>(GetProcAddress(kernel, "OpenFileMappingW"));
  const auto mapView =
      as<void*(WINAPI*)(HANDLE, DWORD, DWORD, DWORD, SIZE_T)>(GetProcAddress(kernel, "MapViewOfFile"));
  const auto openEvent = as<HANDLE(WINAPI*)(DWORD, BOOL, LPCWSTR)>(GetProcAddress(kernel, "OpenEventW"));
  const HANDLE mapping = openMapping(FILE_MAP_ALL_ACCESS, FALSE, kSectionName);
  if (mapping == nullptr) return false;
  section = static_cast<Section*>(mapView(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Section)));
  stoppedEvent = openEvent(EVENT_MODIFY_STATE, FALSE, kStoppedEventName);
  return section != nullptr && section->version == kVersion && stoppedEvent != nullptr;
}

void attach() noexcept {
  const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  if (!findSection(kernel)) return;
  realGetProcAddress = GetProcAddress;
  realSetEvent = SetEvent;
  realTime = GetSystemTimeAsFileTime;
  const auto& headers = *inImage<IMAGE_NT_HEADERS>(static_cast<std::uint64_t>(__ImageBase.e_lfanew));
  imageBytes = headers.OptionalHeader.SizeOfImage;
  stubs = static_cast<unsigned char*>(
      VirtualAlloc(nullptr, kFunctions * kStubBytes, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
  if (stubs == nullptr) return;
  for (std::size_t number = 0; number < functionTable().size(); ++number) writeStub(number);
  const auto& slots = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IAT];
  DWORD before = 0;
  if (VirtualProtect(inImage<void>(slots.VirtualAddress), slots.Size, PAGE_READWRITE, &before) == FALSE)
    return;
  changeImports(headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT]);
  section->processId = GetCurrentProcessId();
  ++section->isAttached;
}

void NTAPI atStart(void*, DWORD reason, void*) noexcept {
  if (reason == DLL_PROCESS_ATTACH) attach();
}

}  // namespace
}  // namespace zarn::faults

// Called by the system before the program's own start-up code, and before the others of the
// run-time library.
extern "C" {
__attribute__((section(".CRT$XLB"), used)) const PIMAGE_TLS_CALLBACK zarnFaultSwitch = zarn::faults::atStart;
}
