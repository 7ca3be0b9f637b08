#include "os/launch_guard_win.h"

#include "os/handles_win.h"

namespace zarn::os {
namespace {

/// The system may refuse once; that everything in the job ends with us must not stay.
constexpr int kTries = 5;

/// A process cannot leave its job, so that there is one for all its time.
HANDLE ownJob() noexcept {
  static const KernelHandle job = [] {
    KernelHandle made(CreateJobObjectW(nullptr, nullptr));
    if (made && AssignProcessToJobObject(made.get(), GetCurrentProcess()) == 0) made.reset();
    return made;
  }();
  return job.get();
}

bool isAloneIn(HANDLE job) noexcept {
  JOBOBJECT_BASIC_ACCOUNTING_INFORMATION facts{};
  return QueryInformationJobObject(job, JobObjectBasicAccountingInformation, &facts, sizeof(facts),
                                   nullptr) != 0 &&
         facts.ActiveProcesses == 1;
}

/// Whether all in the job end when its last handle is closed, which is ours.
bool setEndsWithUs(HANDLE job, bool ends) noexcept {
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = ends ? JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE : 0;
  return SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits)) != 0;
}

}  // namespace

LaunchGuard::LaunchGuard() noexcept {
  HANDLE const job = ownJob();
  if (job != nullptr && isAloneIn(job) && setEndsWithUs(job, true)) job_ = job;
}

LaunchGuard::~LaunchGuard() {
  if (job_ == nullptr) return;
  for (int tries = 0; tries < kTries && !setEndsWithUs(job_, false); ++tries) {
  }
}

}  // namespace zarn::os
