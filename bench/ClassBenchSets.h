#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/TcamTable.h"

// Filter sets and header traces in the style of the published ClassBench ones (D. Taylor, J. Turner:
// ClassBench, a packet classification benchmark, IEEE/ACM Transactions on Networking 15(3), 2007), as
// rows and keys of the chip's IPv4 table.

namespace bench {

// Ports and addresses are in host order; ranges include both ends.
struct Filter {
  uint32_t src = 0;
  uint32_t dst = 0;
  unsigned srcLength = 0;
  unsigned dstLength = 0;
  uint16_t srcLow = 0;
  uint16_t srcHigh = 0xFFFF;
  uint16_t dstLow = 0;
  uint16_t dstHigh = 0xFFFF;
  uint8_t protocol = 0;
  uint8_t protocolMask = 0; // a bit of 1 is compared
};

struct Header {
  uint32_t src = 0;
  uint32_t dst = 0;
  uint16_t srcPort = 0;
  uint16_t dstPort = 0;
  uint8_t protocol = 0;
};

using Filters = std::vector<Filter>;
using Headers = std::vector<Header>;

// The kinds of lists that published sets are drawn from: access lists of routers (specific destinations,
// few ranges), firewalls (many wildcards and ranges on both ports), and packet mangling lists between.
enum class Style : uint8_t { acl, fw, ipc };

// The path of a published file of this name among the shared data (test/Shared.h); empty when there are none.
std::string publishedPath(const std::string& name);
// The filters of a file in the published format, or an empty list when it cannot be read.
Filters readFilters(const std::string& path);
Headers readTrace(const std::string& path);

// `count` different filters, from the more to the less specific.
Filters makeFilters(Style style, unsigned count, uint64_t seed);
// At least `count` headers: corners of filters drawn at random, each repeated a Pareto number of times.
Headers makeTrace(const Filters& filters, std::size_t count, uint64_t seed);
// The same values in each column, each column in an order of its own: few headers come twice.
Headers shuffled(const Headers& headers, uint64_t seed);

// The rows of one access list (ACL id 1, port role): each range as prefixes, each pair of them a row.
std::vector<sim::TcamRow> makeRows(const Filters& filters);
std::vector<sim::TcamKeyBytes> makeKeys(const Headers& headers);
// The same in the IPv6 table: an address stands in the second to fifth octet behind 20, and hosts have
// interface identifiers of their own, so that prefixes become those of 8 to 39 bits, or of 128.
std::vector<sim::TcamRow> makeRows6(const Filters& filters);
std::vector<sim::TcamKeyBytes> makeKeys6(const Headers& headers);

} // namespace bench
