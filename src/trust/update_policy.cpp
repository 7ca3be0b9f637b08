#include "trust/update_policy.h"

#include <fmt/format.h>

#include "util/printable.h"
#include "util/product_names.h"

namespace zarn {
namespace {

/// Why a bundle is refused; nothing when it is not.
using Refusal = std::optional<std::string>;

std::string unreadableValue(const char* value, const Unreadable& problem) {
  return fmt::format("the value {} cannot be read: {}", value, problem.reason);
}

Refusal judgeProduct(const std::string& required, const std::string& product) {
  if (product == required) return std::nullopt;
  const std::string named = product.empty() ? "no product" : "the product \"" + printable(product) + "\"";
  return fmt::format("its version resource names {}, and not \"{}\"", named, printable(required));
}

Refusal judgeVersion(const Stored<ProductVersion>& highest, const std::optional<ProductVersion>& version) {
  if (const auto* problem = problemOf(highest)) {
    return unreadableValue(names::kHighestInstalledVersionValue.narrow, *problem);
  }
  if (!version) return "it has no version number";
  // On a machine where nothing was installed yet, every version is high enough.
  const auto* const installed = std::get_if<ProductVersion>(&highest);
  if (installed == nullptr || *version >= *installed) return std::nullopt;
  return fmt::format("its version {} is lower than {}, which was installed before", versionText(*version),
                     versionText(*installed));
}

}  // namespace

UpdatePolicy builtInPolicy() {
  return {ZARN_REQUIRED_PRODUCT, ZARN_REFUSE_OLDER != 0};
}

PolicyResult judgeByPolicy(const StoredPolicy& stored, const UpdatePolicy& builtIn,
                           const std::function<FileVersion()>& readBundle) {
  // A rule that cannot be read may be in force, so it refuses before any other is asked.
  if (const auto* problem = problemOf(stored.requiredProduct)) {
    return PolicyResult::refused(unreadableValue(names::kRequiredProductValue.narrow, *problem));
  }
  if (const auto* problem = problemOf(stored.refuseOlder)) {
    return PolicyResult::refused(unreadableValue(names::kRefuseOlderValue.narrow, *problem));
  }
  // What the administrator stored counts, also where it switches a built-in rule off.
  UpdatePolicy policy = builtIn;
  if (const auto* product = std::get_if<std::string>(&stored.requiredProduct)) {
    policy.requiredProduct = *product;
  }
  if (const auto* refuses = std::get_if<std::uint32_t>(&stored.refuseOlder)) {
    policy.refusesOlder = *refuses != 0;
  }
  const bool asksForProduct = !policy.requiredProduct.empty();
  if (!asksForProduct && !policy.refusesOlder) return PolicyResult(std::nullopt);

  const FileVersion bundle = readBundle();
  Refusal refusal;
  if (asksForProduct) refusal = judgeProduct(policy.requiredProduct, bundle.product);
  if (!refusal && policy.refusesOlder) refusal = judgeVersion(stored.highestInstalled, bundle.number);
  return PolicyResult(std::move(refusal));
}

Stored<ProductVersion> asVersion(const Stored<std::string>& text) {
  return whenRead(text, [](const std::string& stored) -> Stored<ProductVersion> {
    if (const auto version = parseVersion(stored)) return *version;
    return Unreadable{"\"" + printable(stored) + "\" is no version"};
  });
}

std::optional<std::string> versionToRemember(const Stored<ProductVersion>& highest,
                                             const ProductVersion& installed) {
  // What cannot be read may have been a higher version.
  if (problemOf(highest) != nullptr) return std::nullopt;
  const auto* const before = std::get_if<ProductVersion>(&highest);
  if (before != nullptr && *before >= installed) return std::nullopt;
  return versionText(installed);
}

}  // namespace zarn
