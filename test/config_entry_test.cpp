#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// What the entries of each family mean.

namespace {

using namespace configtest;

TEST(ConfigEntry, ipv4) {
  const std::string table = R"(permit ip any any => permit ip any any
deny   ip any   any => deny ip any any
PERMIT IP ANY ANY => permit ip any any
permit ipv4 any any => permit ip any any
permit tcp any any => permit tcp any any
permit 6 any any eq 80 => permit tcp any any eq 80
permit 17 any any eq ntp => permit udp any any eq 123
permit sctp any any eq 80 => permit sctp any any eq 80
permit 132 any any eq bgp => permit sctp any any eq 179
permit 255 any any => permit 255 any any
permit ospf any any => permit 89 any any
permit eigrp any any => permit 88 any any
permit igrp any any => permit 9 any any
permit ipinip any any => permit 4 any any
permit nos any any => permit 94 any any
permit esp any any => permit 50 any any
permit ah any any => permit 51 any any
permit ahp any any => permit 51 any any
permit gre any any => permit 47 any any
permit pim any any => permit 103 any any
permit igmp any any => permit 2 any any
permit vrrp any any => permit 112 any any
permit pcp any any => permit 108 any any
permit snp any any => permit 109 any any
permit icmp6 any any => permit 58 any any
permit icmpv6 any any => permit 58 any any

permit ip host 10.0.0.1 any => permit ip host 10.0.0.1 any
permit ip 10.0.0.1 any => permit ip host 10.0.0.1 any
permit ip any 10.0.0.1 => permit ip any host 10.0.0.1
permit ip 10.1.2.3 0.0.0.255 any => permit ip 10.1.2.0 0.0.0.255 any
permit ip 10.1.2.3 0.0.0.0 any => permit ip host 10.1.2.3 any
permit ip 10.1.2.3 255.255.255.255 any => permit ip any any
permit ip 10.1.2.3/8 any => permit ip 10.0.0.0 0.255.255.255 any
permit ip 0.0.0.0/0 1.2.3.4/32 => permit ip any host 1.2.3.4
permit ip 1.2.3.4/31 1.2.3.4/9 => permit ip 1.2.3.4 0.0.0.1 1.0.0.0 0.127.255.255
permit udp any 128.12.0.1 0.0.255.0 => permit udp any 128.12.0.1 0.0.255.0
permit ip 0.0.0.1 255.255.255.254 any => permit ip 0.0.0.1 255.255.255.254 any

permit tcp any any eq 0 => permit tcp any any eq 0
permit tcp any any eq 65535 => permit tcp any any eq 65535
permit tcp any any eq www => permit tcp any any eq 80
permit tcp any eq 80 any => permit tcp any eq 80 any
permit tcp any eq 80 any eq 443 => permit tcp any eq 80 any eq 443
permit tcp any any eq telnet ssh www 8080 => permit tcp any any eq 22 23 80 8080
permit tcp any any eq 80 81 82 => permit tcp any any range 80 82
permit tcp any neq telnet ssh any neq 80 => permit tcp any neq 22 23 any neq 80
permit tcp any any gt 1023 => permit tcp any any range 1024 65535
permit tcp any any gt 65534 => permit tcp any any eq 65535
permit tcp any any gt 65535 => permit tcp any any lt 0
permit tcp any any lt 1024 => permit tcp any any range 0 1023
permit tcp any any lt 1 => permit tcp any any eq 0
permit tcp any any lt 0 => permit tcp any any lt 0
permit tcp any any neq 0 => permit tcp any any range 1 65535
permit tcp any any range 20 20 => permit tcp any any eq 20
permit tcp any any range 0 65535 => permit tcp any any
permit tcp any any range 20 telnet => permit tcp any any range 20 23
permit udp any any range netbios-ns netbios-ss => permit udp any any range 137 139
permit udp any any eq bootps bootpc ntp => permit udp any any eq 67 68 123
permit udp any any eq bfd bfd-echo => permit udp any any range 3784 3785
permit tcp any any eq syslog => permit tcp any any eq 514
permit tcp any any eq cmd => permit tcp any any eq 514
permit tcp any range ftp-data ftp any gt 1023 established => permit tcp any range 20 21 any range 1024 65535 established
permit tcp host 1.1.1.1 eq ftp any eq tacacs log => permit tcp host 1.1.1.1 eq 21 any eq 49 log

permit tcp any any established => permit tcp any any established
permit tcp any any eq 80 established log-input => permit tcp any any eq 80 established log
permit icmp any any echo => permit icmp any any 8
permit icmp any any echo-reply => permit icmp any any 0
permit icmp any any 8 => permit icmp any any 8
permit icmp any any 5 2 => permit icmp any any 5 2
permit 1 any any 5 2 => permit icmp any any 5 2
permit icmp any any ttl-exceeded => permit icmp any any 11 0
permit icmp any any time-exceeded ! any code => permit icmp any any 11
permit icmp any any time-exceeded 1 => permit icmp any any 11 1
permit icmp any any packet-too-big => permit icmp any any 3 4
permit icmp any any administratively-prohibited => permit icmp any any 3 13
permit icmp any any echo log => permit icmp any any 8 log
permit icmp any any log echo => permit icmp any any 8 log
permit udp any any fragments => permit udp any any fragments
permit ip any any fragments => permit ip any any fragments
permit tcp any any eq 4432 ttl eq 255 => permit tcp any any eq 4432 ttl eq 255
permit ip any any ttl eq 0 => permit ip any any ttl eq 0
permit icmp any any echo ttl eq 1 log => permit icmp any any 8 ttl eq 1 log

permit ip any any log 7 interval 600 => permit ip any any log
permit ip any any log default => permit ip any any log
permit ip any any log disable => permit ip any any
permit ip any any log (tag = BLUE) => permit ip any any log
permit ip any any log BLUE => permit ip any any log
permit ip any any log-input GREEN fragments => permit ip any any fragments log
permit ip any any log tag RED => permit ip any any log
permit ip any any (12 matches) => permit ip any any
permit ip any any log (1 match) => permit ip any any log
permit ip any any log (tag = BLUE) (120 matches) => permit ip any any log
10 permit ip any any => permit ip any any
seq 10 permit ip any any => permit ip any any
sequence 10 permit ip any any => permit ip any any
permit ip any any sequence 10 => permit ip any any
permit ip any any log sequence 10 => permit ip any any log
)";
  EXPECT_EQ(table, regenerated(table, v4Entry));
}

TEST(ConfigEntry, standard) {
  const std::string table = R"(permit any => permit ip any any
permit any log => permit ip any any log
permit host 10.0.0.1 => permit ip host 10.0.0.1 any
permit 10.0.0.1 => permit ip host 10.0.0.1 any
permit 10.0.0.1 0.0.0.255 => permit ip 10.0.0.0 0.0.0.255 any
permit 10.0.0.0/8 log => permit ip 10.0.0.0 0.255.255.255 any log
deny   any => deny ip any any
20 deny 172.16.0.0 0.0.255.255 (3 matches) => deny ip 172.16.0.0 0.0.255.255 any
)";
  EXPECT_EQ(table, regenerated(table, standardEntry));
}

TEST(ConfigEntry, ipv6) {
  const std::string table = R"(permit ipv6 any any => permit ipv6 any any
deny ipv6 2001:DB8::1/16 any => deny ipv6 2001::/16 any
deny ipv6 host 2001:DB8:0:0:0:0:0:1 any => deny ipv6 host 2001:db8::1 any
deny ipv6 2001:db8::1 2001:db8::2 => deny ipv6 host 2001:db8::1 host 2001:db8::2
deny ipv6 ::/0 ::ffff:10.0.0.1/128 => deny ipv6 any host ::ffff:a00:1
deny ipv6 ::/8 fe80::/10 => deny ipv6 ::/8 fe80::/10
deny ipv6 1:2:3:4:5:6:7:8/127 1:2:3:4:5:6:7::/112 => deny ipv6 1:2:3:4:5:6:7:8/127 1:2:3:4:5:6:7:0/112
sequence 10 permit tcp any any eq 80 => permit tcp any any eq 80
10 permit udp any eq domain any => permit udp any eq 53 any
permit tcp any any established sequence 10 => permit tcp any any established
permit icmp any any => permit icmp any any
permit icmpv6 any any nd-na => permit icmp any any 136
permit 58 any any nd-ns => permit icmp any any 135
permit icmp any any packet-too-big => permit icmp any any 2
permit icmp any any mld-query => permit icmp any any 130
permit icmp any any hop-limit => permit icmp any any 3 0
permit icmp any any 1 4 log => permit icmp any any 1 4 log
permit 1 any any => permit 1 any any
permit 103 any any => permit 103 any any
permit 50 any any => permit 50 any any
permit esp any any => permit 50 any any
permit 4 any any => permit 4 any any
permit sctp any any range 5 9 => permit sctp any any range 5 9
)";
  EXPECT_EQ(table, regenerated(table, v6Entry));
}

TEST(ConfigEntry, mac) {
  const std::string table = R"(permit any any => permit any any
deny host aabb.cc00.0920 host AA:BB:CC:00:0A:30 => deny host aabb.cc00.0920 host aabb.cc00.0a30
permit aa-bb-cc-00-09-20 any => permit host aabb.cc00.0920 any
permit 0000.0000.00ff ffff.ffff.ff00 any => permit 0000.0000.00ff ffff.ffff.ff00 any
permit any 0180.c200.0000 0000.0000.000f => permit any 0180.c200.0000 0000.0000.000f
permit any any 0x86DD 0x0 => permit any any 0x86DD
permit any any 0x800 => permit any any 0x0800
permit any any 2048 => permit any any 0x0800
permit any any ip => permit any any 0x0800
permit any any arp log => permit any any 0x0806 log
permit any any etype ipv6 => permit any any 0x86DD
permit any any etype any => permit any any
permit any any ip etype any => permit any any 0x0800
permit any any 0x88a8 0x3 => permit any any 0x88A8 | any any 0x88A9 | any any 0x88AA | any any 0x88AB
permit any any 0x0 0xffff => permit any any
permit any any vlan 10 => permit any any vlan 10
permit any any arp vlan 4094 log => permit any any 0x0806 vlan 4094 log
permit any any vlan 1 etype 0x88cc => permit any any 0x88CC vlan 1
10 permit any any => permit any any
permit any any sequence 10 => permit any any
)";
  EXPECT_EQ(table, regenerated(table, macEntry));
}

} // namespace
