// Which of a collector's addresses lines are sent to; for the collector's socket only.
#pragma once

#include <boost/asio/ip/udp.hpp>
#include <vector>

namespace zarn {

/// The first of the endpoints to which this machine has a route, as far as it can tell
/// without sending anything; the first of all when it has none, for the network may
/// come up later. There must be one.
[[nodiscard]] boost::asio::ip::udp::endpoint reachableEndpoint(
    const std::vector<boost::asio::ip::udp::endpoint>& endpoints);

}  // namespace zarn
