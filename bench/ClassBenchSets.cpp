#include "bench/ClassBenchSets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

#include "XpXdk/IaclTypes.h"
#include "test/Shared.h"

namespace bench {

namespace {

using namespace XpXdk;
using Random = std::mt19937_64;

// How the filters of a style are drawn. Shares are percentages.
struct Recipe {
  std::vector<std::array<unsigned, 2>> lengths; // (source, destination) prefix lengths, drawn evenly
  unsigned srcWild, dstWild;                    // ports: any
  unsigned srcRange, dstRange;                  // ports: a range; else one port
  unsigned anyProtocol, udp;
  unsigned skew; // how often a prefix follows the heavier branch of the tree of addresses
};

const Recipe& recipe(Style style) {
  static const Recipe acl{{{32, 32},
                           {27, 32},
                           {24, 32},
                           {20, 32},
                           {16, 32},
                           {0, 32},
                           {32, 24},
                           {24, 24},
                           {22, 32},
                           {28, 30},
                           {8, 32},
                           {0, 27},
                           {16, 24}},
                          96,
                          12,
                          50,
                          16,
                          10,
                          15,
                          80};
  static const Recipe fw{{{32, 0},
                          {0, 32},
                          {29, 29},
                          {27, 27},
                          {0, 24},
                          {32, 32},
                          {24, 0},
                          {0, 29},
                          {32, 24},
                          {0, 27},
                          {16, 32},
                          {0, 0}},
                         45,
                         25,
                         55,
                         40,
                         15,
                         30,
                         75};
  static const Recipe ipc{{{32, 32},
                           {32, 32},
                           {32, 30},
                           {31, 32},
                           {24, 32},
                           {32, 24},
                           {0, 32},
                           {32, 0},
                           {24, 24},
                           {16, 32},
                           {27, 32},
                           {32, 16}},
                          65,
                          35,
                          15,
                          20,
                          20,
                          35,
                          80};
  return style == Style::acl ? acl : style == Style::fw ? fw : ipc;
}

bool percent(Random& random, unsigned share) {
  return random() % 100 < share;
}

uint64_t mixed(uint64_t x) {
  x = (x ^ x >> 31) * 0x9E3779B97F4A7C15ull;
  return x ^ x >> 29;
}

// A prefix drawn from a tree in which each node has a heavier branch, so that prefixes cluster and nest.
uint32_t drawPrefix(Random& random, uint64_t tree, unsigned length, unsigned skew) {
  uint32_t prefix = 0;
  for (unsigned bit = 0; bit < length; ++bit) {
    const uint32_t heavier = mixed(tree ^ (uint64_t{prefix} << 6 | bit)) & 1;
    // Near the leaves addresses spread more evenly than near the root.
    const unsigned share = bit < 16 ? skew + (100 - skew) / 2 : 50 + skew / 5;
    prefix |= (percent(random, share) ? heavier : heavier ^ 1) << (31 - bit);
  }
  return prefix;
}

void drawPorts(Random& random, unsigned wild, unsigned range, uint16_t& low, uint16_t& high) {
  static constexpr uint16_t known[] = {80, 53, 443, 25, 161, 21, 22, 123, 1521, 5500, 1433, 137, 110, 514};
  if (percent(random, wild)) {
    low = 0;
    high = 0xFFFF;
  } else if (percent(random, range)) {
    switch (random() % 4) {
    case 0:
    case 1:
      low = 1024;
      high = 0xFFFF;
      break;
    case 2:
      low = static_cast<uint16_t>(1 + random() % 10000);
      high = static_cast<uint16_t>(low + 1 + random() % 16);
      break;
    default:
      low = static_cast<uint16_t>(random() % 30000);
      high = static_cast<uint16_t>(low + random() % 4000);
    }
  } else {
    low = high =
        random() % 3 != 0 ? known[random() % std::size(known)] : static_cast<uint16_t>(random() % 9000);
  }
}

// The least set of prefixes that covers a range of ports.
struct PortPrefix {
  uint16_t value;
  uint16_t ignored;
};
std::vector<PortPrefix> portPrefixes(uint16_t low, uint16_t high) {
  std::vector<PortPrefix> prefixes;
  for (uint32_t at = low; at <= high;) {
    uint32_t size = 1;
    while (size < 0x10000 && at % (size * 2) == 0 && at + size * 2 - 1 <= high) {
      size *= 2;
    }
    prefixes.push_back({static_cast<uint16_t>(at), static_cast<uint16_t>(size - 1)});
    at += size;
  }
  return prefixes;
}

uint32_t ignoredBits(unsigned length) {
  return length == 0 ? ~uint32_t{0} : (uint32_t{1} << (32 - length)) - 1;
}

unsigned fieldOffset(IaclIpField field) {
  return iaclKeyLayout(IACL_V4_KEY_TYPE)->fields[field].offset;
}

void put16(sim::TcamKeyBytes& key, IaclIpField field, uint16_t value) {
  key[fieldOffset(field)] = static_cast<uint8_t>(value);
  key[fieldOffset(field) + 1] = static_cast<uint8_t>(value >> 8);
}

void put32(sim::TcamKeyBytes& key, IaclIpField field, uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) {
    key[fieldOffset(field) + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  }
}

using Address6 = std::array<uint8_t, 16>; // as on the wire

Address6 address6(uint32_t address) {
  Address6 result{0x20};
  const uint64_t interface = mixed(address);
  for (unsigned i = 0; i < 4; ++i) {
    result[1 + i] = static_cast<uint8_t>(address >> (24 - 8 * i));
  }
  for (unsigned i = 0; i < 8; ++i) {
    result[8 + i] = static_cast<uint8_t>(interface >> (8 * i));
  }
  return result;
}

Address6 ignored6(unsigned length) {
  Address6 result{};
  if (length < 32) {
    result.fill(0xFF);
    for (unsigned bit = 0; bit < 8 + length; ++bit) {
      result[bit / 8] = static_cast<uint8_t>(result[bit / 8] & ~(0x80 >> bit % 8));
    }
  }
  return result;
}

// The key has the least significant octet first.
void putAddress6(sim::TcamKeyBytes& key, IaclIpField field, const Address6& address) {
  std::copy(address.rbegin(), address.rend(),
            key.begin() + iaclKeyLayout(IACL_V6_KEY_TYPE)->fields[field].offset);
}

constexpr uint8_t hasL4 = 4;

sim::TcamRow makeRow(const Filter& filter, const PortPrefix& src, const PortPrefix& dst) {
  sim::TcamRow row;
  const bool ports = src.ignored != 0xFFFF || dst.ignored != 0xFFFF;
  put16(row.value, IACL_IP_ACL_ID, 1);
  put16(row.mask, IACL_IP_ACL_ID, 0);
  row.value[fieldOffset(IACL_IP_FLAGS)] = ports ? hasL4 : 0;
  row.mask[fieldOffset(IACL_IP_FLAGS)] = static_cast<uint8_t>(ports ? ~(hasL4 | 1u) : ~1u);
  put16(row.value, IACL_IP_SRC_L4, src.value);
  put16(row.mask, IACL_IP_SRC_L4, src.ignored);
  put16(row.value, IACL_IP_DST_L4, dst.value);
  put16(row.mask, IACL_IP_DST_L4, dst.ignored);
  row.value[fieldOffset(IACL_IP_PROTO)] = filter.protocol;
  row.mask[fieldOffset(IACL_IP_PROTO)] = static_cast<uint8_t>(~filter.protocolMask);
  put32(row.value, IACL_IP_SRC_ADDR, filter.src);
  put32(row.mask, IACL_IP_SRC_ADDR, ignoredBits(filter.srcLength));
  put32(row.value, IACL_IP_DST_ADDR, filter.dst);
  put32(row.mask, IACL_IP_DST_ADDR, ignoredBits(filter.dstLength));
  return row;
}

} // namespace

std::string publishedPath(const std::string& name) {
  const std::optional<std::filesystem::path> data = test::sharedData();
  return data ? (*data / "classbench" / name).string() : "";
}

Filters readFilters(const std::string& path) {
  Filters filters;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    unsigned s[5], d[5], sl, sh, dl, dh, protocol, mask;
    if (std::sscanf(line.c_str(), "@%u.%u.%u.%u/%u %u.%u.%u.%u/%u %u : %u %u : %u %x/%x", &s[0], &s[1], &s[2],
                    &s[3], &s[4], &d[0], &d[1], &d[2], &d[3], &d[4], &sl, &sh, &dl, &dh, &protocol,
                    &mask) != 16) {
      return {};
    }
    filters.push_back({(s[0] << 24 | s[1] << 16 | s[2] << 8 | s[3]) & ~ignoredBits(s[4]),
                       (d[0] << 24 | d[1] << 16 | d[2] << 8 | d[3]) & ~ignoredBits(d[4]), s[4], d[4],
                       static_cast<uint16_t>(sl), static_cast<uint16_t>(sh), static_cast<uint16_t>(dl),
                       static_cast<uint16_t>(dh), static_cast<uint8_t>(protocol),
                       static_cast<uint8_t>(mask)});
  }
  return filters;
}

Headers readTrace(const std::string& path) {
  Headers headers;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    Header header;
    unsigned srcPort, dstPort, protocol;
    if (!(words >> header.src >> header.dst >> srcPort >> dstPort >> protocol)) {
      return {};
    }
    header.srcPort = static_cast<uint16_t>(srcPort);
    header.dstPort = static_cast<uint16_t>(dstPort);
    header.protocol = static_cast<uint8_t>(protocol);
    headers.push_back(header);
  }
  return headers;
}

Filters makeFilters(Style style, unsigned count, uint64_t seed) {
  const Recipe& how = recipe(style);
  Random random(seed);
  const uint64_t srcTree = random();
  const uint64_t dstTree = random();
  Filters filters;
  std::set<std::tuple<uint64_t, uint64_t, uint64_t>> known;
  while (filters.size() < count) {
    Filter f;
    const auto [srcLength, dstLength] = how.lengths[random() % how.lengths.size()];
    f.srcLength = srcLength;
    f.dstLength = dstLength;
    f.src = drawPrefix(random, srcTree, srcLength, how.skew);
    f.dst = drawPrefix(random, dstTree, dstLength, how.skew);
    drawPorts(random, how.srcWild, how.srcRange, f.srcLow, f.srcHigh);
    drawPorts(random, how.dstWild, how.dstRange, f.dstLow, f.dstHigh);
    const bool ports = f.srcHigh - f.srcLow != 0xFFFF || f.dstHigh - f.dstLow != 0xFFFF;
    if (ports || !percent(random, how.anyProtocol)) {
      f.protocol = percent(random, how.udp) ? 17 : ports || !percent(random, 20) ? 6 : 1;
      f.protocolMask = 0xFF;
    }
    if (known
            .emplace(uint64_t{f.src} << 32 | f.dst, f.srcLength << 16 | f.dstLength << 8 | f.protocol,
                     uint64_t{f.srcLow} << 48 | uint64_t{f.srcHigh} << 32 | uint64_t{f.dstLow} << 16 |
                         f.dstHigh)
            .second) {
      filters.push_back(f);
    }
  }
  std::stable_sort(filters.begin(), filters.end(), [](const Filter& a, const Filter& b) {
    return a.srcLength + a.dstLength > b.srcLength + b.dstLength;
  });
  return filters;
}

Headers makeTrace(const Filters& filters, std::size_t count, uint64_t seed) {
  Random random(seed);
  Headers headers;
  while (headers.size() < count) {
    const Filter& f = filters[random() % filters.size()];
    Header h;
    h.src = f.src | (random() % 2 ? ignoredBits(f.srcLength) : 0);
    h.dst = f.dst | (random() % 2 ? ignoredBits(f.dstLength) : 0);
    h.srcPort = random() % 2 ? f.srcLow : f.srcHigh;
    h.dstPort = random() % 2 ? f.dstLow : f.dstHigh;
    h.protocol = f.protocolMask ? f.protocol : static_cast<uint8_t>(random() % 2 ? 6 : 17);
    // Pareto with a = 1 and b = 1, the generator's usual locality.
    const double u = std::uniform_real_distribution<>(1e-3, 1)(random);
    const auto copies = static_cast<std::size_t>(std::ceil(1 / u));
    headers.insert(headers.end(), std::min(copies, count - headers.size()), h);
  }
  return headers;
}

Headers shuffled(const Headers& headers, uint64_t seed) {
  Random random(seed);
  Headers result = headers;
  const auto column = [&](auto member) {
    for (std::size_t i = result.size(); i > 1; --i) {
      std::swap(result[i - 1].*member, result[random() % i].*member);
    }
  };
  column(&Header::src);
  column(&Header::dst);
  column(&Header::srcPort);
  column(&Header::dstPort);
  column(&Header::protocol);
  return result;
}

std::vector<sim::TcamRow> makeRows(const Filters& filters) {
  std::vector<sim::TcamRow> rows;
  for (const Filter& f : filters) {
    for (const PortPrefix& src : portPrefixes(f.srcLow, f.srcHigh)) {
      for (const PortPrefix& dst : portPrefixes(f.dstLow, f.dstHigh)) {
        rows.push_back(makeRow(f, src, dst));
      }
    }
  }
  return rows;
}

std::vector<sim::TcamRow> makeRows6(const Filters& filters) {
  std::vector<sim::TcamRow> rows = makeRows(filters);
  std::size_t at = 0;
  for (const Filter& f : filters) {
    const std::size_t end =
        at + portPrefixes(f.srcLow, f.srcHigh).size() * portPrefixes(f.dstLow, f.dstHigh).size();
    for (; at < end; ++at) {
      putAddress6(rows[at].value, IACL_IP_SRC_ADDR, address6(f.src));
      putAddress6(rows[at].mask, IACL_IP_SRC_ADDR, ignored6(f.srcLength));
      putAddress6(rows[at].value, IACL_IP_DST_ADDR, address6(f.dst));
      putAddress6(rows[at].mask, IACL_IP_DST_ADDR, ignored6(f.dstLength));
    }
  }
  return rows;
}

std::vector<sim::TcamKeyBytes> makeKeys6(const Headers& headers) {
  std::vector<sim::TcamKeyBytes> keys = makeKeys(headers);
  for (std::size_t i = 0; i < headers.size(); ++i) {
    putAddress6(keys[i], IACL_IP_SRC_ADDR, address6(headers[i].src));
    putAddress6(keys[i], IACL_IP_DST_ADDR, address6(headers[i].dst));
  }
  return keys;
}

std::vector<sim::TcamKeyBytes> makeKeys(const Headers& headers) {
  std::vector<sim::TcamKeyBytes> keys;
  keys.reserve(headers.size());
  for (const Header& h : headers) {
    sim::TcamKeyBytes key{};
    put16(key, IACL_IP_ACL_ID, 1);
    key[fieldOffset(IACL_IP_FLAGS)] = hasL4;
    put16(key, IACL_IP_SRC_L4, h.srcPort);
    put16(key, IACL_IP_DST_L4, h.dstPort);
    key[fieldOffset(IACL_IP_PROTO)] = h.protocol;
    key[fieldOffset(IACL_IP_TTL)] = 63;
    put32(key, IACL_IP_SRC_ADDR, h.src);
    put32(key, IACL_IP_DST_ADDR, h.dst);
    keys.push_back(key);
  }
  return keys;
}

} // namespace bench
