#include "update/under_way.h"

#include "update/json_fields.h"

namespace zarn {

InstallUnderWay parseInstalling(std::string_view text) {
  // The parser neither throws here nor recurses, so that no depth of brackets ends it.
  const auto object = nlohmann::ordered_json::parse(text, nullptr, false);
  if (!object.is_object()) return {};
  return {textAt(object, "since"), numberAt<std::uint32_t>(object, "processId").value_or(0),
          textAt(object, "path")};
}

}  // namespace zarn
