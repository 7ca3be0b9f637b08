// The program folder: made safe, renewed as a whole, and freed of its traces.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zarn::setup {

/// The places inside the program folder.
struct ProgramFolder {
  explicit ProgramFolder(std::filesystem::path folder);

  std::filesystem::path root;
  std::filesystem::path temp;      // the service's private temp folder
  std::filesystem::path incoming;  // where the script unpacks what shall be installed
  std::filesystem::path outgoing;  // what was replaced
  std::filesystem::path program;
};

/// Makes the folders, writable by SYSTEM and administrators alone and the temp
/// folder not even readable by others, and empties `incoming`. Throws SetupError.
void prepareFolders(const ProgramFolder& folder);

/// Removes `incoming`, `outgoing` and, when nothing was ever installed there, the
/// folder itself. What is in use stays until the next reboot.
void tidyFolders(const ProgramFolder& folder) noexcept;

/// Puts the chosen CA bundle among the incoming files; an empty choice leaves the
/// shipped one, none keeps one that was chosen before. Throws SetupError.
void settleCaBundle(const ProgramFolder& folder, const std::wstring* choice);

/// Throws SetupError when the file holds no certificate.
void checkCaBundle(const std::wstring& file);

/// Puts the incoming files in the place of those of the same names by renaming,
/// which works for programs that are running, too. Everything is put back at the
/// end of its life unless keep() was called.
class Replacement {
 public:
  explicit Replacement(const ProgramFolder& folder) : folder_(folder) {}
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement();

  /// Throws SetupError.
  void run();
  void keep() noexcept;

 private:
  struct Move {
    std::filesystem::path from;
    std::filesystem::path to;
  };
  void move(const std::filesystem::path& from, const std::filesystem::path& to);

  const ProgramFolder& folder_;
  std::vector<Move> done_;
};

/// Deletes what the service and its setup logged, for the service's account and
/// for the own one; other files in those folders stay, links are not followed.
void purgeLogs();

}  // namespace zarn::setup
