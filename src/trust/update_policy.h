// What may run of all that an approved certificate signed: only a certain product,
// and nothing older than what was installed before. Both rules are off by default.
//
// An administrator switches them on in the registry, below HKEY_LOCAL_MACHINE
// (util/product_names.h): "RequiredProduct" (text; empty for any product) and
// "RefuseOlder" (number; not 0 for yes). A value that is missing there is as it was
// chosen when the program was built. Whatever is there and cannot be read refuses.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "util/product_version.h"
#include "util/stored_value.h"

namespace zarn {

struct StoredPolicy;

struct UpdatePolicy {
  /// The product name that a bundle must have, letter by letter; empty for any.
  std::string requiredProduct;
  /// Refuses a lower version than the highest installed before. The same one passes.
  bool refusesOlder = false;
};

/// As it was chosen when the program was built.
[[nodiscard]] UpdatePolicy builtInPolicy();

/// Allowed, which only judgeByPolicy() can say, or refused with a sentence; there is
/// no way to have one by default.
class [[nodiscard]] PolicyResult {
 public:
  static PolicyResult refused(std::string sentence) { return PolicyResult(std::move(sentence)); }

  [[nodiscard]] bool isAllowed() const noexcept { return !refusal_; }

  /// Why not, in words that fit behind a colon, printable; only of a refusal.
  [[nodiscard]] const std::string& sentence() const { return refusal_.value(); }

 private:
  friend PolicyResult judgeByPolicy(const StoredPolicy& stored, const UpdatePolicy& builtIn,
                                    const std::function<FileVersion()>& readBundle);

  explicit PolicyResult(std::optional<std::string> refusal) : refusal_(std::move(refusal)) {}

  std::optional<std::string> refusal_;
};

struct StoredPolicy {
  Stored<std::string> requiredProduct{};
  Stored<std::uint32_t> refuseOlder{};
  Stored<ProductVersion> highestInstalled{};
};

/// A stored text as the version that it must be.
[[nodiscard]] Stored<ProductVersion> asVersion(const Stored<std::string>& text);

/// Judges a bundle whose version resource `readBundle` reads, which is asked only when
/// a rule is in force. What a rule needs and a bundle or store does not tell refuses.
PolicyResult judgeByPolicy(const StoredPolicy& stored, const UpdatePolicy& builtIn,
                           const std::function<FileVersion()>& readBundle);

/// What is to be stored as the highest version once `installed` has been installed;
/// nothing when the stored one is as high, or cannot be read: it is never lowered.
[[nodiscard]] std::optional<std::string> versionToRemember(const Stored<ProductVersion>& highest,
                                                           const ProductVersion& installed);

/// The machine's rules as they are stored now. Windows only, like the next two.
[[nodiscard]] StoredPolicy readStoredPolicy();

/// Judges the bundle at `path` (UTF-8) by this machine's policy; a refusal is logged.
/// The caller holds the file, so that it stays what it is.
PolicyResult CheckUpdatePolicy(const std::string& path);

/// Remembers that `version` was installed, whether or not a rule asks for it. A failure
/// is logged and changes nothing.
void rememberInstalledVersion(const ProductVersion& version) noexcept;

}  // namespace zarn
