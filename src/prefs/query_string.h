// Text of the form "key=value&key=value", as in the query part of a URL.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zarn {

/// Keys and values are percent-decoded and '+' stands for a blank; a '%' without
/// two hexadecimal digits stands for itself. Of repeated keys the first counts.
/// A key without '=' has an empty value; a pair with an empty key is dropped.
class QueryString {
 public:
  QueryString() = default;
  explicit QueryString(std::string_view text);

  /// The value of `key`, or null. Valid as long as this object.
  [[nodiscard]] const std::string* find(std::string_view key) const;

 private:
  std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace zarn
