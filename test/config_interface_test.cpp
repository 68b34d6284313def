#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// Interfaces: their names, what is applied to them, VLANs, port-channels and chips.

namespace {

using namespace agent;
using namespace configtest;

const ReadOptions keepGoing{InputFormat::automatic, false, true, {}};

TEST(ConfigInterface, names) {
  EXPECT_EQ(R"(Ethernet2 = GigabitEthernet1/0/1
Ethernet4 = GigabitEthernet1/0/2
Ethernet6 = GigabitEthernet1/0/3
Ethernet7 = TenGigE0/1
Ethernet8 = TenGigabitEthernet0/2
Ethernet9 = TenGigabitEthernet0/3
Ethernet10 = Ethernet0/0
Ethernet3 = Ethernet3
Ethernet1 = Ethernet1
Ethernet5 = Ethernet5
Ethernet11 = FastEthernet0/1
Ethernet12 = TwentyFiveGigE1/0/1
Ethernet13 = TwentyFiveGigE1/0/2
Ethernet14 = FortyGigE1
Ethernet15 = HundredGigE1/1
Ethernet16 = Ethernet1/1/1
- = Vlan10
- = Vlan20
- = Port-Channel3
- = Port-Channel4
- = Loopback0 (unsupported)
- = Loopback1 (unsupported)
- = GigabitEthernet1/0/1.10 (unsupported)
- = ATM0/0.32 (unsupported)
- = FastEtheret1/1 (unsupported)
- = Mystery7 (unsupported)
- = mgmt0 (unsupported)
- = Ethernet (unsupported)
27:11: warning: 'FastEtheret' is no kind of interface; did you mean 'FastEthernet'?; the stanza 'FastEtheret1/1' is skipped
)",
            summaryOf(R"(interface GigabitEthernet1/0/1
interface gi1/0/2
interface GIGABITETHERNET 1/0/3
interface TenGigE0/1
int te0/2
interface TenGigabitEthernet0/3
int e0/0
interface Ethernet3
interface Ethernet1
interface eth5
interface fa0/01
interface TwentyFiveGigE1/0/1
interface twe1/0/2
interface FortyGigE1
interface Hu1/1
interface Ethernet1/1/1
interface Gi1/0/01
interface vlan 10
interface Vlan0010
interface Vl20
interface Port-channel3
interface po 4
interface Loopback0
interface lo1
interface GigabitEthernet1/0/1.10
interface ATM0/0.32 point-to-point
interface FastEtheret1/1
interface Mystery7
interface mgmt0
interface Ethernet
)"));
}

TEST(ConfigInterface, ranges) {
  EXPECT_EQ(R"(v4 standard A
  10 permit ip any any
Ethernet1 = GigabitEthernet1/0/1 [v4 in A]
Ethernet2 = GigabitEthernet1/0/2
Ethernet3 = GigabitEthernet1/0/3 [v4 in A]
Ethernet4 = GigabitEthernet1/0/7 [v4 in A]
Ethernet5 = Ethernet0/2 [v4 out A]
Ethernet6 = Ethernet0/3 [v4 out A]
Ethernet9 = Ethernet0/5 [v4 out A]
Ethernet7 = Ethernet7
Ethernet8 = Ethernet8
Ethernet10 = Ethernet10
Ethernet11 = GigabitEthernet2/0/1
Ethernet12 = GigabitEthernet2/0/2
- = Vlan5
- = Vlan6
- = Gi1/0/5-4 refused [v4 in A] (unsupported)
- = e1-5000 refused [v4 in A] (unsupported)
- = Gi1/0/1-2/0/3 (unsupported)
- = macroALL (unsupported)
13:18: error: 'A': the list cannot be applied to Gi1/0/5-4, because the range 'Gi1/0/5-4' runs backwards; apply it to an Ethernet port, a port-channel or a VLAN interface
15:18: error: 'A': the list cannot be applied to e1-5000, because 'e1-5000' makes the range longer than 1024 interfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
)",
            summaryOf(R"(ip access-list standard A
 permit any
interface range Gi1/0/1 - 3 , Gi1/0/7
 ip access-group A in
int range e0/2-3,e0/5
 ip access-group A out
interface Ethernet7-8,10
interface range Gi2/0/1-Gi2/0/2
interface range vlan 5 - 6
interface Gi1/0/2
 no ip access-group A in
interface range Gi1/0/5-4
 ip access-group A in
interface range e1-5000
 ip access-group A in
interface range Gi1/0/1-2/0/3
interface range macro ALL
)"));
}

TEST(ConfigInterface, bindings) {
  EXPECT_EQ(R"(v4 extended 101
  10 permit ip any any
v4 extended A
  10 permit ip any any
v6 extended A
  10 permit ipv6 any any
v6 extended B
  10 permit ipv6 any any
mac extended M
  10 permit any any
Ethernet1 = Ethernet1 [v4 in 101, v4 out A, v6 in A, v6 out B, mac in M]
- = Vlan10 [v4 in A, v6 out B]
Ethernet2 = Ethernet2 [v4 out 101, v4 in 101]
Ethernet3 = Ethernet3
Ethernet4 = Ethernet4
Ethernet5 = Ethernet5
)",
            summaryOf(R"(access-list 101 permit ip any any
ip access-list extended A
 permit ip any any
ipv6 access-list A
 permit ipv6 any any
ipv6 access-list B
 permit ipv6 any any
mac access-list extended M
 permit any any
interface Ethernet1
 ip access-group 101 in
 ip access-group A out
 ipv6 traffic-filter A in
 ipv6 access-group B out
 mac access-group M in
 no shutdown
interface Vlan10
 ip access-group A in
 ipv6 traffic-filter B out
interface Ethernet2
 ip access-group A in
 ip access-group A in
 ip access-group 101 out
 no ip access-group A in
 ip access-group 101 in
interface Ethernet3
 ip access-group A in
 no ip access-group
 ipv6 traffic-filter A in
 no ipv6 traffic-filter
interface Ethernet4
 ip access-group A in
no interface Ethernet4
interface Ethernet5
 ip access-group A in
default interface Ethernet5
)"));
}

TEST(ConfigInterface, bindingsThatCannotStand) {
  EXPECT_EQ(R"(v4 extended 101
  10 permit ip any any
v4 extended A
  10 permit ip any any
v4 extended BAD (errors)
v4 extended EMPTY
mac extended M
  10 permit any any
Ethernet1 = Ethernet1 [v4 in A] refused [v4 out 102]
Ethernet2 = Ethernet2 refused [v4 in 101, v4 in A, v6 in A, mac out M, mac in A]
Ethernet3 = Ethernet3 refused [v4 in BAD]
- = Vlan10 refused [mac in M]
- = Vlan5000 refused [v4 in A] (unsupported)
- = Loopback0 refused [v4 in A] (unsupported)
- = Tunnel1 refused [v4 in A] (unsupported)
- = Serial0/0 refused [v4 in A] (unsupported)
- = Ethernet0/0.10 refused [v4 in A] (unsupported)
- = FastEtheret1/1 refused [v4 in A] (unsupported)
- = Ethernet refused [v4 in A] (unsupported)
Ethernet9 = Ethernet9
5:20: error: 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports
11:18: error: 'A': the list is applied without a direction; write in or out behind its name
12:20: error: 'ingress': the direction of a list is in or out; write one of the two
13:17: error: the line ends too early: the name of the list is missing; write it, then in or out
14:23: error: 'twice': nothing may stand behind the direction; leave it out
15:18: error: '102': there is no IPv4 list of this name; define it, or take the line out; did you mean '101'?
18:18: error: 'A': line 17 applies the IPv4 list '101' at this place already; keep one of the two, or write their entries into one list
19:22: error: 'A': this list is of family IPv4; apply it with ip access-group, or define a list of family IPv6
20:19: error: 'M': the chip has no rows for MAC lists on the way out; apply the list inbound, on the ports where the frames come from
21:19: error: 'A': this list is of family IPv4; apply it with ip access-group, or define a list of family MAC
24:18: warning: 'EMPTY': the list has no entries, so that it is no list and everything is permitted; give it an entry, or take the line out
26:19: error: 'M': a VLAN interface sees IP packets only; apply the MAC list to the Ethernet ports of the VLAN
27:11: error: 'Vlan5000': VLANs are numbered from 1 to 4094
28:18: error: 'A': the list cannot be applied to Vlan5000, because VLANs are numbered from 1 to 4094; apply it to an Ethernet port, a port-channel or a VLAN interface
30:18: error: 'A': the list cannot be applied to Loopback0, because the system has no loopback interfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
32:18: error: 'A': the list cannot be applied to Tunnel1, because the system has no tunnel interfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
34:18: error: 'A': the list cannot be applied to Serial0/0, because the system has no serial interfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
36:18: error: 'A': the list cannot be applied to Ethernet0/0.10, because the system has no subinterfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
38:18: error: 'A': the list cannot be applied to FastEtheret1/1, because 'FastEtheret' is no kind of interface; did you mean 'FastEthernet'?; apply it to an Ethernet port, a port-channel or a VLAN interface
40:18: error: 'A': the list cannot be applied to Ethernet, because its position is missing; write one, like Ethernet1; apply it to an Ethernet port, a port-channel or a VLAN interface
42:2: warning: 'ipv4 access-group A': this form of applying a list is not read and the list is not applied; write ip access-group NAME in or out
43:2: warning: 'ip port access-group': this form of applying a list is not read and the list is not applied; write ip access-group NAME in or out
44:2: warning: 'access-group A in': this form of applying a list is not read and the list is not applied; write ip access-group NAME in or out
)",
            summaryOf(R"(access-list 101 permit ip any any
ip access-list extended A
 permit ip any any
ip access-list extended BAD
 permit ip any any dscp ef
ip access-list extended EMPTY
 remark nothing here
mac access-list extended M
 permit any any
interface Ethernet1
 ip access-group A
 ip access-group A ingress
 ip access-group
 ip access-group A in twice
 ip access-group 102 out
interface Ethernet2
 ip access-group 101 in
 ip access-group A in
 ipv6 traffic-filter A in
 mac access-group M out
 mac access-group A in
interface Ethernet3
 ip access-group BAD in
 ip access-group EMPTY out
interface Vlan10
 mac access-group M in
interface Vlan5000
 ip access-group A in
interface Loopback0
 ip access-group A in
interface Tunnel1
 ip access-group A in
interface Serial0/0
 ip access-group A in
interface Ethernet0/0.10
 ip access-group A in
interface FastEtheret1/1
 ip access-group A in
interface Ethernet
 ip access-group A in
interface Ethernet9
 ipv4 access-group A ingress
 ip port access-group A in
 access-group A in
)"));
}

TEST(ConfigInterface, keepGoingNamesWhatIsLeftOut) {
  EXPECT_EQ(R"(v4 extended GOOD
  10 permit ip any any
v4 extended BAD (errors)
Ethernet1 = Ethernet1 [v4 in GOOD] refused [v4 out BAD]
Ethernet2 = Ethernet2 [v4 in GOOD] refused [v4 out NOWHERE]
4:20: error: 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave the option out, or match by addresses, protocol and ports
7:18: warning: 'BAD': the list has errors and is not loaded; what the interface had in its place stays
10:18: error: 'NOWHERE': there is no IPv4 list of this name; define it, or take the line out
)",
            summaryOf(R"(ip access-list extended GOOD
 permit ip any any
ip access-list extended BAD
 permit ip any any dscp ef
interface Ethernet1
 ip access-group GOOD in
 ip access-group BAD out
interface Ethernet2
 ip access-group GOOD in
 ip access-group NOWHERE out
)",
                      keepGoing));
}

TEST(ConfigInterface, vlans) {
  EXPECT_EQ(R"(Ethernet1 = Ethernet1 access 10
Ethernet2 = Ethernet2 trunk 1,4,6-12
Ethernet3 = Ethernet3 trunk 1-4094
Ethernet4 = Ethernet4 access 7
Ethernet5 = Ethernet5 trunk none
Ethernet6 = Ethernet6 trunk 1,4094
Ethernet7 = Ethernet7
Ethernet8 = Ethernet8
vlan 10
vlan 20
vlan 22
vlan 30
5:6: error: '4095': VLANs are numbered from 1 to 4094
6:6: error: '0': VLANs are numbered from 1 to 4094
7:6: error: '5-4': the range runs backwards; write the lower VLAN first
9:1: warning: 'vlan access-map': VLAN maps are not read and judge no packet here; apply lists to VLAN interfaces instead
10:1: warning: 'vlan filter': VLAN maps are not read and judge no packet here; apply lists to VLAN interfaces instead
31:25: error: '4095': an access VLAN is a number from 1 to 4094
32:32: error: '4095': VLANs are numbered from 1 to 4094
33:32: error: 'x': this is no VLAN and no range of VLANs; write numbers like 10 or 20-25
)",
            summaryOf(R"(vlan 10
 name TEN
vlan 20-22,30
no vlan 21
vlan 4095
vlan 0
vlan 5-4
vlan internal allocation policy ascending
vlan access-map X 10
vlan filter X vlan-list 5
interface Ethernet1
 switchport access vlan 10
interface Ethernet2
 switchport trunk allowed vlan 1,4-9
 switchport trunk allowed vlan add 11-12,10
 switchport trunk allowed vlan remove 5
interface Ethernet3
 switchport mode trunk
interface Ethernet4
 switchport trunk allowed vlan 5
 switchport access vlan 7
 switchport mode access
interface Ethernet5
 switchport trunk allowed vlan none
interface Ethernet6
 switchport trunk allowed vlan except 2-4093
interface Ethernet7
 switchport trunk allowed vlan all
 no switchport trunk allowed vlan
interface Ethernet8
 switchport access vlan 4095
 switchport trunk allowed vlan 1,4095
 switchport trunk allowed vlan x
 switchport access vlan dynamic
 switchport access vlan 8
 no switchport access vlan
)"));
}

TEST(ConfigInterface, portChannels) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip any any
v4 extended B
  10 permit ip any any
- = Port-Channel1 access 30
Ethernet1 = Ethernet1 [v4 in A] access 30 group 1
Ethernet2 = Ethernet2 [v4 in A] refused [v4 out A] access 31 group 1
Ethernet3 = Ethernet3 refused [v4 in B, v4 in A] group 2
- = Port-Channel2
- = Port-Channel3
Ethernet4 = Ethernet4
10:11: error: the ports of Port-Channel1 share one entry of the chip and must have the same egress IPv4 list: Ethernet1 has none, Ethernet2 has 'A'; apply the list to Port-Channel1
18:18: error: 'A': line 16 applies the IPv4 list 'B' at this place already; keep one of the two, or write their entries into one list
20:18: error: 'A': Port-Channel3 has no member ports to apply the list to; write channel-group 3 on them
)",
            summaryOf(R"(ip access-list extended A
 permit ip any any
ip access-list extended B
 permit ip any any
interface Port-channel1
 ip access-group A in
 switchport access vlan 30
interface Ethernet1
 channel-group 1 mode active
interface Ethernet2
 channel-group 1 mode active
 switchport access vlan 31
 ip access-group A out
interface Ethernet3
 channel-group 2 mode on
 ip access-group B in
interface Port-channel2
 ip access-group A in
interface Port-channel3
 ip access-group A in
interface Ethernet4
 channel-group 1 mode on
 no channel-group
)"));
}

TEST(ConfigInterface, hardware) {
  EXPECT_EQ(R"(Ethernet3 = Ethernet3 chip 1
Ethernet4 = Ethernet4 chip 1
Ethernet1 = Ethernet1
Ethernet2 = GigabitEthernet1/0/1 chip 2
ingressV4 512
egressV6 1024
ingressMac 0
chips 3
11:15: error: '64': a chip has a number from 0 to 63; write hardware chip 0 interface Ethernet1-4
12:14: error: the line ends too early: a chip has a number from 0 to 63; write hardware chip 0 interface Ethernet1-4
13:17: error: 'Ethernet1': interface and the ports of the chip are needed here; write hardware chip 0 interface Ethernet1-4
14:17: error: 'interface': interface and the ports of the chip are needed here; write hardware chip 0 interface Ethernet1-4
15:27: error: 'Vlan10': only Ethernet ports have a chip, and it is on every chip; name Ethernet ports here
16:27: error: 'Loopback0': only Ethernet ports have a chip, and the system has no loopback interfaces; name Ethernet ports here
17:27: error: '5' is no name of an interface; write interfaces like Ethernet1-4
18:15: error: 'ingresV4': there is no such table; the tables are ingressV4, ingressV6, egressV4, egressV6 and ingressMac; did you mean 'ingressV4'?
19:25: error: '32769': a table has a number of rows from 0 to 32768, because counter indexes have 16 bits and each row takes two
20:24: error: the line ends too early: a table has a number of rows from 0 to 32768, because counter indexes have 16 bits and each row takes two
21:25: error: 'many': a table has a number of rows from 0 to 32768, because counter indexes have 16 bits and each row takes two
22:1: warning: 'no hardware': hardware lines are not taken back; leave this line and the other one out
)",
            summaryOf(R"(hardware chip 1 interface Ethernet3-4
interface Ethernet1
interface Ethernet3
hardware chip 2 interface gi1/0/1
hardware tcam ingressV4 512
hardware tcam INGRESSMAC 0
hardware tcam egressV6 32768
hardware tcam egressV6 1024
hardware tcam profile default
hardware access-list update atomic
hardware chip 64 interface Ethernet1
hardware chip
hardware chip 0 Ethernet1
hardware chip 0 interface
hardware chip 0 interface Vlan10
hardware chip 0 interface Loopback0
hardware chip 0 interface 5
hardware tcam ingresV4 512
hardware tcam ingressV4 32769
hardware tcam ingressV4
hardware tcam ingressV4 many
no hardware tcam egressV6
)"));
}

TEST(ConfigInterface, tablesFromTheCommandLine) {
  ReadOptions options;
  options.tcam = {"ingressV4=100", "egressv6=0"};
  EXPECT_EQ("ingressV4 100\negressV6 0\n", [&] {
    const Config config =
        readConfigText("hardware tcam ingressV4 50\nhardware tcam egressV6 60\nvlan 1\n", "t", options);
    std::string text;
    for (const auto& [table, rows] : config.tcamRows)
      text += std::string(tableName(table)) + " " + std::to_string(rows) + "\n";
    return text + diagnosticsText(config);
  }());
  for (const char* wrong :
       {"ingressV5=1", "ingressV4", "ingressV4=32769", "=", "ingressV4=-1", "", "ingressV4="}) {
    options.tcam = {wrong};
    EXPECT_EQ(
        "--tcam: error: '" + std::string(wrong) +
            "': a table and its number of rows are needed, like ingressV4=4096; the tables are ingressV4, "
            "ingressV6, egressV4, egressV6 and ingressMac, with 0 to 32768 rows\n",
        diagnosticsText(readConfigText("vlan 1\n", "t", options)));
  }
}

TEST(ConfigInterface, foundByEitherName) {
  const Config config =
      readConfigText("interface GigabitEthernet1/0/1\ninterface Ethernet1\ninterface Vlan10\n"
                     "interface Port-channel3\n",
                     "t");
  std::string text;
  for (const char* name : {"GigabitEthernet1/0/1", "gi1/0/1", "Ethernet2", "e2", "Ethernet1", "ethernet1",
                           "eth01", "Vlan10", "vlan010", "po3", "Ethernet3", "", "x", "1"}) {
    const Interface* found = config.interface(name);
    text += std::string(name) + ": " + (found == nullptr ? "-" : found->name) + "\n";
  }
  EXPECT_EQ("GigabitEthernet1/0/1: GigabitEthernet1/0/1\n"
            "gi1/0/1: GigabitEthernet1/0/1\n"
            "Ethernet2: GigabitEthernet1/0/1\n"
            "e2: GigabitEthernet1/0/1\n"
            "Ethernet1: Ethernet1\n"
            "ethernet1: Ethernet1\n"
            "eth01: Ethernet1\n"
            "Vlan10: Vlan10\n"
            "vlan010: Vlan10\n"
            "po3: Port-Channel3\n"
            "Ethernet3: -\n"
            ": -\n"
            "x: -\n"
            "1: -\n",
            text);
}

} // namespace
