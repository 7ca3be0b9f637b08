#include "util/file_utils.h"

#include <atomic>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "os/error_text.h"
#include "util/events.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/path_judge.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/remembered.h"

namespace zarn::FileUtils {
namespace {

namespace fs = boost::filesystem;
using boost::system::error_code;

constexpr std::size_t kLongPathBytes = 250;

// The preference store lies above this library, so it hands its reader down.
std::atomic<std::string (*)()> localAppDataPathReader{nullptr};

struct Override {
  Mutex mutex;
  std::string path ZARN_GUARDED_BY(mutex);
};

Override& applicationDataOverride() {
  static Override& instance = *std::make_unique<Override>().release();  // lives as long as the process
  return instance;
}

std::string overridePath() {
  auto& current = applicationDataOverride();
  const MutexLock lock(current.mutex);
  return current.path;
}

/// What became of the preference LocalAppDataPath.
struct ChosenPath {
  Mutex mutex;
  std::string lastUsed ZARN_GUARDED_BY(mutex);
  std::string refused ZARN_GUARDED_BY(mutex);  ///< the last text, when it was
  std::string refusal ZARN_GUARDED_BY(mutex);  ///< not yet taken
  bool refusalIsFinal ZARN_GUARDED_BY(mutex) = false;
};

ChosenPath& chosenPath() {
  static ChosenPath& instance = *std::make_unique<ChosenPath>().release();  // lives as long as the process
  return instance;
}

void noteUsed(const std::string& path) {
  auto& chosen = chosenPath();
  const MutexLock lock(chosen.mutex);
  chosen.lastUsed = path;
  chosen.refused.clear();
  chosen.refusal.clear();
}

void noteRefused(const std::string& path, PathKind kind) {
  auto& chosen = chosenPath();
  const MutexLock lock(chosen.mutex);
  if (chosen.refused != path) {
    reportEvent<EventId::AppDataPathNotUsed>(path, describe(kind));
    chosen.refused = path;
    chosen.refusal =
        formatPrintf("The application data path %s is not used: it is %s.", printable(path), describe(kind));
  }
  chosen.refusalIsFinal = kind != PathKind::Unreachable;
}

/// Whether a text was refused for what it says or leads to, which is not asked again: each
/// judgement may follow a link of somebody else's making.
bool isKnownRefusal(const std::string& path) {
  auto& chosen = chosenPath();
  const MutexLock lock(chosen.mutex);
  return !path.empty() && chosen.refused == path && chosen.refusalIsFinal;
}

/// The path that was good before; empty when it is no more.
std::string usedBefore() {
  std::string former;
  {
    auto& chosen = chosenPath();
    const MutexLock lock(chosen.mutex);
    former = chosen.lastUsed;
  }
  return former.empty() || isUsable(judgeAppDataPath(former, ownFolders())) ? former : std::string();
}

/// The preference's text, or what is used in its place; empty for the service's own folder.
///
/// Judged at every look-up, because what the path leads to may change while its text stays.
std::string usableBase(const std::string& path) {
  if (isKnownRefusal(path)) return usedBefore();
  const auto own = path.empty() ? std::vector<std::string>() : ownFolders();
  const PathKind kind = path.empty() ? PathKind::LocalFolder : judgeAppDataPath(path, own);
  if (isUsable(kind)) {
    noteUsed(path);
    return path;
  }
  noteRefused(path, kind);
  return usedBefore();
}

}  // namespace

std::string withLongPathPrefix(std::string_view path) {
  const bool driveLetter = path.size() > 2 && path[1] == ':';
  return std::string(driveLetter && path.size() > kLongPathBytes ? R"(\\?\)" : "").append(path);
}

fs::path toPath(std::string_view path) {
  auto native = os::pathFromUtf8(withLongPathPrefix(path));
  if (native) return std::move(*native);
  logLine(LogLevel::Error, "utf8to16: MultiByteToWideChar failed: %d", native.error().reported());
  return {};
}

std::string toUtf8(const fs::path& path) {
  auto text = os::utf8FromPath(path);
  if (text) return std::move(*text);
  logLine(LogLevel::Error, "utf16to8: WideCharToMultiByte failed: %d", text.error().reported());
  return {};
}

std::string join(std::string_view directory, std::string_view name) {
  std::string result(directory);
  if (!result.empty() && !os::isSeparator(result.back())) result += os::kSeparator;
  result += name;
  std::string reduced;
  reduced.reserve(result.size());
  for (std::size_t i = 0; i < result.size(); ++i) {
    const bool repeats = i > 1 && os::isSeparator(result[i]) && os::isSeparator(result[i - 1]);
    if (!repeats) reduced += result[i];
  }
  return reduced;
}

namespace {

/// The error of what throws for one. The library's functions that answer an error instead end
/// the process where those throw for lack of memory.
template <typename Work>
error_code errorOf(const Work& work) {
  try {
    work();
    return {};
  } catch (const fs::filesystem_error& failure) {
    return failure.code();
  }
}

}  // namespace

bool copyFile(std::string_view from, std::string_view to) {
  error_code error;
  fs::copy_file(toPath(from), toPath(to), error);
  if (!error) return true;
  logLine(LogLevel::Error, "Couldn't copy file %s to %s: %s", printable(from), printable(to),
          systemErrorPhrase(error));
  return false;
}

bool copyDirectoryRecursively(std::string_view from, std::string_view to) {
  const error_code error = errorOf([&] { fs::copy(toPath(from), toPath(to), fs::copy_options::recursive); });
  if (!error) return true;
  logLine(LogLevel::Error, "Error copying directory recursively: %s", systemErrorPhrase(error));
  return false;
}

namespace {

/// The source goes only when all of it has been copied.
bool moveAcrossVolumes(std::string_view from, std::string_view to) {
  error_code error;
  const fs::path source = toPath(from);
  if (fs::is_directory(source, error)) {
    if (!copyDirectoryRecursively(from, to)) return false;
    error = errorOf([&] { fs::remove_all(source); });
    if (!error) return true;
    logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(from), systemErrorPhrase(error));
    return false;
  }
  fs::copy_file(source, toPath(to), fs::copy_options::overwrite_existing, error);
  if (error) {
    logLine(LogLevel::Error, "Couldn't copy file %s to %s: %s", printable(from), printable(to),
            systemErrorPhrase(error));
    return false;
  }
  return deleteFile(from);
}

}  // namespace

bool move(std::string_view from, std::string_view to) {
  error_code error;
  fs::rename(toPath(from), toPath(to), error);
  if (!error) return true;
  // Compared as a condition: the system's own number differs from the generic one.
  if (error == boost::system::errc::cross_device_link) return moveAcrossVolumes(from, to);
  logLine(LogLevel::Error, "Couldn't copy file %s to %s: %s", printable(from), printable(to),
          systemErrorPhrase(error));
  return false;
}

bool deleteFile(std::string_view path, bool quiet) {
  error_code error;
  const fs::path target = toPath(path);
  if (target.empty() && !path.empty()) return false;  // no path of this system; logged by the conversion
  fs::remove(target, error);
  if (!error) return true;
  if (!quiet)
    logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(path), systemErrorPhrase(error));
  return false;
}

bool createDirectories(std::string_view path) {
  const error_code error = errorOf([&] { fs::create_directories(toPath(path)); });
  if (!error) return true;
  logLine(LogLevel::Error, "Error creating directory %s: %s", printable(path), systemErrorPhrase(error));
  return false;
}

bool exists(std::string_view path) noexcept {
  try {
    error_code error;
    return fs::exists(fs::symlink_status(toPath(path), error));
  } catch (const std::exception&) {
    return false;
  }
}

bool isDirectory(std::string_view path) {
  error_code error;
  // A missing directory is an answer and no failure, so that it leaves no line.
  const bool result = fs::is_directory(toPath(path), error);
  if (error && error != boost::system::errc::no_such_file_or_directory) {
    logLine(LogLevel::Error, "IsDirectory failed %s", systemErrorPhrase(error));
  }
  return result;
}

std::uint64_t fileSize(std::string_view path) {
  error_code error;
  const std::uintmax_t size = fs::file_size(toPath(path), error);
  if (!error) return size;
  logLine(LogLevel::Error, "Couldn't get size of file %s: %s", printable(path), systemErrorPhrase(error));
  return ~std::uint64_t{0};
}

void logOpenFailure(std::string_view path, const os::OpenFailure& reason) {
  using Step = os::OpenFailure::Step;
  if (reason.step == Step::Open) {
    logLine(LogLevel::Error, "safe_fopen: CreateFileW for '%s' failed: %d", printable(path), reason.code);
    return;
  }
  const auto error = static_cast<int>(reason.code);
  const char* const call = reason.step == Step::Descriptor ? "_open_osfhandle" : "_fdopen";
  logLine(LogLevel::Error, "safe_fopen: %s failed with errno %d: %s", call, error,
          std::string_view(std::strerror(error)));
}

ScopedFile safeOpen(std::string_view path, const char* mode, bool shareDelete, Links links) {
  if (*mode == '\0') mode = "r";  // fopen knows no empty mode
  auto file = os::openStream(toPath(path), mode, shareDelete ? os::Sharing::All : os::Sharing::Read, links);
  if (file) return std::move(*file);
  logOpenFailure(path, file.error());
  return nullptr;
}

void setApplicationDataOverride(std::string path) {
  auto& current = applicationDataOverride();
  const MutexLock lock(current.mutex);
  current.path = std::move(path);
}

// A prefix of the text is not enough: "C:\Data2" does not lie below "C:\Data".
bool isBelowOverride(std::string_view path) {
  const std::string current = overridePath();
  return !current.empty() && path.starts_with(current) &&
         (path.size() == current.size() || os::isSeparator(path[current.size()]));
}

void setLocalAppDataPathReader(std::string (*reader)()) noexcept {
  localAppDataPathReader.store(reader);
}

namespace {

/// Without it there is no place for a log, so that nobody can be told but by the end.
std::string userApplicationDataFolder() {
  static Remembered& known = *std::make_unique<Remembered>().release();
  auto folder = known.orLast(os::userDataFolder());
  if (!folder) logFatal("SHGetSpecialFolderPath(CSIDL_LOCAL_APPDATA) failed: %d", folder.error().reported());
  return std::move(*folder);
}

/// Empty for the service's own folder.
std::string chosenBase() {
  auto* const reader = localAppDataPathReader.load();
  return reader != nullptr ? usableBase(reader()) : std::string();
}

}  // namespace

bool isApplicationDataChosen() {
  return !overridePath().empty() || !chosenBase().empty();
}

bool makeLogDirectory() {
  // A chosen path may lie on a drive that does not answer.
  const IoDeadline deadline(kOpenLimit);
  const std::string base = overridePath().empty() ? chosenBase() : std::string();
  if (base.empty()) return createDirectories(applicationDataDirectory()) && createDirectories(logDirectory());
  const std::string product = join(base, names::kProductFolder.narrow);
  const std::string logs = join(product, names::kLogs.narrow);
  error_code error;
  for (const std::string& folder : {product, logs}) {
    fs::create_directory(toPath(folder), error);  // one that is there is no error
    if (!error) continue;
    logLine(LogLevel::Error, "Error creating directory %s: %s", printable(folder), systemErrorPhrase(error));
    return false;
  }
  return true;
}

std::string applicationDataDirectory(bool withProduct, bool allowPreference) {
  if (withProduct) {
    if (std::string path = overridePath(); !path.empty()) return path;
  }
  std::string base;
  if (allowPreference) base = chosenBase();
  if (base.empty()) base = userApplicationDataFolder();
  return withProduct ? join(base, names::kProductFolder.narrow) : base;
}

std::string takeRefusalOfAppDataPath() {
  auto& chosen = chosenPath();
  const MutexLock lock(chosen.mutex);
  return std::exchange(chosen.refusal, {});
}

std::string logDirectory(bool withProduct, bool allowPreference) {
  return join(applicationDataDirectory(withProduct, allowPreference), names::kLogs.narrow);
}

std::string databasesDirectory() {
  std::string path = join(join(applicationDataDirectory(), "Plug-in Support"), "Databases");
  if (!exists(path)) createDirectories(path);
  return path;
}

std::string resourcesDirectory() {
  return join(toUtf8(toPath(programPath()).parent_path()), names::kResources.narrow);
}

std::string certificateFileIn(std::string_view resources) {
  std::string chosen = join(resources, names::kChosenAuthorities.narrow);
  // Whatever stands there counts, also what cannot be looked at or read: then no request
  // is sent. The shipped list would trust authorities that somebody has ruled out.
  error_code error;
  if (fs::symlink_status(toPath(chosen), error).type() != fs::file_not_found) return chosen;
  return join(resources, names::kShippedAuthorities.narrow);
}

std::string certificateFile() {
  return certificateFileIn(resourcesDirectory());
}

}  // namespace zarn::FileUtils
