// Objects that describe themselves as one element with named attributes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zarn {

class PreferenceReader;

/// Collects elements as text: <Name attribute="value" .../>, values escaped.
class ElementWriter {
 public:
  /// Begins an element that gets exactly `attributeCount` attributes before it is closed.
  void openElement(std::string_view name, std::size_t attributeCount);
  void writeAttribute(std::string_view name, std::string_view value);
  void closeElement();

  [[nodiscard]] const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

/// Root of everything that can be written as an element. Not thread-safe: whoever
/// fills or writes an object has it to themselves for that time.
class Serializable {
 public:
  using Attributes = std::map<std::string, std::string, std::less<>>;

  Serializable() = default;
  Serializable(const Serializable&) = delete;
  Serializable& operator=(const Serializable&) = delete;
  virtual ~Serializable() = default;

  [[nodiscard]] virtual std::string_view elementName() const = 0;

  /// Writes the element; what was written is in `writer`, the result is always empty.
  virtual std::string serialize(ElementWriter& writer) const;
  virtual void serializeTo(ElementWriter& writer) const;

  /// Sets the attributes to what holds now, with current values from `store`.
  virtual void fillAttributes(const PreferenceReader& store);
  virtual void afterSerialize() const {}

  [[nodiscard]] const Attributes& attributes() const noexcept { return attributes_; }

 protected:
  void setAttribute(std::string_view name, std::string_view value);
  void setAttribute(std::string_view name, const char* value) { setAttribute(name, std::string_view(value)); }
  void setAttribute(std::string_view name, bool value);  // "1" or "0"
  void setAttribute(std::string_view name, std::int32_t value);
  void setAttribute(std::string_view name, double value);
  void removeAttribute(std::string_view name);

 private:
  Attributes attributes_;
};

}  // namespace zarn
