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
  std::filesystem::path program;
};

/// Makes the folders, writable by SYSTEM and administrators alone and the temp
/// folder not even readable by others, and empties `incoming`. Throws SetupError.
void prepareFolders(const ProgramFolder& folder);

/// Removes `incoming`, what was replaced and, when nothing was ever installed there,
/// the folder itself. What is in use stays until the next reboot, and what could not
/// be put back stays until it was replaced after all.
void tidyFolders(const ProgramFolder& folder) noexcept;

/// Puts the chosen CA bundle among the incoming files; an empty choice leaves the
/// shipped one, none keeps one that was chosen before. Throws SetupError.
void settleCaBundle(const ProgramFolder& folder, const std::wstring* choice);

/// Throws SetupError when the file cannot be read or holds no certificate.
void checkCaBundle(const std::wstring& file);

/// Puts the incoming files in the place of those of the same names by renaming,
/// which works for programs that are running, too. Everything is put back at the
/// end of its life unless keep() or undo() was called.
class Replacement {
 public:
  explicit Replacement(const ProgramFolder& folder) : folder_(folder) {}
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() { undo(); }

  /// Throws SetupError.
  void run();
  void keep() noexcept;
  /// Puts everything back, for some seconds also what others have open. False when
  /// files could not be put back and stay in outgoing().
  bool undo() noexcept;
  /// Where the replaced files are: a new folder, since files of an earlier run that
  /// are in use cannot leave theirs.
  [[nodiscard]] const std::filesystem::path& outgoing() const noexcept { return outgoing_; }

 private:
  struct Move {
    std::filesystem::path from;
    std::filesystem::path to;
  };
  void freeOutgoing() noexcept;
  void move(const std::filesystem::path& from, const std::filesystem::path& to);

  const ProgramFolder& folder_;
  std::filesystem::path outgoing_;
  std::vector<Move> done_;
  /// Kept or put back.
  bool settled_ = false;
};

/// Deletes what the service logged, for the service's account and for the own one,
/// each at its present place; other files in those folders stay, links are not
/// followed. Throws SetupError when a log could not be deleted, after the others.
void purgeLogs();

}  // namespace zarn::setup
