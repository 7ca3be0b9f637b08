#include "prefs/serializable.h"

#include <string>

#include "prefs/value_text.h"

namespace zarn {
namespace {

void appendEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        // Readers of elements turn a bare line break or tab in an attribute into a blank.
        if (c >= 0 && c < ' ') {
          out.append("&#").append(std::to_string(c)).append(";");
        } else {
          out += c;
        }
    }
  }
}

}  // namespace

void ElementWriter::openElement(std::string_view name, std::size_t attributeCount) {
  // The settings screen asks for all preferences at once, so memory is taken for a whole
  // element; longer attributes only cost another allocation.
  constexpr std::size_t usualAttributeBytes = 32;
  text_.reserve(text_.size() + name.size() + attributeCount * usualAttributeBytes);
  text_.append("<").append(name);
}

void ElementWriter::writeAttribute(std::string_view name, std::string_view value) {
  text_.append(" ").append(name).append("=\"");
  appendEscaped(text_, value);
  text_ += '"';
}

void ElementWriter::closeElement() {
  text_ += " />\n";
}

// The result is part of an interface in which other writers answer the text itself.
std::string Serializable::serialize(ElementWriter& writer) const {
  serializeTo(writer);
  return {};
}

void Serializable::serializeTo(ElementWriter& writer) const {
  writer.openElement(elementName(), attributes_.size());
  for (const auto& [name, value] : attributes_) writer.writeAttribute(name, value);
  writer.closeElement();
}

void Serializable::fillAttributes(const PreferenceReader& /*store*/) {}

void Serializable::setAttribute(std::string_view name, std::string_view value) {
  attributes_.insert_or_assign(std::string(name), std::string(value));
}

void Serializable::setAttribute(std::string_view name, bool value) {
  setAttribute(name, value ? "1" : "0");
}

void Serializable::setAttribute(std::string_view name, std::int32_t value) {
  setAttribute(name, std::string_view(std::to_string(value)));
}

void Serializable::setAttribute(std::string_view name, double value) {
  setAttribute(name, std::string_view(doubleText(value)));
}

void Serializable::removeAttribute(std::string_view name) {
  if (const auto found = attributes_.find(name); found != attributes_.end()) attributes_.erase(found);
}

}  // namespace zarn
