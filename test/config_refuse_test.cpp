#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// What a row cannot express is refused with the word, the reason and the way out; each message is compared
// whole, because it is all that the operator sees.

namespace {

using namespace configtest;

TEST(ConfigRefuse, optionsThatNoRowHas) {
  const std::string table =
      R"(permit ip any any dscp ef => [19 error 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports]
permit ip any any precedence internet => [19 error 'precedence': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports]
permit ip any any tos 12 => [19 error 'tos': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports]
permit ip any any option any-options => [19 error 'option': a row does not see IPv4 options; leave the option out]
permit tcp any any syn => [20 error 'syn': a row can compare TCP flags only as established (ACK or RST is set); write established, or match by addresses and ports]
permit tcp any any established psh => [32 error 'psh': a row can compare TCP flags only as established (ACK or RST is set); write established, or match by addresses and ports]
permit tcp any any match-any +ack +fin -syn => [20 error 'match-any': a row can compare TCP flags only as established (ACK or RST is set); write established, or match by addresses and ports]
permit tcp any any match-all +ack -fin log => [20 error 'match-all': a row can compare TCP flags only as established (ACK or RST is set); write established, or match by addresses and ports]
permit tcp any any time-range WORK log => [20 error 'time-range': a row holds at all times of the day; leave the option out, or take the line in and out of the configuration]
permit tcp any any reflect BACK timeout 20 => [20 error 'reflect': rows keep no state from one packet to the next; permit the way back in a line of its own, with established for TCP]
permit ip any any ttl lt 5 => [23 error 'lt': a row compares a time to live only for equality; write ttl eq N, with a line for each value]
permit ip any any ttl 5 => [23 error '5': a row compares a time to live only for equality; write ttl eq N, with a line for each value]
permit ip any any ttl range 5 6 log => [23 error 'range': a row compares a time to live only for equality; write ttl eq N, with a line for each value]
permit ip any any ttl eq 256 => [26 error '256': a time to live is a number from 0 to 255]
permit ip any any ttl eq 5 ttl eq 6 => [35 error '6': the entry has another time to live already; write a line for each value]
permit ip any any packet-length eq 100 => [19 error 'packet-length': a row does not see the length of a packet; leave the option out]
permit ip any any inactive => [19 error 'inactive': an entry that is switched off takes no row; leave the line out]
permit ip any any routing => [19 error 'routing': this is an option of IPv6 lists; leave it out]
permit ip any any vlan 10 => [19 error 'vlan': only rows of MAC lists compare the VLAN; apply the list to the VLAN interface instead]
permit tcp any any dscp ef time-range WORK ttl gt 3 => [20 error 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports] [28 error 'time-range': a row holds at all times of the day; leave the option out, or take the line in and out of the configuration] [48 error 'gt': a row compares a time to live only for equality; write ttl eq N, with a line for each value]
permit udp any any established => [20 error 'established': only TCP connections are established; write tcp as the protocol, or leave the option out]
permit ip any any established => [19 error 'established': only TCP connections are established; write tcp as the protocol, or leave the option out]
permit icmp any any echo fragments => [26 error 'fragments': a fragment that is not the first carries no ICMP type, so that both together match nothing; leave one of them out]
permit tcp any any established fragments => [32 error 'fragments': a fragment that is not the first carries no TCP flags, so that fragments and established together match nothing; leave one of them out]
permit tcp any any eq 80 fragments => permit tcp any any fragments [26 warning 'fragments': a fragment that is not the first carries no ports, so that the ports of this line are not compared; leave them out]
permit icmp any any code 3 => [21 error 'code': an ICMP code is compared only together with its type; write the number of the type, then the number of the code]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, protocols) {
  const std::string table =
      R"(permit 0 any any => [8 error '0': protocol 0 cannot be a criterion, because a row takes it for any protocol; write ip or ipv6 when every packet is meant]
permit 256 any any => [8 error '256': protocol numbers end at 255; write one from 1 to 255]
permit hopopt any any => [8 error 'hopopt': its number 0 cannot be a criterion, because a row with protocol 0 would match others too; leave the line out]
permit nd any any => [8 error 'nd': neighbour discovery is no protocol of its own; write icmp with nd-ns or nd-na in an IPv6 list]
permit tcp-udp any any => [8 error 'tcp-udp': this is a pseudo-protocol of service groups; write one line with tcp and one with udp]
permit ipsec any any => [8 error 'ipsec': this stands for several protocols; write one line with esp and one with ahp]
permit pptp any any => [8 error 'pptp': this is no protocol of its own; write one line with gre and one with tcp ... eq 1723]
permit ipv6 any any => [8 error 'ipv6': an IPv4 list sees IPv4 packets only; write ip for all of them, or 41 for IPv6 packets carried in IPv4]
permit tpc any any => [8 error 'tpc': this is no protocol that is known here; write its number; did you mean 'tcp'?]
permit foo any any => [8 error 'foo': this is no protocol that is known here; write its number]
permit any any => [8 error 'any': the protocol is missing; write ip, tcp, udp, icmp or another protocol before the addresses]
permit => [7 error the line ends too early: the protocol is missing; write ip, tcp, udp, icmp or a number]
permit tcp => [11 error the line ends too early: a source address is needed here; write any, host A, A and its wildcard, or A/length]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, addresses) {
  const std::string table =
      R"(permit ip any => [14 error the line ends too early: a destination address is needed here; write any, host A, A and its wildcard, or A/length]
permit ip 10.0.0.1 10.0.0.2 => [20 error '10.0.0.2': this was read as the wildcard of the source address, and the destination is missing; write host before a single address]
permit ip any 10.0.0.1 10.0.0.2 10.0.0.3 => [33 error '10.0.0.3': the destination has ended before this address; an address with a second one behind it was read as address and wildcard, so write host before a single address]
permit ip 10.0.0.256 any => [11 error '10.0.0.256': a source address is needed here, and this is none; write any, host A, A and its wildcard, or A/length]
permit ip 10.0.0 any => [11 error '10.0.0': a source address is needed here, and this is none; write any, host A, A and its wildcard, or A/length]
permit ip 10.0.0.0/33 any => [11 error '10.0.0.0/33': the prefix length of an IPv4 address is a number from 0 to 32]
permit ip 10.0.0.0/ any => [11 error '10.0.0.0/': the prefix length of an IPv4 address is a number from 0 to 32]
permit ip /8 any => [11 error '/8': a source address is needed here, and this is none; write any, host A, A and its wildcard, or A/length]
permit ip host any any => [16 error 'any': behind host an IPv4 address is needed, names are not resolved; write host A, or any for every address]
permit ip host www.example.org any => [16 error 'www.example.org': behind host an IPv4 address is needed, names are not resolved; write host A, or any for every address]
permit ip host 10.0.0.1/24 any => [16 error '10.0.0.1/24': behind host an IPv4 address is needed, names are not resolved; write host A, or any for every address]
permit ip 2001:db8::1 any => [11 error '2001:db8::1': an IPv4 list has IPv4 addresses only; write IPv6 lines in an ipv6 access-list]
permit ip any6 any => [11 error 'any6': a list has one address family only; write any]
permit ip object X any => [11 error 'object': a source address is needed here, named objects and interfaces are not looked up; write any, host A, A and its wildcard, or A/length, or object-group with the name of a group]
permit ip object-group X any => [24 error 'X': there is no object group of this name; define it with object-group]
permit ip any any any => [19 error 'any': this is no option of an entry; leave it out or correct it]
permit ip 10.0.0.0 255.255.255.0 any => permit ip 0.0.0.0 255.255.255.0 any [20 warning '255.255.255.0': this looks like a netmask, but a wildcard stands here, in which a bit of 1 is ignored; write 0.0.0.255 to compare what the netmask covers]
permit tcp eq 80 any => [12 error 'eq': a source address is needed here, before its ports; write any, host A, A and its wildcard, or A/length]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, portsAndTypes) {
  const std::string table =
      R"(permit ip any any eq 80 => [19 error 'eq': 'ip' has no ports; write tcp, udp or sctp as the protocol, or leave the ports out]
permit icmp any eq 80 any => [17 error 'eq': 'icmp' has no ports; write tcp, udp or sctp as the protocol, or leave the ports out]
permit 47 any any range 5 6 => [19 error 'range': '47' has no ports; write tcp, udp or sctp as the protocol, or leave the ports out]
permit tcp any any eq => [22 error the line ends too early: a port is missing; write a number from 0 to 65535 or the name of a service]
permit tcp any any eq 65536 => [23 error '65536': ports end at 65535; write a number from 0 to 65535]
permit tcp any any eq htttp => [23 error 'htttp': this is no TCP service that is known here; write the number of the port; did you mean 'http'?]
permit tcp any any eq bootps => [23 error 'bootps': this is no TCP service, or not the same port for all protocols of the line; write the number of the port]
permit udp any any eq cmd => [23 error 'cmd': this is no UDP service, or not the same port for all protocols of the line; write the number of the port]
permit tcp any any eq 80 htpps => [26 error 'htpps': this is no option of an entry; leave it out or correct it; did you mean 'https'?]
permit tcp any any range 10 5 => [29 error '5': the range runs backwards from 10 to 5; write the lower port first]
permit tcp any any range ssh ftp => [30 error 'ftp': the range runs backwards from 22 to 21; write the lower port first]
permit tcp any any range 10 => [28 error the line ends too early: a port is missing; write a number from 0 to 65535 or the name of a service]
permit tcp any any 80 => [20 error '80': a number alone means nothing here; a port needs eq, neq, gt, lt or range before it]
permit tcp any any eq 80 eq 90 => [26 error 'eq': the ports of this side stand already; source ports belong behind the source address, destination ports behind the destination address]
permit tcp any any eq -5 => [23 error '-5': this is no TCP service that is known here; write the number of the port]
permit icmp any any ecko => [21 error 'ecko': this is no ICMP type that is known here; write the number of the type, and of the code behind it; did you mean 'echo'?]
permit icmp any any 256 => [21 error '256': ICMP types end at 255; write a number from 0 to 255]
permit icmp any any 3 256 => [23 error '256': ICMP codes end at 255; write a number from 0 to 255]
permit icmp any any nd-na => [21 error 'nd-na': this is no ICMP type that is known here; write the number of the type, and of the code behind it]
permit tcp any any echo-reply => [20 error 'echo-reply': only ICMP has message types; write icmp as the protocol, or leave the type out]
permit icmpv6 any any echo => [23 error 'echo': only ICMP has message types; write icmp as the protocol, or leave the type out]
permit igmp any any host-query => [21 error 'host-query': this is no option of an entry; leave it out or correct it]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, logTagsThatCouldMeanMore) {
  const std::string table =
      R"(permit tcp any any log estblished => [24 error 'estblished': this is no option of an entry; leave it out or correct it; did you mean 'established'?]
permit icmp any any log echo => permit icmp any any 8 log
permit tcp any any log www => [24 error 'www': this is no option of an entry; leave it out or correct it]
permit tcp any any log A B => [26 error 'B': this is no option of an entry; leave it out or correct it]
permit tcp any any log 80 => [24 error '80': a number alone means nothing here; a port needs eq, neq, gt, lt or range before it]
permit tcp any any log established => permit tcp any any established log
permit ip any any (see ticket) => [19 error '(see': only a count of matches, like (12 matches), may stand in parentheses; leave it out]
permit ip any any (12 => [19 error '(12': only a count of matches, like (12 matches), may stand in parentheses; leave it out]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, sequenceNumbers) {
  const std::string table =
      R"(0 permit ip any any => [1 error '0': a sequence number is needed here, from 1 to 4294967295]
4294967296 permit ip any any => [1 error '4294967296': a sequence number is needed here, from 1 to 4294967295]
seq permit ip any any => [5 error 'permit': a sequence number is needed here, from 1 to 4294967295]
permit ip any any sequence 0 => [28 error '0': a sequence number is needed here, from 1 to 4294967295]
10 premit ip any any => [4 error 'premit': an entry starts with permit or deny; did you mean 'permit'?]
10 => [3 error the line ends too early: an entry starts with permit or deny]
premit ip any any => [1 error 'premit': inside a list stand entries, which start with permit or deny, and remarks; end the list with exit before anything else; did you mean 'permit'?]
evaluate MIRROR => [1 error 'evaluate': rows keep no state from one packet to the next; write the entries that are meant, with established for TCP]
dynamic TEMP permit ip any any => [1 error 'dynamic': rows keep no state from one packet to the next; write the entries that are meant, with established for TCP]
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigRefuse, standardLists) {
  const std::string table =
      R"(16 deny udp host 10.0.0.1 host 10.0.0.2 range 12 15 => [9 error 'udp': a standard list compares the source address only; make the list extended, or leave this out]
permit ip any any => [8 error 'ip': a standard list compares the source address only; make the list extended, or leave this out]
permit host 10.0.0.1 host 10.0.0.2 => [22 error 'host': a standard list compares the source address only; make the list extended, or leave this out]
permit any eq 5 => [12 error 'eq': a standard list compares the source address only; make the list extended, or leave this out]
permit 2001:db8::1 => [8 error '2001:db8::1': an IPv4 list has IPv4 addresses only; write IPv6 lines in an ipv6 access-list]
)";
  EXPECT_EQ(table, regenerated(table, standardEntry));
}

TEST(ConfigRefuse, ipv6) {
  const std::string table =
      R"(permit ip any any => [8 error 'ip': an IPv6 list sees IPv6 packets only; write ipv6 for all of them, or 4 for IPv4 packets carried in IPv6]
permit ipv4 any any => [8 error 'ipv4': an IPv6 list sees IPv6 packets only; write ipv6 for all of them, or 4 for IPv4 packets carried in IPv6]
permit tcp any any hop-limit eq 64 => [20 error 'hop-limit': a row does not compare the IPv6 hop limit; leave the option out]
permit tcp any any ttl eq 64 => [20 error 'ttl': a row does not compare the IPv6 hop limit; leave the option out]
permit tcp any any fragments => [20 error 'fragments': a row does not see whether an IPv6 packet is a fragment; leave the option out]
permit ipv6 any any flow-label 5 => [21 error 'flow-label': a row does not compare the IPv6 flow label; leave the option out]
permit ipv6 any any log auth routing sequence 10 => [25 error 'auth': a row does not see IPv6 extension headers; leave the option out, or match the upper-layer protocol] [30 error 'routing': a row does not see IPv6 extension headers; leave the option out, or match the upper-layer protocol]
permit icmpv6 any any router hoplimit => [23 error 'router': this is no ICMPv6 type that is known here; write the number of the type, and of the code behind it]
permit icmp any any ttl-exceeded => [21 error 'ttl-exceeded': this is no ICMPv6 type that is known here; write the number of the type, and of the code behind it; did you mean 'time-exceeded'?]
permit ipv6 10.0.0.1 any => [13 error '10.0.0.1': an IPv6 list has IPv6 addresses only; write IPv4 lines in an ip access-list]
permit ipv6 2001:db8::/129 any => [13 error '2001:db8::/129': the prefix length of an IPv6 address is a number from 0 to 128]
permit ipv6 host 2001:db8::/64 any => [18 error '2001:db8::/64': behind host an IPv6 address is needed, names are not resolved; write host A, or any for every address]
permit ipv6 2001:db8 any => [13 error '2001:db8': a source address is needed here, and this is none; write any, host A or A/length]
permit ipv6 1::2::3 any => [13 error '1::2::3': a source address is needed here, and this is none; write any, host A or A/length]
permit ahp any any => permit 51 any any [8 warning 'ahp': a row compares the protocol behind the IPv6 extension headers, and this is one of those headers, so that the line matches next to nothing; leave it out]
permit 0 any any => [8 error '0': protocol 0 cannot be a criterion, because a row takes it for any protocol; write ip or ipv6 when every packet is meant]
permit nd any any => [8 error 'nd': neighbour discovery is no protocol of its own; write icmp with nd-ns or nd-na in an IPv6 list]
)";
  EXPECT_EQ(table, regenerated(table, v6Entry));
}

TEST(ConfigRefuse, mac) {
  const std::string table =
      R"(permit any => [11 error the line ends too early: the destination address is missing; write any, host aabb.ccdd.eeff or an address and a wildcard]
permit host any any => [13 error 'any': this is no MAC address, and a source address is needed here; write any, host aabb.ccdd.eeff or an address and a wildcard]
permit 0011.2233 any => [8 error '0011.2233': this is no MAC address, and a source address is needed here; write any, host aabb.ccdd.eeff or an address and a wildcard]
permit any any 0x10000 => [16 error '0x10000': an EtherType is a number from 0 to 0xFFFF]
permit any any 65536 => [16 error '65536': an EtherType is a number from 0 to 0xFFFF]
permit any any arpp => [16 error 'arpp': this is neither an option nor an EtherType that is known here; write the number of the EtherType, like 0x0800; did you mean 'arp'?]
permit any any 0x800 0x10000 => [22 error '0x10000': the wildcard of an EtherType is a number from 0 to 0xFFFF]
permit any any ip arp => [19 error 'arp': the entry has an EtherType already; write one line for each]
permit any any vlan 0 => [21 error '0': a VLAN is a number from 1 to 4094]
permit any any vlan 4095 => [21 error '4095': a VLAN is a number from 1 to 4094]
permit any any vlan 10 0xff => [24 error '0xff': a VLAN has no mask; write one line for each VLAN]
permit any any lsap 0x42 0x42 => [16 error 'lsap': a row does not see LLC headers; match the EtherType instead]
permit any any cos 5 => [16 error 'cos': a row does not compare the priority bits of a tag; leave the option out]
permit any any time-range WORK => [16 error 'time-range': a row holds at all times of the day; leave the option out, or take the line in and out of the configuration]
permit any 0011.2233.4455 ffff.ffff.ffff => permit any any [27 warning 'ffff.ffff.ffff': this mask ignores every bit of the address, because a bit of 1 is ignored; write host 0011.2233.4455 for the address alone, or any]
permit ip any any => [8 error 'ip': this is no MAC address, and a source address is needed here; write any, host aabb.ccdd.eeff or an address and a wildcard]
)";
  EXPECT_EQ(table, regenerated(table, macEntry));
}

} // namespace
