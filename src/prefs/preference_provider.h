// What a settings screen asks of whoever has settings to show.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "prefs/preference.h"

namespace zarn {

/// Decides which preferences the sender of a request may see.
class PreferenceAccessCheck {
 public:
  virtual ~PreferenceAccessCheck() = default;
  [[nodiscard]] virtual bool allows(const Preference& preference) const = 0;
};

/// The parts of a client's request that decide what it is shown.
struct PreferenceListRequest {
  using Fields = std::vector<std::pair<std::string, std::string>>;

  Fields headers;                                      ///< names are compared without regard to case
  Fields arguments;                                    ///< of the query string; names are compared exactly
  const PreferenceAccessCheck* accessCheck = nullptr;  ///< not owned; null allows everything
};

/// Identifier to text.
using PreferenceTexts = std::map<std::string, std::string, std::less<>>;

/// The parameters only tell families of providers apart.
template <typename, typename>
class PreferenceProvider {
 public:
  PreferenceProvider() = default;
  PreferenceProvider(const PreferenceProvider&) = delete;
  PreferenceProvider& operator=(const PreferenceProvider&) = delete;
  virtual ~PreferenceProvider() = default;

  /// Gives the referenced preferences their label, summary and choices. An
  /// unknown identifier is logged and skipped.
  virtual void resolveTexts(std::span<const std::string> identifiers) = 0;
  /// Adds every display text, by identifier.
  virtual void provideTexts(PreferenceTexts& labels, PreferenceTexts& summaries) const = 0;
  virtual void onTextsProvided() {}
  /// Appends the preferences that the request's sender may see, in the order of registration.
  virtual void listPreferences(const PreferenceListRequest& request,
                               std::vector<std::shared_ptr<Preference>>& out) const = 0;
};

}  // namespace zarn
