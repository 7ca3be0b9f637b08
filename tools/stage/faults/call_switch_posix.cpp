#include "call_switch_posix.h"

#include <dlfcn.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <link.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

// Where the handler asks the system itself: the filter lets this one place through.
asm(R"(
.text
.type zarnSystemCall, @function
zarnSystemCall:
  movq %rdi, %rax
  movq %rsi, %rdi
  movq %rdx, %rsi
  movq %rcx, %rdx
  movq %r8, %r10
  movq %r9, %r8
  movq 8(%rsp), %r9
  syscall
.globl zarnSystemCallReturn
zarnSystemCallReturn:
  ret
)");
extern "C" long zarnSystemCall(long number, long a, long b, long c, long d, long e, long f) noexcept;
extern "C" const char zarnSystemCallReturn[];
extern "C" const char __executable_start[];  // NOLINT(bugprone-reserved-identifier): the linker's
extern "C" const char etext[];

namespace zarn::faults {
namespace {

// ---- Counting and deciding -------------------------------------------------------------

constexpr std::size_t kSites = 4096;
struct Site {
  std::atomic<std::uintptr_t> place;
  std::atomic<long> what;
};

std::atomic<int> armedKind{-1};
/// Of what a sanitizer does on a thread that begins.
thread_local bool isSanitizers = false;
std::atomic<std::int64_t> counted{0}, failed{0};
std::atomic<long> lastFailed{0};
Plan plan;
std::array<Site, kSites> sites;

/// Not a system call: further kinds of what is counted.
enum : long { kNew = 100'000, kMalloc, kThread };

/// The most frames of the C library between a system call and who asked the library for it.
constexpr int kWrappers = 3;

struct Range {
  std::uintptr_t first, last;
};
std::array<Range, 8> sanitizers;  ///< where their code is
std::size_t sanitizerCount = 0;

struct Walk {
  std::uintptr_t from;       ///< the frames before this one are the switch's own; 0: none is
  std::uintptr_t found = 0;  ///< in this program
  int depth = 0;             ///< frames so far
  int sanitizers = 0;        ///< of these, one behind the other
};

_Unwind_Reason_Code visitFrame(_Unwind_Context* context, void* data) {
  auto& walk = *static_cast<Walk*>(data);
  const std::uintptr_t at = _Unwind_GetIP(context);
  if (walk.from != 0 && at != walk.from) return _URC_NO_REASON;
  walk.from = 0;
  ++walk.depth;
  const bool isTheirs = std::any_of(sanitizers.begin(), sanitizers.end(),
                                    [at](const Range& code) { return at >= code.first && at < code.last; });
  if (isTheirs && walk.depth - walk.sanitizers <= kWrappers) ++walk.sanitizers;
  const auto first = reinterpret_cast<std::uintptr_t>(__executable_start);
  const auto last = reinterpret_cast<std::uintptr_t>(etext);
  if (at < first || at >= last) return _URC_NO_REASON;
  walk.found = at;
  return _URC_END_OF_STACK;
}

void noteSite(long what, const Walk& walk) {
  for (std::size_t i = (walk.found * 31 + static_cast<std::uintptr_t>(what)) % kSites, tried = 0;
       tried < kSites; i = (i + 1) % kSites, ++tried) {
    long nothing = 0;
    if (sites[i].what.compare_exchange_strong(nothing, what)) {
      sites[i].place = walk.found;
      return;
    }
    if (sites[i].what == what && sites[i].place == walk.found) return;
  }
}

/// Whether what is asked for now is to fail.
bool fails(Kind kind, long what, std::uintptr_t from) noexcept {
  if (armedKind.load(std::memory_order_acquire) != static_cast<int>(kind) || what == plan.spared)
    return false;
  Walk walk{from};
  if (plan.first == 0 || kind == Kind::Calls) _Unwind_Backtrace(visitFrame, &walk);
  // One frame of theirs is a function of the C library's that they stand in front of.
  if (kind == Kind::Calls && walk.sanitizers > 1) return false;
  const std::int64_t number = ++counted;
  if (plan.first == 0) noteSite(what, walk);
  const bool isDue = plan.first != 0 && number >= plan.first && number - plan.first < plan.count;
  if (isDue) ++failed, lastFailed = what;
  return isDue;
}

// ---- System calls ----------------------------------------------------------------------

// Let through: memory is the allocator's switch, and the sanitizers live on it; signals are
// blocked around a thread's beginning, when the filter's own would end the process; time,
// scheduling and waiting for locks have no failure that a correct program meets.
constexpr long kLetThrough[] = {SYS_mmap,
                                SYS_munmap,
                                SYS_mprotect,
                                SYS_madvise,
                                SYS_brk,
                                SYS_mremap,
                                SYS_rt_sigreturn,
                                SYS_rt_sigaction,
                                SYS_rt_sigprocmask,
                                SYS_sigaltstack,
                                SYS_clone,
                                SYS_clone3,
                                SYS_exit,
                                SYS_exit_group,
                                SYS_set_robust_list,
                                SYS_set_tid_address,
                                SYS_rseq,
                                SYS_futex,
                                SYS_sched_yield,
                                SYS_sched_getaffinity,
                                SYS_gettid,
                                SYS_getpid,
                                SYS_tgkill,
                                SYS_tkill,
                                SYS_kill,
                                SYS_clock_gettime,
                                SYS_clock_nanosleep,
                                SYS_nanosleep,
                                SYS_gettimeofday,
                                SYS_prctl,
                                SYS_arch_prctl,
                                SYS_wait4,
                                SYS_setitimer,
                                SYS_mount,
                                SYS_umount2,
                                SYS_membarrier,
                                SYS_restart_syscall};

void onSystemCall(int /*signal*/, siginfo_t* /*info*/, void* context) {
  const int error = errno;
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const long number = registers[REG_RAX];
  const bool isToFail = fails(Kind::Calls, number, static_cast<std::uintptr_t>(registers[REG_RIP]));
  long result = -plan.error;
  // A file is closed even when that is said to have failed.
  if (!isToFail || number == SYS_close) {
    const long real = zarnSystemCall(number, registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                                     registers[REG_R10], registers[REG_R8], registers[REG_R9]);
    if (!isToFail) result = real;
  }
  registers[REG_RAX] = result;
  errno = error;
}

using Filter = std::vector<sock_filter>;

constexpr std::uint32_t kAddress = offsetof(seccomp_data, instruction_pointer);

/// Lets through what is asked for from [first, last), which lies within 4 GiB.
void letThrough(Filter& filter, std::uintptr_t first, std::uintptr_t last) {
  const auto high = static_cast<std::uint32_t>(first >> 32U);
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAddress + 4));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, high, 0, 4));
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAddress));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, static_cast<std::uint32_t>(first), 0, 2));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, static_cast<std::uint32_t>(last - 1), 1, 0));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
}

/// The sanitizers' own calls are none of the program's. Most come from their libraries; those
/// that these make through others are told by their frames.
int letSanitizersThrough(dl_phdr_info* library, std::size_t /*size*/, void* filter) {
  const std::string_view name(library->dlpi_name);
  if (name.find("/libasan.") == name.npos && name.find("/libubsan.") == name.npos) return 0;
  for (int i = 0; i < library->dlpi_phnum; ++i) {
    const auto& part = library->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    const std::uintptr_t first = library->dlpi_addr + part.p_vaddr, last = first + part.p_memsz;
    const std::uintptr_t border = last & ~std::uintptr_t{0xffffffff};
    if (first < border) letThrough(*static_cast<Filter*>(filter), first, border);
    letThrough(*static_cast<Filter*>(filter), std::max(first, border), last);
    if (sanitizerCount < sanitizers.size()) sanitizers[sanitizerCount++] = {first, last};
  }
  return 0;
}

const char* nameOf(long what) {
  static const std::map<long, const char*> names = {
#define ZARN_CALL(name) {SYS_##name, #name}
      ZARN_CALL(read),
      ZARN_CALL(write),
      ZARN_CALL(open),
      ZARN_CALL(openat),
      ZARN_CALL(close),
      ZARN_CALL(fstat),
      ZARN_CALL(newfstatat),
      ZARN_CALL(lseek),
      ZARN_CALL(ftruncate),
      ZARN_CALL(renameat),
      ZARN_CALL(rename),
      ZARN_CALL(unlinkat),
      ZARN_CALL(mkdirat),
      ZARN_CALL(mkdir),
      ZARN_CALL(getdents64),
      ZARN_CALL(fcntl),
      ZARN_CALL(ioctl),
      ZARN_CALL(poll),
      ZARN_CALL(ppoll),
      ZARN_CALL(socket),
      ZARN_CALL(socketpair),
      ZARN_CALL(connect),
      ZARN_CALL(bind),
      ZARN_CALL(sendto),
      ZARN_CALL(sendmsg),
      ZARN_CALL(recvfrom),
      ZARN_CALL(recvmsg),
      ZARN_CALL(getsockopt),
      ZARN_CALL(setsockopt),
      ZARN_CALL(getsockname),
      ZARN_CALL(getpeername),
      ZARN_CALL(epoll_create1),
      ZARN_CALL(epoll_ctl),
      ZARN_CALL(epoll_wait),
      ZARN_CALL(eventfd2),
      ZARN_CALL(pipe2),
      ZARN_CALL(timerfd_create),
      ZARN_CALL(timerfd_settime),
      ZARN_CALL(getrandom),
      ZARN_CALL(utimensat),
      ZARN_CALL(statx),
      ZARN_CALL(readlink),
      ZARN_CALL(uname),
      ZARN_CALL(getuid),
      ZARN_CALL(geteuid),
      ZARN_CALL(sendmmsg),
      ZARN_CALL(pread64),
      ZARN_CALL(getegid),
      ZARN_CALL(getgid),
#undef ZARN_CALL
      {kNew, "operator new"},
      {kMalloc, "malloc"},
      {kThread, "pthread_create"}};
  const auto found = names.find(what);
  return found != names.end() ? found->second : nullptr;
}

}  // namespace

bool install() {
  Filter filter;
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const auto place = reinterpret_cast<std::uintptr_t>(zarnSystemCallReturn);
  letThrough(filter, place, place + 1);
  dl_iterate_phdr(letSanitizersThrough, &filter);
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
  for (const long number : kLetThrough) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));

  struct sigaction action {};
  action.sa_sigaction = onSystemCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return sigaction(SIGSYS, &action, nullptr) == 0 && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

void arm(const Plan& next) {
  plan = next;
  counted = failed = 0;
  for (Site& site : sites) site.what = 0;
  armedKind.store(static_cast<int>(next.kind), std::memory_order_release);
}

Report disarm() {
  armedKind.store(-1, std::memory_order_release);
  const auto shown = [](long what) {
    const char* const name = nameOf(what);
    return name != nullptr ? name : "call " + std::to_string(what);
  };
  Report report{counted, failed, failed != 0 ? shown(lastFailed) : "", {}};
  for (const Site& site : sites) {
    const long what = site.what;
    if (what == 0) continue;
    report.sites.emplace(shown(what), site.place);
  }
  return report;
}

}  // namespace zarn::faults

// ---- Memory and threads ------------------------------------------------------------------

// NOLINTBEGIN(cppcoreguidelines-no-malloc): what is replaced here
#ifndef ZARN_REAL_PREFIX  // what stands before the names of those that are replaced
#define ZARN_REAL_PREFIX __libc_
#endif
#define ZARN_JOINED(prefix, name) prefix##name
#define ZARN_EXPANDED(prefix, name) ZARN_JOINED(prefix, name)
#define ZARN_REAL(name) ZARN_EXPANDED(ZARN_REAL_PREFIX, name)
extern "C" void* ZARN_REAL(malloc)(std::size_t);
extern "C" void* ZARN_REAL(calloc)(std::size_t, std::size_t);
extern "C" void* ZARN_REAL(realloc)(void*, std::size_t);

namespace {
bool memoryFails(long what) noexcept {
  if (zarn::faults::isSanitizers || !zarn::faults::fails(zarn::faults::Kind::Memory, what, 0)) return false;
  errno = ENOMEM;
  return true;
}

/// The one that ours takes the place of.
template <typename Function>
Function nextOf(const char* name) noexcept {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" {
void* malloc(std::size_t bytes) noexcept {
  return memoryFails(zarn::faults::kMalloc) ? nullptr : ZARN_REAL(malloc)(bytes);
}
void* calloc(std::size_t count, std::size_t bytes) noexcept {
  return memoryFails(zarn::faults::kMalloc) ? nullptr : ZARN_REAL(calloc)(count, bytes);
}
void* realloc(void* memory, std::size_t bytes) noexcept {
  return memoryFails(zarn::faults::kMalloc) ? nullptr : ZARN_REAL(realloc)(memory, bytes);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
  static const auto real = nextOf<decltype(&pthread_create)>("pthread_create");
  const bool isToFail = zarn::faults::fails(zarn::faults::Kind::Threads, zarn::faults::kThread, 0);
  return isToFail ? EAGAIN : real(thread, attributes, run, argument);
}

// Nobody but a sanitizer asks for these.
int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) noexcept {
  static const auto real = nextOf<decltype(&pthread_getattr_np)>("pthread_getattr_np");
  zarn::faults::isSanitizers = true;
  const int result = real(thread, attributes);
  zarn::faults::isSanitizers = false;
  return result;
}
}

// The real ones allocate, so that whoever looks after pairs of new and delete still can.
void* operator new(std::size_t bytes) {
  static const auto real = nextOf<void* (*)(std::size_t)>("_Znwm");
  if (memoryFails(zarn::faults::kNew)) throw std::bad_alloc();
  return real(bytes);
}
void* operator new[](std::size_t bytes) {
  static const auto real = nextOf<void* (*)(std::size_t)>("_Znam");
  if (memoryFails(zarn::faults::kNew)) throw std::bad_alloc();
  return real(bytes);
}
// NOLINTEND(cppcoreguidelines-no-malloc)
