#include "agent/config/Names.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

struct Icmp {
  std::string_view name;
  uint8_t type;
  int16_t code; // or any
};

constexpr int16_t any = -1;

// RFC 792, RFC 950, RFC 1122, RFC 1191, RFC 1256, RFC 1812, RFC 8335.
constexpr std::array icmpNames = {
    Icmp{"administratively-prohibited", 3, 13},
    Icmp{"alternate-address", 6, any},
    Icmp{"conversion-error", 31, any},
    Icmp{"destination-unreachable", 3, any},
    Icmp{"dod-host-prohibited", 3, 10},
    Icmp{"dod-net-prohibited", 3, 9},
    Icmp{"echo", 8, any},
    Icmp{"echo-reply", 0, any},
    Icmp{"echo-request", 8, any},
    Icmp{"extended-echo-reply", 43, any},
    Icmp{"extended-echo-request", 42, any},
    Icmp{"fragmentation-needed", 3, 4},
    Icmp{"general-parameter-problem", 12, 0},
    Icmp{"host-isolated", 3, 8},
    Icmp{"host-precedence-unreachable", 3, 14},
    Icmp{"host-redirect", 5, 1},
    Icmp{"host-tos-redirect", 5, 3},
    Icmp{"host-tos-unreachable", 3, 12},
    Icmp{"host-unknown", 3, 7},
    Icmp{"host-unreachable", 3, 1},
    Icmp{"information-reply", 16, any},
    Icmp{"information-request", 15, any},
    Icmp{"mask-reply", 18, any},
    Icmp{"mask-request", 17, any},
    Icmp{"mobile-redirect", 32, any},
    Icmp{"net-redirect", 5, 0},
    Icmp{"net-tos-redirect", 5, 2},
    Icmp{"net-tos-unreachable", 3, 11},
    Icmp{"net-unreachable", 3, 0},
    Icmp{"network-unknown", 3, 6},
    Icmp{"no-room-for-option", 12, 2},
    Icmp{"option-missing", 12, 1},
    Icmp{"packet-too-big", 3, 4},
    Icmp{"parameter-problem", 12, any},
    Icmp{"photuris", 40, any},
    Icmp{"port-unreachable", 3, 3},
    Icmp{"precedence-unreachable", 3, 15},
    Icmp{"protocol-unreachable", 3, 2},
    Icmp{"reassembly-timeout", 11, 1},
    Icmp{"redirect", 5, any},
    Icmp{"router-advertisement", 9, any},
    Icmp{"router-solicitation", 10, any},
    Icmp{"source-quench", 4, any},
    Icmp{"source-route-failed", 3, 5},
    Icmp{"time-exceeded", 11, any},
    Icmp{"timestamp", 13, any},
    Icmp{"timestamp-reply", 14, any},
    Icmp{"timestamp-request", 13, any},
    Icmp{"traceroute", 30, any},
    Icmp{"ttl-exceeded", 11, 0},
    Icmp{"unreachable", 3, any},
};

// RFC 2710, RFC 2894, RFC 3810, RFC 4443, RFC 4861, RFC 6275.
constexpr std::array icmpV6Names = {
    Icmp{"address-unreachable", 1, 3},
    Icmp{"administratively-prohibited", 1, 1},
    Icmp{"beyond-scope", 1, 2},
    Icmp{"destination-unreachable", 1, any},
    Icmp{"dhaad-reply", 145, any},
    Icmp{"dhaad-request", 144, any},
    Icmp{"echo", 128, any},
    Icmp{"echo-reply", 129, any},
    Icmp{"echo-request", 128, any},
    Icmp{"header", 4, 0},
    Icmp{"hop-limit", 3, 0},
    Icmp{"mld-done", 132, any},
    Icmp{"mld-query", 130, any},
    Icmp{"mld-reduction", 132, any},
    Icmp{"mld-report", 131, any},
    Icmp{"mld-v2-report", 143, any},
    Icmp{"mldv2", 143, any},
    Icmp{"mldv2-report", 143, any},
    Icmp{"mpd-advertisement", 147, any},
    Icmp{"mpd-solicitation", 146, any},
    Icmp{"nd-na", 136, any},
    Icmp{"nd-ns", 135, any},
    Icmp{"neighbor-advertisement", 136, any},
    Icmp{"neighbor-solicitation", 135, any},
    Icmp{"next-header", 4, 1},
    Icmp{"no-admin", 1, 1},
    Icmp{"no-route", 1, 0},
    Icmp{"packet-too-big", 2, any},
    Icmp{"parameter-option", 4, 2},
    Icmp{"parameter-problem", 4, any},
    Icmp{"port-unreachable", 1, 4},
    Icmp{"reassembly-timeout", 3, 1},
    Icmp{"redirect", 137, any},
    Icmp{"reject-route", 1, 6},
    Icmp{"router-advertisement", 134, any},
    Icmp{"router-renumbering", 138, any},
    Icmp{"router-solicitation", 133, any},
    Icmp{"source-policy", 1, 5},
    Icmp{"time-exceeded", 3, any},
    Icmp{"unreachable", 1, any},
};

template <class Table>
constexpr bool namesAscend(const Table& table) {
  for (size_t i = 1; i < table.size(); ++i)
    if (table[i].name <= table[i - 1].name)
      return false;
  return true;
}
static_assert(namesAscend(icmpNames) && namesAscend(icmpV6Names), "names are found by halving");

template <class Table>
std::optional<IcmpName> findIcmp(const Table& table, std::string_view name) {
  const auto at =
      std::lower_bound(table.begin(), table.end(), name, [](const Icmp& entry, std::string_view word) {
        return compareWords(entry.name, word) < 0;
      });
  if (at == table.end() || !sameWord(at->name, name))
    return std::nullopt;
  IcmpName result{at->type, std::nullopt};
  if (at->code != any)
    result.code = static_cast<uint8_t>(at->code);
  return result;
}

} // namespace

std::optional<IcmpName> icmpFromName(std::string_view name, bool v6) {
  return v6 ? findIcmp(icmpV6Names, name) : findIcmp(icmpNames, name);
}

void offerIcmpNames(NearestWord& nearest, bool v6) {
  const auto offer = [&nearest](const Icmp& entry) { nearest.offer(entry.name); };
  if (v6)
    std::for_each(icmpV6Names.begin(), icmpV6Names.end(), offer);
  else
    std::for_each(icmpNames.begin(), icmpNames.end(), offer);
}

} // namespace agent
