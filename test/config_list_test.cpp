#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// Lists: their headers and numbers, the order of their entries, where they end in a real configuration.

namespace {

using namespace agent;
using namespace configtest;

const ReadOptions strict{InputFormat::automatic, true, false, {}};

TEST(ConfigList, headersOfAllForms) {
  EXPECT_EQ(R"(v4 standard S
  10 permit ip host 10.0.0.1 any
v4 extended E
  10 permit ip any any
v4 extended N
  10 permit ip any any
v4 standard 99
  10 permit ip any any
v4 extended 2699
  10 permit ip any any
v4 standard 1300
  10 permit ip any any
v4 extended extended
  10 permit ip any any
v4 extended standard
  10 permit ip any any
v6 extended N
  10 permit ipv6 any any
v6 standard S
  10 permit ipv6 2001:db8::/32 any
v6 extended E
  10 permit tcp any any
mac extended N
  10 permit any any
mac extended E
  10 permit any any
mac standard 700
  10 permit host 0000.0000.0001 any
mac extended 1199
  10 permit any any
v4 standard 1
  10 permit ip host 10.0.0.1 any
v4 standard 1999
  10 permit ip any any
v4 extended 100
  10 permit ip any any
v4 extended 2000
  10 permit ip any any
mac standard 799
  10 permit 0000.0000.0000 0000.0000.ffff any
mac extended 1100
  10 permit host 0000.0000.0001 any
v4 extended 101
  10 deny udp any any
v4 extended 102
)",
            summaryOf(R"(ip access-list standard S
 permit 10.0.0.1
ip access-list extended E
 permit ip any any
ip access-list N
 permit ip any any
ip access-list standard 99
 permit any
ip access-list extended 2699
 permit ip any any
ip access-list 1300
 permit any
ip access-list extended
 permit ip any any
ip access-list standard
 permit ip any any
ipv6 access-list N
 permit ipv6 any any
ipv6 access-list standard S
 permit 2001:db8::/32
ipv6 access-list extended E
 permit tcp any any
mac access-list N
 permit any any
mac access-list extended E
 permit any any
mac access-list extended 700
 permit host 0000.0000.0001
mac access-list 1199
 permit any any
access-list 1 permit 10.0.0.1
access-list 1999 permit any
access-list 100 permit ip any any
access-list 2000 permit ip any any
access-list 799 permit 0000.0000.0001 0000.0000.ffff
access-list 1100 permit 0000.0000.0001 0000.0000.0000 any
access-list 101
 permit tcp any any
 10 deny udp any any
access-list 102 remark permit tcp any any eq 80
)"));
}

TEST(ConfigList, numbersAndKindsThatDoNotFit) {
  EXPECT_EQ(R"(v4 standard 100 (errors)
v4 extended 50 (errors)
v4 extended 300 (errors)
mac extended 100 (errors)
v4 extended 0 (errors)
v4 extended 200 (errors)
v4 extended OUT (errors)
v4 extended X (errors)
v4 standard A (errors)
  10 permit ip any any
v4 extended aclGroupDefault (errors)
  10 permit ip any any
Ethernet1 = Ethernet1 refused [v4 in 200, v4 out OUT, mac in 100]
Ethernet2 = Ethernet2 refused [v4 in X, v4 out A]
Ethernet3 = Ethernet3 refused [v4 in aclGroupDefault, v4 out 100]
1:25: error: '100': this number does not belong to a list of this kind; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199
3:25: warning: '50': this number does not belong to a list of this kind; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199 (no error, because the list is applied nowhere)
5:25: warning: '300': this number does not belong to a list of this kind; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199 (no error, because the list is applied nowhere)
7:26: error: '100': this number does not belong to a list of this kind; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199
9:13: warning: '0': no lists have this number; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199 (no error, because the list is applied nowhere)
10:13: error: '200': no lists have this number; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199
11:13: error: '100': line 1 opened this list as standard, and here it is extended; rename one of them, or delete the first with a no line
12:13: error: 'OUT': lists with a name are not read in this form; write ip access-list extended OUT and its entries on lines of their own below
13:13: error: 'OUT': lists with a name are not read in this form; write ip access-list extended OUT and its entries on lines of their own below
16:27: error: 'permit': nothing may stand behind the name of the list; write its entries on lines of their own
19:25: error: 'A': line 17 opened this list as standard, and here it is extended; rename one of them, or delete the first with a no line
21:25: error: 'aclGroupDefault': this name means no list at all; give the list another name
)",
            summaryOf(R"(ip access-list standard 100
 permit any
ip access-list extended 50
 permit ip any any
ip access-list extended 300
 permit ip any any
mac access-list extended 100
 permit any any
access-list 0 permit any
access-list 200 permit 0x0806
access-list 100 extended permit ip any any
access-list OUT extended permit tcp any any eq 80
access-list OUT line 3 extended permit tcp any any
access-list OUT remark nothing
access-list compiled
ip access-list extended X permit ip any any
ip access-list standard A
 permit any
ip access-list extended A
 permit ip any any
ip access-list extended aclGroupDefault
 permit ip any any
interface Ethernet1
 ip access-group 200 in
 ip access-group OUT out
 mac access-group 100 in
interface Ethernet2
 ip access-group X in
 ip access-group A out
interface Ethernet3
 ip access-group aclGroupDefault in
 ip access-group 100 out
)"));
}

TEST(ConfigList, entriesStandInTheOrderOfTheirNumbers) {
  EXPECT_EQ(R"(v4 extended A
  5 permit tcp any any eq 3
  7 permit tcp any any eq 6
  10 permit tcp any any eq 1
  15 permit tcp any any eq 5
  20 permit tcp any any eq 2
  30 permit tcp any any eq 4
  4294967290 permit tcp any any eq 7
)",
            summaryOf(R"(ip access-list extended A
 permit tcp any any eq 1
 permit tcp any any eq 2
 5 permit tcp any any eq 3
 permit tcp any any eq 4
 seq 15 permit tcp any any eq 5
 permit tcp any any eq 6 sequence 7
 4294967290 permit tcp any any eq 7
)"));
}

TEST(ConfigList, aNumberTwiceReplaces) {
  EXPECT_EQ(R"(v4 extended A
  10 deny udp any any
  20 permit tcp any any eq 2
)",
            summaryOf(R"(ip access-list extended A
 10 permit tcp any any eq 1
 10 remark shares the number of the entry
 20 permit tcp any any eq 2
 10 deny udp any any
 20 remark and keeps it
)"));
}

TEST(ConfigList, noNumberIsLeft) {
  EXPECT_EQ(R"(v4 extended A (errors)
  4294967290 permit tcp any any eq 7
Ethernet1 = Ethernet1 refused [v4 in A]
3:2: error: 'permit': no sequence number is left behind 4294967290; write one before the entry
)",
            summaryOf(R"(ip access-list extended A
 4294967290 permit tcp any any eq 7
 permit tcp any any eq 8
interface Ethernet1
 ip access-group A in
)"));
}

TEST(ConfigList, whatIsDeletedOrReplacedIsNoError) {
  EXPECT_EQ(R"(v4 extended A
  10 permit tcp any any
v4 extended B
  10 permit udp any any
Ethernet1 = Ethernet1 [v4 in A, v4 out B]
)",
            summaryOf(R"(ip access-list extended A
 10 permit ip any any dscp ef
 20 permit tcp any any eq nonsense
 30 permit ip any any
 permit tcp any any time-range X
 10 permit tcp any any
 no 20
 no permit  TCP any any  time-range X
 no remark whatever
 no seq 30
ip access-list extended B
 bogus
 permit foo any any
no ip access-list extended B
ip access-list extended B
 permit udp any any
interface Ethernet1
 ip access-group A in
 ip access-group B out
)"));
}

TEST(ConfigList, deletingWhatIsNotThereIsSaid) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip any any
3:5: warning: '20': the list has no entry of this number to delete; leave the line out
4:5: warning: 'deny': the list has no such entry to delete; leave the line out
)",
            summaryOf(R"(ip access-list extended A
 10 permit ip any any
 no 20
 no deny ip any any
no ip access-list extended B
)"));
}

TEST(ConfigList, deletedByTextEachTimeOneOfThem) {
  EXPECT_EQ(R"(v4 extended A
  10 deny ip any any
  20 permit tcp any any eq 2
)",
            summaryOf(R"(ip access-list extended A
 permit tcp any any eq 1
 permit tcp any any eq 2
 permit tcp any any eq 1
 no permit tcp any any eq 1
 permit tcp any any eq 3
 10 deny ip any any
 no permit tcp any any eq 3
 no permit tcp any any eq 1
)"));
}

TEST(ConfigList, resequence) {
  EXPECT_EQ(R"(v4 extended A
  100 permit tcp any any eq 1
  105 permit tcp any any eq 2
  115 permit tcp any any eq 3
7:29: error: '0': new sequence numbers need a first number and a step, both from 1 on
)",
            summaryOf(R"(ip access-list extended A
 7 permit tcp any any eq 1
 9 permit tcp any any eq 2
ip access-list resequence A 100 5
ip access-list extended A
 permit tcp any any eq 3
ip access-list resequence A 0 5
)"));
}

TEST(ConfigList, deletingEveryForm) {
  EXPECT_EQ(R"(v4 extended KEPT
)",
            summaryOf(R"(ip access-list extended A
 permit ip any any
ip access-list standard B
 permit any
access-list 10 permit any
access-list 101 permit ip any any
access-list 701 permit any
ipv6 access-list A
 permit ipv6 any any
mac access-list extended A
 permit any any
no ip access-list extended A
no ip access-list B
no access-list 10
no access-list 101 permit ip any any
no access-list 701
no ipv6 access-list A
no mac access-list extended A
ip access-list extended KEPT
)"));
}

TEST(ConfigList, reopeningAppends) {
  EXPECT_EQ(R"(v4 extended A
  10 permit tcp any any
  20 deny ip any any
v4 extended B
  10 permit udp any any
v4 extended 101
  10 permit tcp any any
  15 permit udp any any
  20 deny ip any any
v4 extended 102
  10 permit tcp any any
)",
            summaryOf(R"(ip access-list extended A
 permit tcp any any
ip access-list extended B
 permit udp any any
ip access-list A
 deny ip any any
access-list 101 permit tcp any any
access-list 102 permit tcp any any
access-list 101 deny ip any any
ip access-list extended 101
 15 permit udp any any
)"));
}

TEST(ConfigList, endsWhereAnotherCommandStarts) {
  EXPECT_EQ(R"(v4 extended A
  10 permit tcp any any
  20 permit udp any any
  30 permit icmp any any
)",
            summaryOf(R"(hostname x
ip access-list extended A

 permit tcp any any
!
 permit udp any any
   ! a comment of its own
 # another one
 statistics per-entry
 permit icmp any any
snmp-server community permit
 permit ip any any
route-map X permit 10
 match ip address A
ip prefix-list P seq 5 permit 10.0.0.0/8
ip as-path access-list 1 permit ^$
arp access-list Z
 permit ip any mac any
ipv6 access-list log-update threshold 5
)"));
}

TEST(ConfigList, withoutIndentation) {
  EXPECT_EQ(R"(v4 extended A
  10 deny udp any any
mac extended M
  10 deny host aabb.cc00.0920 host aabb.cc00.0a30
  20 permit any any
Ethernet1 = Ethernet0/2 [mac in M, v4 in A] access 21
)",
            summaryOf(R"(ip access-list extended A
permit tcp any any
!
10 deny udp any any
remark x
exit
mac access-list extended M
deny host aabb.cc00.0920 host aabb.cc00.0a30
permit any any
int e0/2
spanning-tree portfast
switchport access vlan 21
mac access-group M in
ip access-group A in
exit
ip route 0.0.0.0 0.0.0.0 10.0.0.1
)"));
}

TEST(ConfigList, entriesOfNoList) {
  EXPECT_EQ(R"(v4 extended A (errors)
  10 permit tcp any any
1:1: error: 'permit': this entry stands in no list; write the list's header, like ip access-list extended NAME, before it
4:1: warning: 'premit': inside a list stand entries, which start with permit or deny, and remarks; end the list with exit before anything else; did you mean 'permit'? (no error, because the list is applied nowhere)
6:4: error: 'deny': this entry stands in no list; write the list's header, like ip access-list extended NAME, before it
7:1: error: 'ip': a list is applied here, but no interface is open; write interface NAME before the line
9:1: warning: 'deny': this entry stands in no list that is read and is skipped; if it is one of an access list, write the list's header before it
)",
            summaryOf(R"(permit ip any any
ip access-list extended A
permit tcp any any
premit udp any any
exit
10 deny ip any any
ip access-group A in
router bgp 1
deny ip any any
)"));
}

TEST(ConfigList, linesInsideThatAreNoEntries) {
  EXPECT_EQ(R"(v4 extended A (errors)
Ethernet1 = Ethernet1 refused [v4 in A]
3:2: error: 'pemit': inside a list stand entries, which start with permit or deny, and remarks; end the list with exit before anything else; did you mean 'permit'?
4:2: error: 'fragments': inside a list stand entries, which start with permit or deny, and remarks; end the list with exit before anything else
5:4: error: the line ends too early: an entry starts with permit or deny
)",
            summaryOf(R"(ip access-list extended A
 permit tcp any any
 pemit udp any any
 fragments deny-all
 10
interface Ethernet1
 ip access-group A in
)"));
}

TEST(ConfigList, aListAppliedNowhereOnlyWarns) {
  const char* text = "ip access-list extended A\n permit ip any any dscp ef\n permit tcp any any\n";
  EXPECT_EQ(
      "v4 extended A (errors)\n"
      "  20 permit tcp any any\n"
      "2:20: warning: 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave "
      "the option out, or match by addresses, protocol and ports (no error, because the list is applied "
      "nowhere)\n",
      summaryOf(text));
  EXPECT_EQ(
      "v4 extended A (errors)\n"
      "  20 permit tcp any any\n"
      "2:20: error: 'dscp': a row does not compare the DSCP, precedence and type-of-service bits; leave "
      "the option out, or match by addresses, protocol and ports\n",
      summaryOf(text, strict));
}

TEST(ConfigList, strictMakesErrorsOfWarnings) {
  const char* text = "ip access-list extended A\n permit tcp any any eq 80 fragments\n"
                     "interface Ethernet1\n ip access-group A in\n";
  EXPECT_EQ(
      "v4 extended A\n"
      "  10 permit tcp any any fragments\n"
      "Ethernet1 = Ethernet1 [v4 in A]\n"
      "2:27: warning: 'fragments': a fragment that is not the first carries no ports, so that the ports of "
      "this line are not compared; leave them out\n",
      summaryOf(text));
  EXPECT_EQ(
      "v4 extended A (errors)\n"
      "  10 permit tcp any any fragments\n"
      "Ethernet1 = Ethernet1 refused [v4 in A]\n"
      "2:27: error: 'fragments': a fragment that is not the first carries no ports, so that the ports of "
      "this line are not compared; leave them out\n",
      summaryOf(text, strict));
}

TEST(ConfigList, theTextOfAnEntry) {
  const Config config = readConfigText("ip access-list extended A\n"
                                       "  10  permit   tcp any any\teq www  log  ! why\n"
                                       " deny ip any any sequence 20\n"
                                       " seq 30 deny udp any any (12 matches)\n"
                                       "access-list 101   permit  ip any any\n",
                                       "t");
  std::string text;
  for (const AccessList& list : config.lists)
    for (const Rule& rule : list.rules)
      text += rule.loc.text() + " " + std::to_string(rule.sequence) + " <" + rule.text + ">\n";
  EXPECT_EQ("t:2:7 10 <permit tcp any any eq www log>\n"
            "t:3:2 20 <deny ip any any>\n"
            "t:4:9 30 <deny udp any any>\n"
            "t:5:19 10 <permit ip any any>\n",
            text);
}

TEST(ConfigList, bannersAreNoConfiguration) {
  EXPECT_EQ(R"(v4 extended A
  10 permit ip any any
)",
            summaryOf(R"(banner motd ^C
permit ip any any
ip access-list extended FAKE
^C
banner login #one line# 
banner exec
ip access-list extended FAKE
EOF
banner motd %no end
ip access-list extended A
 permit ip any any
)"));
}

} // namespace
