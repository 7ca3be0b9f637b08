#include <windows.h>

#include <sddl.h>

#include <algorithm>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "update/record_folder.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

/// Nothing is inherited from above, where every user may add files.
constexpr wchar_t kFolderSecurity[] =
    L"D:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";  // 0x1200a9: read and list

/// How often a place is cleared in which others keep putting something.
constexpr int kTries = 4;

Result<void> makeFolder(const std::string& path) {
  LocalMemory descriptor;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kFolderSecurity, SDDL_REVISION_1,
                                                           descriptor.receive(), nullptr) == 0) {
    return lastFailure();
  }
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
  return resultOf(CreateDirectoryW(FileUtils::toPath(path).c_str(), &attributes) != 0);
}

/// A record's time in a form that can be part of a file's name.
std::string nameTime(std::string isoTime) {
  std::replace(isoTime.begin(), isoTime.end(), ':', '.');
  return isoTime;
}

/// "Update History.2026-11-21T10.15.00.007Z.jsonl".
std::string nameWithTime(std::string name, const InstallRecord& record) {
  return name.insert(name.rfind('.'), "." + nameTime(record.time));
}

/// Renames what stands in the way, and keeps it: it may be evidence. A link is renamed,
/// not followed.
Result<void> moveAside(const std::string& path) {
  const std::string target = path + " untrusted " + nameTime(isoTime(std::chrono::system_clock::now()));
  if (MoveFileExW(FileUtils::toPath(path).c_str(), FileUtils::toPath(target).c_str(), 0) == 0)
    return lastFailure();
  logLine(LogLevel::Warn, "%s was not the service's own and is now %s.", printable(path), printable(target));
  return {};
}

/// A file whose name goes with it.
struct PassingFile {
  PassingFile(FileHandle opened, boost::filesystem::path its, boost::filesystem::path last)
      : file(std::move(opened)), path(std::move(its)), lastPath(std::move(last)) {}
  PassingFile(const PassingFile&) = delete;
  PassingFile& operator=(const PassingFile&) = delete;
  // Whoever still reads it must not keep its name from being free, which on older systems it
  // is with the last reader only.
  ~PassingFile() {
    const IoDeadline deadline(kLogFileLimit);
    const bool isRenamed = MoveFileExW(path.c_str(), lastPath.c_str(), 0) != 0;
    static_cast<void>(removeOpenedFile(file.get()));
    file.reset();
    // Not every system deletes an opened file under its new name.
    if (isRenamed) DeleteFileW(lastPath.c_str());
  }

  FileHandle file;
  boost::filesystem::path path, lastPath;
};

/// Sees to it that a folder to be trusted is at the path, if need be a new one.
Result<void> establish(const std::string& path) {
  auto checked = checkRecordFolder(path);
  for (int tries = 0; !checked && tries < kTries; ++tries) {
    const bool isMissing = checked.error().isNotFound();
    if (!isMissing && checked.error().code() != kFolderNotTrusted) return checked;
    const auto cleared = isMissing ? makeFolder(path) : moveAside(path);
    // Somebody may put something there again as soon as the place is free.
    if (!cleared && !cleared.error().isAlreadyThere()) return cleared;
    checked = checkRecordFolder(path);
  }
  return checked;
}

}  // namespace

bool RecordFolder::hold() {
  if (held_) return true;
  Result<void> outcome = establish(path_);
  if (outcome) {
    // What is to be trusted stays where it is: others cannot rename, replace or link it.
    const auto take = [&] {
      return FileUtils::HeldFolder::hold(path_, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
    };
    auto held = take(), again = take();
    if (held && again) {
      // What a power cut left there says nothing of this process.
      static_cast<void>(held->removeTree(names::kInstalling.narrow));
      held_ = std::move(*held);
      const MutexLock lock(announcing_);
      announced_ = std::move(*again);
    } else {
      outcome = failure(held ? again.error() : held.error());
    }
  }
  if (!outcome && !hasComplained_) {
    logLine(LogLevel::Error, "The update history cannot be kept in %s: %s", printable(path_),
            describeSystemError(outcome.error()));
  }
  hasComplained_ = !outcome;
  return outcome.has_value();
}

bool RecordFolder::prepare() {
  const IoDeadline deadline(kOpenLimit);
  const MutexLock lock(mutex_);
  return hold();
}

bool RecordFolder::append(const InstallRecord& record) {
  const MutexLock lock(mutex_);
  // Every user may read the files, and so ask for a lock on them that we would wait for.
  const IoDeadline deadline(kLogFileLimit);
  const RecordFileNames& file = record.exitCode ? kHistoryNames : kRefusedNames;
  const std::string line = recordLine(record);
  if (hold()) {
    if (appendLine(*held_, file, line)) return true;
    // Any reader can keep the file from being written to, but not one that is not there
    // yet. Of refusals there could be any number of such files.
    const std::string spare = nameWithTime(names::kHistory.narrow, record);
    if (record.exitCode && appendLine(*held_, {spare, spare}, line)) return true;
  }
  logUnwrittenRecord();
  return false;
}

std::shared_ptr<void> RecordFolder::announce(const InstallRecord& record) {
  const MutexLock lock(announcing_);
  const IoDeadline deadline(kLogFileLimit);
  if (!announced_) return nullptr;
  const std::string text = installingText(record, GetCurrentProcessId());
  const auto pathOf = [&](const std::string& name) { return FileUtils::toPath(announced_->pathOf(name)); };
  static_cast<void>(announced_->removeTree(names::kInstalling.narrow));
  // The folder is held and only the system and administrators write to it, so that its
  // path and this name can lead nowhere else.
  const auto path = pathOf(names::kInstalling.narrow);
  FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                              nullptr, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  if (!file) return nullptr;
  auto passing = std::make_shared<PassingFile>(std::move(file), path,
                                               pathOf(nameWithTime(names::kInstalling.narrow, record)));
  DWORD written = 0;
  const bool isWritten =
      WriteFile(passing->file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != 0;
  return isWritten ? passing : nullptr;
}

}  // namespace zarn
