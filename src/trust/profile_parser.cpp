#include "trust/profile_parser.h"

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <exception>
#include <sstream>
#include <stdexcept>

#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {

/// Named for the log line that shows its type.
struct ProfileNestingError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

namespace {

/// The JSON reader recurses at every bracket, so deep nesting would exhaust the
/// stack and end the process before it could be refused. Brackets inside strings
/// do not count. Up to the first error of syntax, where the reader stops, this
/// sees the same strings as the reader does.
void requireShallowNesting(const std::string& body) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < body.size(); ++i) {
    const char c = body[i];
    if (inString) {
      if (c == '\\') ++i;  // whatever is escaped does not end the string
      if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxProfileNesting) throw ProfileNestingError("nested too deeply");
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
}

}  // namespace

std::set<std::string> parseCertificateProfile(const std::string& body) {
  std::set<std::string> digests;
  try {
    requireShallowNesting(body);
    std::istringstream stream(body);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    for (const auto& [key, child] : tree.get_child("certs")) digests.insert(child.data());
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Error: Could not read json data, exception: %s, type: %s",
              printable(error.what()), typeName(error));
    });
  }
  return digests;
}

}  // namespace zarn
