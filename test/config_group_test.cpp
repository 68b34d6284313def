#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// Object groups: what they expand to, and when a group makes a line useless.

namespace {

using namespace agent;
using namespace configtest;

TEST(ConfigGroup, addresses) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip host 10.0.0.1 any
     or ip host 10.0.0.2 any
     or ip host 10.0.0.9 any
     or ip 10.1.0.0 0.0.255.255 any
     or ip host 10.2.0.1 any
     or ip 10.2.0.2 0.0.0.1 any
     or ip 10.2.0.4 0.0.0.1 any
     or ip host 10.2.0.6 any
     or ip 10.3.0.0 0.0.255.255 any
     or ip host 10.9.9.9 any
  20 permit ip any 10.0.0.0 0.0.255.0
     or ip any host 10.0.0.1
     or ip any 172.16.0.0 0.15.255.255
  30 permit ip 10.0.0.0 0.0.255.0 host 1.1.1.1
     or ip host 10.0.0.1 host 1.1.1.1
     or ip 172.16.0.0 0.15.255.255 host 1.1.1.1
)",
            summaryOf(R"(ip access-list extended A
 permit ip object-group NET any
 permit ip any object-group WILD
 permit ip addrgroup WILD host 1.1.1.1
object-group network NET
 description two hosts and more
 host 10.0.0.2
 host 10.0.0.1
 10.1.2.3 255.255.0.0
 10.3.0.0/16
 10.0.0.1
 network-object host 10.0.0.9
 range 10.2.0.1 10.2.0.6
 group-object MORE
object-group network MORE
 host 2001:db8::1
 host 10.9.9.9
object-group ip address WILD
 10 host 10.0.0.1
 20 10.0.0.0 0.0.255.0
 30 172.16.0.0/12
)"));
}

TEST(ConfigGroup, bothFamiliesOfOneGroup) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip host 10.0.0.1 any
v6 extended B
  10 permit ipv6 any 2001:db8::/32
v6 extended C (errors)
11:31: warning: 'FOUR': this object group has no IPv6 address; an IPv6 list needs one (no error, because the list is applied nowhere)
)",
            summaryOf(R"(object-group network NET
 host 10.0.0.1
 2001:db8::/32
ip access-list extended A
 permit ip object-group NET any
ipv6 access-list B
 permit ipv6 any object-group NET
object-group ip address FOUR
 host 10.0.0.1
ipv6 access-list C
 permit ipv6 any object-group FOUR
)"));
}

TEST(ConfigGroup, services) {
  EXPECT_EQ(R"(v4 extended A
  10 permit icmp any host 1.1.1.1 3 4
     or icmp any host 1.1.1.1 8
     or tcp any host 1.1.1.1 {53-53,80-81,8000-8080}
     or tcp any eq 5 host 1.1.1.1 eq 443
     or tcp any range 6 7 host 1.1.1.1
     or udp any host 1.1.1.1 eq 53
     or 50 any host 1.1.1.1
  20 permit tcp any {80-80,8000-8080} any
  30 permit udp any {80-80,65001-65535} any {80-80,65001-65535}
  40 permit tcp any any
     or udp any any
     or 47 any any
  50 deny tcp any any fragments
     or udp any any fragments
     or 47 any any fragments
v4 extended B (errors)
  10 permit tcp any any fragments
v6 extended B
  10 permit tcp any any
     or udp any any
     or 47 any any
32:36: warning: 'fragments': a fragment that is not the first carries no ports, so that the ports of this line are not compared; leave them out
33:34: warning: 'fragments': a fragment that is not the first carries no ICMP type, so that both together match nothing; leave one of them out (no error, because the list is applied nowhere)
)",
            summaryOf(R"(object-group service MIX
 tcp eq 80
 tcp eq 81
 tcp source eq 5 eq 443
 udp 53
 udp domain
 tcp-udp eq domain
 icmp echo
 icmp 3 4
 50
 service-object tcp range 8000 8080
 tcp source range 6 7
object-group service WEB tcp
 port-object eq www
 port-object range 8000 8080
object-group ip port P
 10 eq 80
 20 gt 65000
object-group protocol PROTO
 tcp
 protocol-object udp
 gre
ip access-list extended A
 permit object-group MIX any host 1.1.1.1
 permit tcp any object-group WEB any
 permit udp any portgroup P any portgroup P
 permit object-group PROTO any any
 deny object-group PROTO any any fragments
object-group service PORTS
 tcp eq 80
ip access-list extended B
 permit object-group PORTS any any fragments
 permit object-group MIX any any fragments
ipv6 access-list B
 permit object-group PROTO any any
)"));
}

TEST(ConfigGroup, protocolsWithPortsOfTheLine) {
  EXPECT_EQ(R"(v4 extended A (errors)
  10 permit tcp any any eq 53
     or udp any any eq 53
  20 permit tcp any any eq 80
     or udp any any eq 80
  40 permit tcp any any eq 80 established
9:36: warning: 'cmd': this is no service, or not the same port for all protocols of the line; write the number of the port (no error, because the list is applied nowhere)
11:35: warning: 'eq': the object group 'TCPS' says which ports are meant; leave the ports out here (no error, because the list is applied nowhere)
12:33: warning: 'established': only TCP connections are established; write tcp as the protocol, or leave the option out (no error, because the list is applied nowhere)
)",
            summaryOf(R"(object-group protocol TU
 tcp
 udp
object-group service TCPS
 tcp eq 80
ip access-list extended A
 permit object-group TU any any eq domain
 permit object-group TU any any eq www
 permit object-group TU any any eq cmd
 permit object-group TCPS any any established
 permit object-group TCPS any any eq 90
 permit object-group TU any any established
)"));
}

TEST(ConfigGroup, productsOfGroups) {
  EXPECT_EQ(R"(v4 extended A
  10 permit tcp host 1.0.0.1 host 2.0.0.1 eq 80
     or tcp host 1.0.0.1 host 2.0.0.2 eq 80
     or tcp host 1.0.0.2 host 2.0.0.1 eq 80
     or tcp host 1.0.0.2 host 2.0.0.2 eq 80
     or udp host 1.0.0.1 host 2.0.0.1 eq 53
     or udp host 1.0.0.1 host 2.0.0.2 eq 53
     or udp host 1.0.0.2 host 2.0.0.1 eq 53
     or udp host 1.0.0.2 host 2.0.0.2 eq 53 log
)",
            summaryOf(R"(object-group service S
 tcp eq 80
 udp eq 53
object-group network X
 host 1.0.0.1
 host 1.0.0.2
object-group network Y
 host 2.0.0.1
 host 2.0.0.2
ip access-list extended A
 permit object-group S object-group X object-group Y log
)"));
}

TEST(ConfigGroup, whatMakesAGroupUselessIsAnErrorWhereItIsUsed) {
  EXPECT_EQ(R"(v4 extended A (errors)
Ethernet1 = Ethernet1 refused [v4 in A]
1:1: error: 'EMPTY': the object group is empty; give it a member
4:11: error: '0.0.0.255': masks in this kind of group are netmasks, and this is none; write one like 255.255.255.0, or use object-group ip address with wildcards
6:7: error: 'www.example.org': an address is needed here, names of hosts are not resolved; write one like host 10.0.0.1
7:16: error: 'extra': the member of the group ends before this word; leave it out
9:15: error: 'LOOP2': this object group is empty or cannot be read; see line 10
11:15: error: 'LOOP': the object group contains itself; leave this line out
13:15: error: 'NOWHERE': there is no object group of this name
15:11: warning: '255.0.255.0': masks in this kind of group are netmasks, and this is none; write one like 255.255.255.0, or use object-group ip address with wildcards
16:1: warning: 'UNUSEDEMPTY': the object group is empty; give it a member
17:14: warning: 'icmp-type': groups of this kind cannot be expanded into rows; use a group of kind network, ip address, protocol, service or ip port
21:2: error: 'no': members of a group are not deleted one by one; leave out this line and the one that it deletes
23:9: error: 'nonsense': this is no TCP service that is known here; write the number of the port
24:2: error: 'nd': neighbour discovery is no protocol of its own; write icmp with nd-ns or nd-na in an IPv6 list
27:22: error: 'TWICE': line 25 opened a group of this name as another kind; rename one of the two
28:2: error: 'tcp': this is no address; write host A, A with its mask, or A/length
30:15: error: 'S': a nested group must be of the same kind as the group around it
32:25: error: 'EMPTY': this object group is empty or cannot be read; mend its definition in line 1
33:25: error: 'MASK': this object group is empty or cannot be read; mend its definition in line 3
34:25: error: 'NAMES': this object group is empty or cannot be read; mend its definition in line 5
35:25: error: 'LOOP': this object group is empty or cannot be read; mend its definition in line 8
36:25: error: 'LOST': this object group is empty or cannot be read; mend its definition in line 12
37:25: error: 'NOPE': there is no object group of this name; define it with object-group
38:25: error: 'LOSTT': there is no object group of this name; define it with object-group; did you mean 'LOST'?
39:25: error: 'S': a group of addresses is needed here, and line 22 defines this one as another kind
40:22: error: 'MASK': a group of services or protocols is needed here, and line 3 defines this one as another kind
41:35: error: 'T': behind the destination only a group of ports can stand
42:25: error: 'DELETES': this object group is empty or cannot be read; mend its definition in line 19
43:22: error: 'S': this object group is empty or cannot be read; mend its definition in line 22
44:9: error: 'S': this is no protocol but an object group; write object-group before its name
45:25: error: 'TWICE': this object group is empty or cannot be read; mend its definition in line 25
46:25: error: 'MIXED': this object group is empty or cannot be read; mend its definition in line 29
47:27: error: 'S': a group of ports is needed here, and line 22 defines this one as another kind
)",
            summaryOf(R"(object-group network EMPTY
 description nothing
object-group network MASK
 10.0.0.0 0.0.0.255
object-group network NAMES
 host www.example.org
 host 10.0.0.1 extra
object-group network LOOP
 group-object LOOP2
object-group network LOOP2
 group-object LOOP
object-group network LOST
 group-object NOWHERE
object-group network UNUSED
 10.0.0.0 255.0.255.0
object-group network UNUSEDEMPTY
object-group icmp-type T
 icmp-object echo
object-group network DELETES
 host 10.0.0.1
 no host 10.0.0.1
object-group service S
 tcp eq nonsense
 nd
object-group network TWICE
 host 10.0.0.1
object-group service TWICE
 tcp eq 80
object-group network MIXED
 group-object S
ip access-list extended A
 permit ip object-group EMPTY any
 permit ip object-group MASK any
 permit ip object-group NAMES any
 permit ip object-group LOOP any
 permit ip object-group LOST any
 permit ip object-group NOPE any
 permit ip object-group LOSTT any
 permit ip object-group S any
 permit object-group MASK any any
 permit icmp any any object-group T
 permit ip object-group DELETES any
 permit object-group S any any
 permit S any any
 permit ip object-group TWICE any
 permit ip object-group MIXED any
 permit tcp any portgroup S any
interface Ethernet1
 ip access-group A in
)"));
}

TEST(ConfigGroup, aGroupOfAListThatIsAppliedNowhereWarns) {
  EXPECT_EQ(R"(v4 extended A (errors)
2:11: warning: '0.0.0.255': masks in this kind of group are netmasks, and this is none; write one like 255.255.255.0, or use object-group ip address with wildcards
4:25: warning: 'MASK': this object group is empty or cannot be read; mend its definition in line 1 (no error, because the list is applied nowhere)
)",
            summaryOf(R"(object-group network MASK
 10.0.0.0 0.0.0.255
ip access-list extended A
 permit ip object-group MASK any
)"));
}

TEST(ConfigGroup, removedAndReopened) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip host 10.0.0.1 any
     or ip host 10.0.0.2 any
)",
            summaryOf(R"(object-group network G
 10.0.0.0 0.0.0.255
no object-group network G
object-group network G
host 10.0.0.1
exit
object-group network G
host 10.0.0.2
ip access-list extended A
 permit ip object-group G any
)"));
}

TEST(ConfigGroup, groupsThatExpandBeyondAnyTable) {
  std::string text;
  for (const char* name : {"X", "Y"}) {
    text += std::string("object-group network ") + name + "\n";
    for (int i = 0; i < 300; ++i)
      text += " host 10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "\n";
  }
  text +=
      "ip access-list extended A\n permit ip object-group X object-group Y\n permit ip object-group X any\n"
      "interface Ethernet1\n ip access-group A in\n";
  const Config config = readConfigText(text, "t");
  EXPECT_EQ(
      "604:9: error: 'ip': the object groups of this line stand for 90000 combinations, which is more than "
      "there are rows; use fewer or smaller groups\n",
      diagnosticsText(config));
  ASSERT_EQ(1u, config.lists[0].rules.size());
  EXPECT_EQ(300u, config.lists[0].rules[0].alternatives.size());
}

TEST(ConfigGroup, nestingIsBounded) {
  // Each group names the next one twice, which would double the work at every level.
  std::string text;
  for (int i = 0; i < 200; ++i)
    text += "object-group network G" + std::to_string(i) + "\n group-object G" + std::to_string(i + 1) +
            "\n group-object G" + std::to_string(i + 1) + "\n";
  text +=
      "object-group network G200\n host 10.0.0.1\nip access-list extended A\n permit ip object-group G0 any\n"
      " permit ip object-group G180 any\n"
      "interface Ethernet1\n ip access-group A in\n";
  const Config config = readConfigText(text, "t");
  EXPECT_EQ(std::string::npos, diagnosticsText(config).find("605:"));
  EXPECT_NE(std::string::npos, diagnosticsText(config).find("object groups are nested more than 64 deep"));
  EXPECT_NE(std::string::npos, diagnosticsText(config).find("604:25: error: 'G0'"));
}

} // namespace
