#include "plugin/program_files.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <chrono>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "os/handles_win.h"
#include "plugin/setup_error.h"
#include "util/held_folder.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::setup {
namespace {

namespace fs = std::filesystem;

// Owner and access of SYSTEM (SY), administrators (BA) and users (BU), inherited
// by everything inside and by nothing from outside.
constexpr wchar_t kAdministratorsWrite[] = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
constexpr wchar_t kAdministratorsOnly[] = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

constexpr wchar_t kCaBundle[] = L"Resources\\cacert.pem";
// Beside a CA bundle that the administrator chose.
constexpr wchar_t kChosenMark[] = L"Resources\\cacert.chosen";

constexpr wchar_t kOutgoing[] = L"Setup.old";
// In an outgoing folder whose files may be the only ones there are.
constexpr wchar_t kNeededMark[] = L"Still needed";

// A scanner has a file open for some seconds.
constexpr std::chrono::seconds kPutBackLimit(10);
constexpr std::chrono::milliseconds kPutBackInterval(100);

struct LocalFreeDeleter {
  void operator()(void* memory) const noexcept { LocalFree(memory); }
};

SetupError fileFailure(const std::wstring& what, const fs::path& path, std::uint32_t error) {
  return systemFailure(what + L" \"" + path.native() + L"\"", error);
}

bool isReparsePoint(const fs::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

void protect(const fs::path& folder, PSECURITY_DESCRIPTOR descriptor) {
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL access = nullptr;
  PSID owner = nullptr;
  if (GetSecurityDescriptorDacl(descriptor, &present, &access, &defaulted) == 0 ||
      GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) == 0) {
    throw fileFailure(L"Cannot protect", folder, GetLastError());
  }
  std::wstring name = folder.native();
  const DWORD error = SetNamedSecurityInfoW(
      name.data(), SE_FILE_OBJECT,
      OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, owner,
      nullptr, access, nullptr);
  if (error != ERROR_SUCCESS) throw fileFailure(L"Cannot protect", folder, error);
}

/// A folder with exactly this protection, from its first moment or from now on.
void makeFolder(const fs::path& folder, const wchar_t* protection) {
  PSECURITY_DESCRIPTOR raw = nullptr;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(protection, SDDL_REVISION_1, &raw, nullptr) == 0) {
    throw fileFailure(L"Cannot protect", folder, GetLastError());
  }
  const std::unique_ptr<void, LocalFreeDeleter> descriptor(raw);
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
  if (CreateDirectoryW(folder.c_str(), &attributes) != 0) return;
  const DWORD error = GetLastError();
  std::error_code ignored;
  if (error != ERROR_ALREADY_EXISTS || !fs::is_directory(folder, ignored) || isReparsePoint(folder)) {
    throw fileFailure(L"Cannot make the folder", folder, error);
  }
  protect(folder, descriptor.get());
}

/// What cannot be deleted now goes with the next reboot.
void removeOrSchedule(const fs::path& path) noexcept {
  try {
    std::error_code error;
    if (fs::remove_all(path, error); !error) return;
    std::vector<fs::path> left;
    for (const auto& entry : fs::recursive_directory_iterator(path, error)) left.push_back(entry.path());
    for (auto file = left.rbegin(); file != left.rend(); ++file) {
      if (!fs::remove(*file, error)) MoveFileExW(file->c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
    }
    MoveFileExW(path.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  } catch (const std::exception&) {
    // It stays, and the next run tries again.
  }
}

std::vector<fs::path> outgoingFolders(const ProgramFolder& folder) {
  std::vector<fs::path> result;
  std::error_code error;
  for (fs::directory_iterator entry(folder.root, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().native().starts_with(kOutgoing)) result.push_back(entry->path());
  }
  return result;
}

void removeOutgoing(const ProgramFolder& folder) {
  for (const auto& outgoing : outgoingFolders(folder)) {
    std::error_code ignored;
    if (!fs::exists(outgoing / kNeededMark, ignored)) removeOrSchedule(outgoing);
  }
}

void copyFile(const fs::path& from, const fs::path& to) {
  if (CopyFileW(from.c_str(), to.c_str(), FALSE) == 0)
    throw fileFailure(L"Cannot copy", from, GetLastError());
}

// ---- Logs ---------------------------------------------------------------------

/// Texts as the service reads them: none that ask to be expanded.
std::wstring registryText(HKEY root, const std::wstring& key, const wchar_t* value) {
  constexpr DWORD kind = RRF_RT_REG_SZ | RRF_NOEXPAND;
  DWORD bytes = 0;
  if (RegGetValueW(root, key.c_str(), value, kind, nullptr, nullptr, &bytes) != ERROR_SUCCESS) return {};
  std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
  if (RegGetValueW(root, key.c_str(), value, kind, nullptr, text.data(), &bytes) != ERROR_SUCCESS) return {};
  text.resize(std::wcslen(text.c_str()));
  return text;
}

/// The folders in which the product's folder may lie.
std::vector<fs::path> applicationDataFolders() {
  std::vector<fs::path> result;
  const auto add = [&](const std::wstring& folder) {
    if (!folder.empty()) result.emplace_back(folder);
  };
  std::wstring system(MAX_PATH, L'\0');
  system.resize(GetSystemDirectoryW(system.data(), MAX_PATH));
  add(system + L"\\config\\systemprofile\\AppData\\Local");
  const auto addStored = [&](const std::wstring& folder) {
    if (isUsable(judgeAppDataPath(StringUtils::utf16to8(folder), {}))) add(folder);
  };
  addStored(registryText(HKEY_USERS, std::wstring(L"S-1-5-18\\") + names::kPreferencesKey.wide,
                         names::kLocalAppDataPathValue.wide));
  addStored(registryText(HKEY_CURRENT_USER, names::kPreferencesKey.wide, names::kLocalAppDataPathValue.wide));
  std::wstring own(MAX_PATH, L'\0');
  const DWORD length = GetEnvironmentVariableW(L"LOCALAPPDATA", own.data(), MAX_PATH);
  own.resize(length < MAX_PATH ? length : 0);
  add(own);
  return result;
}

/// Notes a folder that is there, but is a link or cannot be held.
void noteFolder(const Result<FileUtils::HeldFolder>& folder, const fs::path& path,
                std::optional<SetupError>& failure) {
  if (folder || folder.error().isNotFound() || failure) return;
  failure = fileFailure(L"The service is removed, but not the logs in", path, folder.error().code());
}

/// `failure` keeps the first file that could not be deleted.
void removeFiles(const FileUtils::HeldFolder& folder, bool (*chosen)(std::string_view),
                 std::optional<SetupError>& failure) {
  std::vector<std::string> files;
  const auto listed = folder.list([&](const FileUtils::FolderEntry& entry) {
    const std::string name = FileUtils::toUtf8(entry.name);
    if (!entry.isFolder && chosen(name)) files.push_back(name);
  });
  if (!listed && !failure) {
    failure = fileFailure(L"The service is removed, but not the logs in",
                          StringUtils::utf8to16(folder.path()), listed.error().code());
  }
  for (const std::string& file : files) {
    if (const auto removed = folder.tryRemove(file); !removed && !failure) {
      failure = fileFailure(L"The service is removed, but not the log",
                            StringUtils::utf8to16(folder.pathOf(file)), removed.error().code());
    }
  }
}

/// What a variable holds whose folder's handle is closed.
const auto kLetGo = failure(ERROR_INVALID_HANDLE);

void purgeLogsIn(const fs::path& applicationData, std::optional<SetupError>& failure) {
  using FileUtils::HeldFolder;
  const fs::path path = applicationData / names::kProductFolder.wide;
  auto product = HeldFolder::hold(StringUtils::utf16to8(path.native()), FileUtils::Links::Refuse,
                                  FileUtils::OwnPlaces::Allow);
  noteFolder(product, path, failure);
  if (!product) return;
  auto logs = product->folder(names::kLogs.narrow);
  noteFolder(logs, path / names::kLogs.wide, failure);
  if (logs) {
    auto installers = logs->folder(names::kInstallerLogs.narrow);
    noteFolder(installers, path / names::kLogs.wide / names::kInstallerLogs.wide, failure);
    if (installers) removeFiles(*installers, isInstallerLogName<char>, failure);
    removeFiles(*logs, isServiceLogName<char>, failure);
    // The media server may keep its own files there: only empty folders go.
    installers = kLetGo;
    static_cast<void>(logs->tryRemove(names::kInstallerLogs.narrow));
    logs = kLetGo;
    static_cast<void>(product->tryRemove(names::kLogs.narrow));
  }
  product = kLetGo;
  RemoveDirectoryW(path.c_str());
}

}  // namespace

ProgramFolder::ProgramFolder(fs::path folder)
    : root(std::move(folder)),
      temp(root / L"Temp"),
      incoming(root / L"Setup.new"),
      program(root / L"ZarnUpdateService.exe") {}

void prepareFolders(const ProgramFolder& folder) {
  makeFolder(folder.root, kAdministratorsWrite);
  makeFolder(folder.temp, kAdministratorsOnly);
  std::error_code error;
  fs::remove_all(folder.incoming, error);
  if (!error) fs::create_directory(folder.incoming, error);
  if (error) {
    throw fileFailure(L"Cannot make the folder", folder.incoming, static_cast<std::uint32_t>(error.value()));
  }
}

void tidyFolders(const ProgramFolder& folder) noexcept {
  removeOrSchedule(folder.incoming);
  removeOutgoing(folder);
  std::error_code ignored;
  if (fs::exists(folder.program, ignored)) return;
  RemoveDirectoryW(folder.temp.c_str());
  RemoveDirectoryW(folder.root.c_str());
}

void checkCaBundle(const std::wstring& file) {
  std::ifstream stream(fs::path(file), std::ios::binary);
  if (!stream) throw SetupError(ExitCode::BadArguments, L"The file \"" + file + L"\" cannot be read.");
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (text.find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
    throw SetupError(ExitCode::BadArguments, L"The file \"" + file + L"\" holds no certificate in PEM form.");
  }
}

void settleCaBundle(const ProgramFolder& folder, const std::wstring* choice) {
  std::error_code ignored;
  const bool keep = choice == nullptr && fs::exists(folder.root / kChosenMark, ignored);
  const bool chosen = choice != nullptr && !choice->empty();
  if (!keep && !chosen) {
    fs::remove(folder.incoming / kChosenMark, ignored);
    return;
  }
  const fs::path source = chosen ? fs::path(*choice) : folder.root / kCaBundle;
  copyFile(source, folder.incoming / kCaBundle);
  if (!std::ofstream(folder.incoming / kChosenMark).put('\n')) {
    throw fileFailure(L"Cannot write", folder.incoming / kChosenMark, ERROR_WRITE_FAULT);
  }
}

bool Replacement::undo() noexcept {
  if (std::exchange(settled_, true)) return true;
  const auto deadline = std::chrono::steady_clock::now() + kPutBackLimit;
  bool whole = true;
  for (auto step = done_.rbegin(); step != done_.rend(); ++step) {
    bool moved = false;
    while (!(moved = MoveFileExW(step->to.c_str(), step->from.c_str(), 0) != 0) &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kPutBackInterval);
    }
    whole = whole && moved;
  }
  if (whole && !outgoing_.empty()) freeOutgoing();
  return whole;
}

void Replacement::move(const fs::path& from, const fs::path& to) {
  done_.reserve(done_.size() + 1);
  if (MoveFileExW(from.c_str(), to.c_str(), 0) == 0) throw fileFailure(L"Cannot replace", to, GetLastError());
  done_.push_back({from, to});
}

void Replacement::run() {
  std::error_code error;
  removeOutgoing(folder_);
  outgoing_ = folder_.root / kOutgoing;
  for (int number = 1; !fs::create_directory(outgoing_, error) && !error; ++number) {
    outgoing_ = folder_.root / (kOutgoing + (L'.' + std::to_wstring(number)));
  }
  if (error) {
    throw fileFailure(L"Cannot make the folder", outgoing_, static_cast<std::uint32_t>(error.value()));
  }
  if (!std::ofstream(outgoing_ / kNeededMark)) {
    throw fileFailure(L"Cannot write", outgoing_ / kNeededMark, ERROR_WRITE_FAULT);
  }
  std::vector<fs::path> names;
  for (const auto& entry : fs::directory_iterator(folder_.incoming)) names.push_back(entry.path().filename());
  for (const auto& name : names) {
    if (fs::exists(folder_.root / name, error)) move(folder_.root / name, outgoing_ / name);
    move(folder_.incoming / name, folder_.root / name);
  }
}

void Replacement::freeOutgoing() noexcept {
  try {
    DeleteFileW((outgoing_ / kNeededMark).c_str());
  } catch (const std::exception&) {
    // It stays, and a later run that succeeds removes it.
  }
}

void Replacement::keep() noexcept {
  settled_ = true;
  try {
    // Nothing of earlier runs is needed any more either.
    for (const auto& outgoing : outgoingFolders(folder_)) DeleteFileW((outgoing / kNeededMark).c_str());
  } catch (const std::exception&) {
    // They stay until a later run succeeds.
  }
}

void purgeLogs() {
  std::optional<SetupError> failure;
  for (const auto& folder : applicationDataFolders()) purgeLogsIn(folder, failure);
  if (failure) throw *failure;
}

}  // namespace zarn::setup
