// What holds of every answer of zarn-update.
#pragma once

#include <algorithm>

#include "client/tool/report/answer.h"
#include "fuzz.h"

namespace zarn::fuzz {

/// The text is printable, and the object can be read by programs that know ASCII alone.
inline void requireFit(const tool::Answer& answer, const char* command) {
  for (const char c : answer.text + answer.error) {
    const auto byte = static_cast<unsigned char>(c);
    require(c == '\n' || (byte >= 0x20 && byte != 0x7f));
  }
  const std::string object = tool::jsonText(answer, command);
  require(tool::Json::parse(object).is_object() && std::ranges::all_of(object, [](char c) { return c > 0; }));
}

}  // namespace zarn::fuzz
