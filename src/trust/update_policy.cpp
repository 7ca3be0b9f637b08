#include "trust/update_policy.h"

#include <fmt/format.h>

#include "util/printable.h"
#include "util/product_names.h"

namespace zarn {
namespace {

template <typename T>
const Unreadable* problemOf(const Stored<T>& stored) {
  return std::get_if<Unreadable>(&stored);
}

PolicyResult refuseUnreadable(const char* value, const Unreadable& problem) {
  return PolicyResult::refused(fmt::format("the value {} cannot be read: {}", value, problem.reason));
}

PolicyResult judgeProduct(const std::string& required, const std::string& product) {
  if (product == required) return PolicyResult::allowed();
  const std::string named = product.empty() ? "no product" : "the product \"" + printable(product) + "\"";
  return PolicyResult::refused(
      fmt::format("its version resource names {}, and not \"{}\"", named, printable(required)));
}

PolicyResult judgeVersion(const Stored<ProductVersion>& highest,
                          const std::optional<ProductVersion>& version) {
  if (const auto* problem = problemOf(highest)) {
    return refuseUnreadable(names::kHighestInstalledVersionValue.narrow, *problem);
  }
  if (!version) return PolicyResult::refused("it has no version number");
  const auto* const installed = std::get_if<ProductVersion>(&highest);
  if (installed == nullptr || *version >= *installed) return PolicyResult::allowed();
  return PolicyResult::refused(fmt::format("its version {} is lower than {}, which was installed before",
                                           versionText(*version), versionText(*installed)));
}

}  // namespace

UpdatePolicy builtInPolicy() {
  return {ZARN_REQUIRED_PRODUCT, ZARN_REFUSE_OLDER != 0};
}

PolicyResult judgeByPolicy(const StoredPolicy& stored, const UpdatePolicy& builtIn,
                           const std::function<FileVersion()>& readBundle) {
  if (const auto* problem = problemOf(stored.requiredProduct)) {
    return refuseUnreadable(names::kRequiredProductValue.narrow, *problem);
  }
  if (const auto* problem = problemOf(stored.refuseOlder)) {
    return refuseUnreadable(names::kRefuseOlderValue.narrow, *problem);
  }
  UpdatePolicy policy = builtIn;
  if (const auto* product = std::get_if<std::string>(&stored.requiredProduct)) {
    policy.requiredProduct = *product;
  }
  if (const auto* refuses = std::get_if<std::uint32_t>(&stored.refuseOlder)) {
    policy.refusesOlder = *refuses != 0;
  }
  if (policy.requiredProduct.empty() && !policy.refusesOlder) return PolicyResult::allowed();

  const FileVersion bundle = readBundle();
  if (!policy.requiredProduct.empty()) {
    auto judged = judgeProduct(policy.requiredProduct, bundle.product);
    if (!judged.isAllowed()) return judged;
  }
  return policy.refusesOlder ? judgeVersion(stored.highestInstalled, bundle.number) : PolicyResult::allowed();
}

Stored<ProductVersion> asVersion(const Stored<std::string>& text) {
  if (const auto* problem = problemOf(text)) return *problem;
  const auto* const stored = std::get_if<std::string>(&text);
  if (stored == nullptr) return std::monostate();
  if (const auto version = parseVersion(*stored)) return *version;
  return Unreadable{"\"" + printable(*stored) + "\" is no version"};
}

std::optional<std::string> versionToRemember(const Stored<ProductVersion>& highest,
                                             const ProductVersion& installed) {
  if (problemOf(highest) != nullptr) return std::nullopt;
  const auto* const before = std::get_if<ProductVersion>(&highest);
  if (before != nullptr && *before >= installed) return std::nullopt;
  return versionText(installed);
}

}  // namespace zarn
