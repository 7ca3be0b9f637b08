// A response's body and headers, however libcurl cuts them: the same body, no more of it
// than may be, and the headers that a plain reading finds.
#include <vector>

#include "fuzz.h"
#include "http/http_transfer.h"

namespace {

using zarn::fuzz::require;
using zarn::fuzz::Taking;
using Pieces = std::vector<std::string>;

/// Each is as long as the byte before it says.
Pieces piecesOf(Taking& input) {
  Pieces pieces;
  while (!input.rest().empty()) {
    const std::size_t length = input.byte();
    pieces.push_back(input.text(length));
  }
  return pieces;
}

void judgeBody(Pieces pieces, std::int64_t most) {
  const auto context = zarn::HttpContext::create("https://host/", "GET");
  context->maxDownloadSize = most;
  std::string whole;
  bool isTaken = true;
  for (std::string& piece : pieces) {
    whole += piece;
    const bool isCut = piece.size() % 2 != 0;  // libcurl says 1 and the length, but need not
    const std::size_t taken = zarn::boundedWriteCallback(piece.data(), isCut ? 1 : 2,
                                                         piece.size() / (isCut ? 1 : 2), context.get());
    isTaken = taken == piece.size() && (taken != 0 || piece.empty());
    if (!isTaken) break;
  }
  require(context->oversize == (whole.size() > static_cast<std::size_t>(most)) &&
          isTaken != context->oversize);
  require(whole.starts_with(context->body) && context->receivedSize == std::ssize(context->body));
  require(context->receivedSize <= most && (context->oversize || context->body == whole));
}

/// Name and value, as plainly as it can be said.
std::pair<std::string, std::string> fieldOf(const std::string& line, std::size_t colon) {
  std::string value = line.substr(colon + 1);
  while (value.ends_with('\n') || value.ends_with('\r')) value.pop_back();
  while (value.ends_with(' ') || value.ends_with('\t')) value.pop_back();
  while (value.starts_with(' ') || value.starts_with('\t')) value.erase(0, 1);
  return {line.substr(0, colon), value};
}

/// `before` lines and bytes are left until there are too many.
void judgeHeaders(Pieces lines, std::size_t before) {
  const auto context = zarn::HttpContext::create("https://host/", "GET");
  context->receivedHeaderLines = zarn::kMaxHeaderLines - before / 4;
  context->receivedHeaderBytes = zarn::kMaxHeaderBytes - before * 4;
  std::multimap<std::string, std::string> wanted;
  std::size_t bytes = 0, count = 0;
  for (std::string& line : lines) {
    bytes += line.size();
    const bool fits = ++count <= before / 4 && bytes <= before * 4;
    require(zarn::HeaderReceived(line.data(), 1, line.size(), context.get()) == (fits ? line.size() : 0));
    if (!fits) break;
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos) wanted.insert(fieldOf(line, colon));
  }
  require(context->responseHeaders == wanted);
}

void judgeHttp(const std::string& input) {
  Taking taking(input);
  const std::uint8_t most = taking.byte();
  const Pieces pieces = piecesOf(taking);
  judgeBody(pieces, 1 + 4 * most);
  judgeHeaders(pieces, most);
}

const zarn::fuzz::Target kHttp("http", judgeHttp);

}  // namespace
