#include "agent/config/Names.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

struct Named {
  std::string_view name;
  uint16_t value;
};

struct Service {
  std::string_view name;
  uint16_t port;
  PortProtocols protocols;
};

struct Reason {
  std::string_view name;
  const char* text;
};

constexpr PortProtocols t = tcpPorts;
constexpr PortProtocols u = udpPorts;
constexpr PortProtocols s = sctpPorts;
constexpr PortProtocols tu = tcpPorts | udpPorts;
constexpr PortProtocols ts = tcpPorts | sctpPorts;
constexpr PortProtocols tus = tcpPorts | udpPorts | sctpPorts;

// IANA, Assigned Internet Protocol Numbers; ahp, nos, ipinip, igrp and pcp are the keywords of routers for
// 51, 94, 4, 9 and 108.
constexpr std::array protocols = {
    Named{"ah", 51},        Named{"ahp", 51},        Named{"dccp", 33},      Named{"egp", 8},
    Named{"eigrp", 88},     Named{"esp", 50},        Named{"etherip", 97},   Named{"fc", 133},
    Named{"ggp", 3},        Named{"gre", 47},        Named{"hip", 139},      Named{"icmp", 1},
    Named{"icmp6", 58},     Named{"icmpv6", 58},     Named{"idpr", 35},      Named{"idrp", 45},
    Named{"igmp", 2},       Named{"igp", 9},         Named{"igrp", 9},       Named{"ipcomp", 108},
    Named{"ipinip", 4},     Named{"ipip", 94},       Named{"ipv6-frag", 44}, Named{"ipv6-nonxt", 59},
    Named{"ipv6-opts", 60}, Named{"ipv6-route", 43}, Named{"isis", 124},     Named{"l2tp", 115},
    Named{"manet", 138},    Named{"mobile", 55},     Named{"mobility", 135}, Named{"mpls-in-ip", 137},
    Named{"narp", 54},      Named{"nos", 94},        Named{"nvp", 11},       Named{"ospf", 89},
    Named{"pcp", 108},      Named{"pgm", 113},       Named{"pim", 103},      Named{"pup", 12},
    Named{"rdp", 27},       Named{"rsvp", 46},       Named{"sctp", 132},     Named{"shim6", 140},
    Named{"skip", 57},      Named{"snp", 109},       Named{"st", 5},         Named{"swipe", 53},
    Named{"tcp", 6},        Named{"tp", 29},         Named{"udp", 17},       Named{"udplite", 136},
    Named{"vines", 83},     Named{"vrrp", 112},      Named{"xtp", 36},
};

// IANA, Service Name and Transport Protocol Port Number Registry, and the traditional router keywords
// (www, cmd, lpd, netbios-ss, bootps and the like) for the same ports.
constexpr std::array services = {
    Service{"aol", 5190, t},
    Service{"auth", 113, t},
    Service{"bfd", 3784, u},
    Service{"bfd-echo", 3785, u},
    Service{"bfd-multi-hop", 4784, u},
    Service{"bgp", 179, ts},
    Service{"biff", 512, u},
    Service{"bootpc", 68, u},
    Service{"bootps", 67, u},
    Service{"chargen", 19, t},
    Service{"citrix-ica", 1494, t},
    Service{"cmd", 514, t},
    Service{"ctiqbe", 2748, t},
    Service{"daytime", 13, tu},
    Service{"dhcpv6-client", 546, u},
    Service{"dhcpv6-server", 547, u},
    Service{"diameter", 3868, ts},
    Service{"discard", 9, tu},
    Service{"dnsix", 195, u},
    Service{"domain", 53, tu},
    Service{"drip", 3949, t},
    Service{"echo", 7, tu},
    Service{"epmap", 135, t},
    Service{"exec", 512, t},
    Service{"finger", 79, t},
    Service{"ftp", 21, ts},
    Service{"ftp-data", 20, ts},
    Service{"ftps", 990, t},
    Service{"ftps-data", 989, t},
    Service{"geneve", 6081, u},
    Service{"git", 9418, t},
    Service{"gopher", 70, t},
    Service{"gtp-control", 2123, u},
    Service{"gtp-user", 2152, u},
    Service{"h323", 1720, t},
    Service{"hostname", 101, t},
    Service{"http", 80, tus},
    Service{"http-alt", 8080, t},
    Service{"https", 443, tus},
    Service{"https-alt", 8443, t},
    Service{"ident", 113, t},
    Service{"imap", 143, t},
    Service{"imap3", 220, t},
    Service{"imap4", 143, t},
    Service{"imaps", 993, t},
    Service{"ipsec-nat-t", 4500, u},
    Service{"irc", 194, t},
    Service{"isakmp", 500, u},
    Service{"iscsi-target", 3260, t},
    Service{"kerberos", 88, tu},
    Service{"klogin", 543, t},
    Service{"kpasswd", 464, tu},
    Service{"kshell", 544, t},
    Service{"l2tp", 1701, u},
    Service{"ldap", 389, tu},
    Service{"ldaps", 636, tu},
    Service{"ldp", 646, tu},
    Service{"lisp-control", 4342, u},
    Service{"lisp-data", 4341, u},
    Service{"llmnr", 5355, u},
    Service{"login", 513, t},
    Service{"lotusnotes", 1352, t},
    Service{"lpd", 515, t},
    Service{"m2pa", 3565, s},
    Service{"m2ua", 2904, s},
    Service{"m3ua", 2905, s},
    Service{"mdns", 5353, u},
    Service{"microsoft-ds", 445, tu},
    Service{"mobile-ip", 434, u},
    Service{"mpls-in-udp", 6635, u},
    Service{"ms-sql-m", 1434, tu},
    Service{"ms-sql-s", 1433, tu},
    Service{"ms-wbt-server", 3389, t},
    Service{"msdp", 639, t},
    Service{"msrpc", 135, t},
    Service{"mysql", 3306, t},
    Service{"nameserver", 42, u},
    Service{"netbios-dgm", 138, u},
    Service{"netbios-ns", 137, u},
    Service{"netbios-ss", 139, tu},
    Service{"netbios-ssn", 139, tu},
    Service{"netconf-ssh", 830, t},
    Service{"nfs", 2049, tu},
    Service{"nntp", 119, t},
    Service{"nntps", 563, t},
    Service{"non500-isakmp", 4500, u},
    Service{"ntp", 123, u},
    Service{"openflow", 6653, t},
    Service{"pcanywhere-data", 5631, t},
    Service{"pcanywhere-status", 5632, u},
    Service{"pim-auto-rp", 496, tu},
    Service{"pop2", 109, t},
    Service{"pop3", 110, t},
    Service{"pop3s", 995, t},
    Service{"postgresql", 5432, t},
    Service{"pptp", 1723, t},
    Service{"printer", 515, t},
    Service{"ptp-event", 319, u},
    Service{"ptp-general", 320, u},
    Service{"radius", 1812, u},
    Service{"radius-acct", 1813, u},
    Service{"rip", 520, u},
    Service{"ripng", 521, u},
    Service{"ripv6", 521, u},
    Service{"rsh", 514, t},
    Service{"rsync", 873, t},
    Service{"rtelnet", 107, t},
    Service{"rtsp", 554, t},
    Service{"s1ap", 36412, s},
    Service{"sflow", 6343, u},
    Service{"shell", 514, t},
    Service{"sip", 5060, tus},
    Service{"sips", 5061, tus},
    Service{"smtp", 25, t},
    Service{"snmp", 161, u},
    Service{"snmp-trap", 162, u},
    Service{"snmptrap", 162, u},
    Service{"sqlnet", 1521, t},
    Service{"ssdp", 1900, u},
    Service{"ssh", 22, tus},
    Service{"stun", 3478, tu},
    Service{"sua", 14001, s},
    Service{"submission", 587, t},
    Service{"submissions", 465, t},
    Service{"sunrpc", 111, tu},
    Service{"svn", 3690, t},
    Service{"syslog", 514, tu},
    Service{"syslog-tls", 6514, t},
    Service{"tacacs", 49, tu},
    Service{"talk", 517, tu},
    Service{"telnet", 23, t},
    Service{"telnets", 992, t},
    Service{"tftp", 69, u},
    Service{"time", 37, tu},
    Service{"uucp", 540, t},
    Service{"uucp-path", 117, t},
    Service{"vxlan", 4789, u},
    Service{"who", 513, u},
    Service{"whois", 43, t},
    Service{"www", 80, tus},
    Service{"x2ap", 36422, s},
    Service{"xdmcp", 177, u},
    Service{"xmpp-client", 5222, t},
    Service{"xmpp-server", 5269, t},
};

// IEEE registration authority, public EtherType listing; RFC 9542.
constexpr std::array etherTypes = {
    Named{"aarp", 0x80F3},           Named{"amber", 0x6008},      Named{"aoe", 0x88A2},
    Named{"appletalk", 0x809B},      Named{"arp", 0x0806},        Named{"cfm", 0x8902},
    Named{"dec-spanning", 0x8038},   Named{"decnet-iv", 0x6003},  Named{"diagnostic", 0x6005},
    Named{"dot1x", 0x888E},          Named{"dsm", 0x8039},        Named{"eapol", 0x888E},
    Named{"ethercat", 0x88A4},       Named{"etype-6000", 0x6000}, Named{"etype-8042", 0x8042},
    Named{"fcoe", 0x8906},           Named{"fip", 0x8914},        Named{"ip", 0x0800},
    Named{"ipv4", 0x0800},           Named{"ipv6", 0x86DD},       Named{"ipx", 0x8137},
    Named{"lacp", 0x8809},           Named{"lat", 0x6004},        Named{"lavc-sca", 0x6007},
    Named{"lldp", 0x88CC},           Named{"loopback", 0x9000},   Named{"macsec", 0x88E5},
    Named{"mop-console", 0x6002},    Named{"mop-dump", 0x6001},   Named{"mpls", 0x8847},
    Named{"mpls-multicast", 0x8848}, Named{"msdos", 0x8041},      Named{"mumps", 0x6009},
    Named{"netbios", 0x8040},        Named{"novell", 0x8137},     Named{"pppoe-discovery", 0x8863},
    Named{"pppoe-session", 0x8864},  Named{"profinet", 0x8892},   Named{"ptp", 0x88F7},
    Named{"rarp", 0x8035},           Named{"roce", 0x8915},       Named{"slow-protocols", 0x8809},
    Named{"trill", 0x22F3},          Named{"vines-echo", 0x0BAF}, Named{"vines-ip", 0x0BAD},
    Named{"wake-on-lan", 0x0842},    Named{"xns-idp", 0x0600},
};

constexpr std::array pseudoProtocols = {
    Reason{"any",
           "the protocol is missing; write ip, tcp, udp, icmp or another protocol before the addresses"},
    Reason{"hopopt",
           "its number 0 cannot be a criterion, because a row with protocol 0 would match others too; "
           "leave the line out"},
    Reason{"host",
           "the protocol is missing; write ip, tcp, udp, icmp or another protocol before the addresses"},
    Reason{"ipsec", "this stands for several protocols; write one line with esp and one with ahp"},
    Reason{"nd",
           "neighbour discovery is no protocol of its own; write icmp with nd-ns or nd-na in an IPv6 list"},
    Reason{"pptp", "this is no protocol of its own; write one line with gre and one with tcp ... eq 1723"},
    Reason{"tcp-udp",
           "this is a pseudo-protocol of service groups; write one line with tcp and one with udp"},
    Reason{"tcpudp", "this is a pseudo-protocol of service groups; write one line with tcp and one with udp"},
};

template <class Table>
constexpr bool isSorted(const Table& table) {
  for (size_t i = 1; i < table.size(); ++i)
    if (table[i].name < table[i - 1].name)
      return false;
  return true;
}
static_assert(isSorted(protocols) && isSorted(services) && isSorted(etherTypes) && isSorted(pseudoProtocols),
              "names are found by halving");

// The first entry of the name, or the end.
template <class Table>
auto find(const Table& table, std::string_view name) {
  const auto at =
      std::lower_bound(table.begin(), table.end(), name, [](const auto& entry, std::string_view word) {
        return compareWords(entry.name, word) < 0;
      });
  return at != table.end() && sameWord(at->name, name) ? at : table.end();
}

} // namespace

std::optional<uint8_t> protocolFromName(std::string_view name) {
  // Most lines have one of these.
  constexpr std::array frequent = {Named{"tcp", 6}, Named{"udp", 17}, Named{"icmp", 1}};
  for (const Named& entry : frequent)
    if (sameWord(entry.name, name))
      return static_cast<uint8_t>(entry.value);
  const auto at = find(protocols, name);
  return at == protocols.end() ? std::nullopt : std::optional(static_cast<uint8_t>(at->value));
}

const char* pseudoProtocolReason(std::string_view name) {
  const auto at = find(pseudoProtocols, name);
  return at == pseudoProtocols.end() ? nullptr : at->text;
}

void offerProtocols(NearestWord& nearest) {
  for (const Named& entry : protocols)
    nearest.offer(entry.name);
}

PortProtocols portProtocolOf(uint8_t protocol) {
  return protocol == 6     ? tcpPorts
         : protocol == 17  ? udpPorts
         : protocol == 132 ? sctpPorts
                           : PortProtocols{0};
}

std::optional<uint16_t> serviceFromName(std::string_view name, PortProtocols wanted) {
  for (auto at = find(services, name); at != services.end() && sameWord(at->name, name); ++at)
    if ((at->protocols & wanted) == wanted)
      return at->port;
  return std::nullopt;
}

bool isServiceName(std::string_view name) {
  return find(services, name) != services.end();
}

void offerServices(NearestWord& nearest, PortProtocols wanted) {
  for (const Service& service : services)
    if ((service.protocols & wanted) == wanted)
      nearest.offer(service.name);
}

std::optional<uint16_t> etherTypeFromName(std::string_view name) {
  const auto at = find(etherTypes, name);
  return at == etherTypes.end() ? std::nullopt : std::optional(at->value);
}

void offerEtherTypes(NearestWord& nearest) {
  for (const Named& entry : etherTypes)
    nearest.offer(entry.name);
}

} // namespace agent
