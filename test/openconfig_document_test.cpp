#include "test/ConfigSummary.h"
#include "test/Shared.h"

#include <gtest/gtest.h>

// Whole OpenConfig documents: their forms, sets, interfaces, VLANs and chips, and what is no document.

namespace {

using namespace agent;
using namespace configtest;

std::string read(const std::string& text, bool keepGoing = false, bool strict = false) {
  ReadOptions options;
  options.keepGoing = keepGoing;
  options.strict = strict;
  options.format = InputFormat::openconfig;
  return summaryOf(text, options);
}

// A set with the entries, each given by its sequence number and what stands beside it.
std::string setOf(const std::string& name, const std::string& type, const std::string& entries) {
  return R"({"name":")" + name + R"(","type":")" + type + R"(","acl-entries":{"acl-entry":[)" + entries +
         "]}}";
}
const std::string drop = R"("actions":{"forwarding-action":"DROP"})";
const std::string anEntry = R"({"sequence-id":10,)" + drop + "}";

std::string aclOf(const std::string& sets, const std::string& interfaces = "", const std::string& more = "") {
  return R"({"acl":{"acl-sets":{"acl-set":[)" + sets + "]}" +
         (interfaces.empty() ? "" : R"(,"interfaces":{"interface":[)" + interfaces + "]}") + "}" + more + "}";
}
std::string appliedTo(const std::string& interface, const std::string& name, const std::string& type,
                      const std::string& way = "ingress") {
  return R"({"id":")" + interface + R"(",")" + way + R"(-acl-sets":{")" + way +
         R"(-acl-set":[{"set-name":")" + name + R"(","type":")" + type + R"("}]}})";
}

TEST(OpenConfigDocument, allItsForms) {
  const std::string set = setOf("A", "ACL_IPV4", anEntry);
  const std::string expected = "v4 extended A\n  10 deny ip any any\n";
  for (const std::string& text :
       {aclOf(set), R"({"acl-sets":{"acl-set":[)" + set + "]}}", R"({"acl-set":[)" + set + "]}",
        "[" + set + "]", R"({"openconfig-acl:acl":{"openconfig-acl:acl-sets":{"acl-set":[)" + set + "]}}}",
        R"({"oc-acl:acl":{"acl-sets":{"acl-set":[)" + set +
            R"(]},"state":{"counter-capability":1},"config":{}}})",
        R"({"openconfig-system:system":{"x":[1]},"acl-set":[)" + set + "]}"})
    EXPECT_EQ(expected, read(text)) << text;
}

TEST(OpenConfigDocument, isRecognised) {
  const auto listsOf = [](const std::string& text) { return readConfigText(text, "t").lists.size(); };
  EXPECT_EQ(1u, listsOf("\n\t [" + setOf("A", "ACL_IPV4", anEntry) + "]"));
  EXPECT_EQ(1u, listsOf("\xEF\xBB\xBF" + aclOf(setOf("A", "ACL_IPV4", anEntry))));
  EXPECT_EQ(1u, listsOf("ip access-list standard A\n permit any\n"));
  EXPECT_EQ(1u, listsOf("@0.0.0.0/0 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00"));
}

TEST(OpenConfigDocument, entriesStandInTheOrderOfTheirNumbers) {
  EXPECT_EQ(
      "v4 extended A\n  1 permit 50 any any log\n  20 deny ip any any\n  4294967295 deny ip any any\n",
      read(aclOf(setOf("A", "ACL_IPV4",
                       R"({"sequence-id":4294967295,)" + drop + R"(},{"config":{"sequence-id":20},)" + drop +
                           R"(},{"sequence-id":"1","ipv4":{"protocol":50},"actions":{"forwarding-action":)" +
                           R"("ACCEPT","log-action":"LOG_SYSLOG"}})"))));
}

TEST(OpenConfigDocument, numbersThatAreNone) {
  const auto entry = [](const std::string& head) {
    return read(
        aclOf(setOf("A", "ACL_IPV4", "\n{" + head + drop + "}"), appliedTo("Ethernet1", "A", "ACL_IPV4")));
  };
  const std::string rest = "v4 extended A (errors)\nEthernet1 = Ethernet1 refused [v4 in A]\n";
  const std::string path = "error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry";
  EXPECT_EQ(
      rest + "2:1: " + path +
          ": the entry has no sequence-id, so that its place in the set is unknown; write a number from 1 "
          "to 4294967295\n",
      entry(""));
  EXPECT_EQ(rest + "2:16: " + path +
                ": the number 0 is no sequence-id; write a number from 1 to 4294967295\n",
            entry(R"("sequence-id":0,)"));
  EXPECT_EQ(rest + "2:16: " + path +
                ": the number 4294967296 is no sequence-id; write a number from 1 to 4294967295\n",
            entry(R"("sequence-id":4294967296,)"));
  EXPECT_EQ(rest + "2:16: " + path + ": 'x' is no sequence-id; write a number from 1 to 4294967295\n",
            entry(R"("sequence-id":"x",)"));
  EXPECT_EQ(
      rest + "2:42: " + path +
          "[sequence-id=5]/config/sequence-id: the number 6 stands here and the number 5 at "
          "/acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=5]/sequence-id; "
          "only one can be meant, make them equal\n",
      entry(R"("sequence-id":5,"config":{"sequence-id":6},)"));
  EXPECT_EQ(
      "v4 extended A (errors)\n  5 deny ip any any\nEthernet1 = Ethernet1 refused [v4 in A]\n3:16: " + path +
          "[sequence-id=5]: line 2 has an entry of this sequence-id already; number one of them anew\n",
      entry(R"("sequence-id":5,)" + drop + "},\n" + R"({"sequence-id":5,)"));
}

TEST(OpenConfigDocument, setsThatCannotBeTold) {
  EXPECT_EQ(R"T(v4 extended A
  10 deny ip any any
1:32: error: /acl/acl-sets/acl-set: the set has no name, so that no interface can have it; write "name"
1:32: error: /acl/acl-sets/acl-set: the set has no type; write "type": ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED
)T",
            read(aclOf("{}," + setOf("A", "ACL_IPV4", anEntry))));
  EXPECT_EQ(R"T(v4 extended A
  10 deny ip any any
1:51: error: /acl/acl-sets/acl-set: 'IPV4' is no type of a set; write "type": ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED
)T",
            read(aclOf(setOf("A", "IPV4", anEntry) + "," + setOf("A", "ACL_IPV4", anEntry))));
}

TEST(OpenConfigDocument, setsOfOneName) {
  // Different families do not meet.
  EXPECT_EQ("v4 extended A\n  10 deny ip any any\nv6 extended A\n  10 deny ipv6 any any\nmac extended A\n"
            "  10 deny any any\n",
            read(aclOf(setOf("A", "ACL_IPV4", anEntry) + "," + setOf("A", "ACL_IPV6", anEntry) + "," +
                       setOf("A", "ACL_L2", anEntry))));
  EXPECT_EQ(R"T(v4 extended A (errors)
  10 deny ip any any
Ethernet1 = Ethernet1 refused [v4 in A]
2:1: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]: another set of this name and type stands further down; keep one of the two
)T",
            read(aclOf("\n" + setOf("A", "ACL_IPV4", anEntry) + ",\n" + setOf("A", "ACL_IPV4", anEntry),
                       appliedTo("Ethernet1", "A", "ACL_IPV4"))));
  EXPECT_EQ(R"T(v4 extended A
  10 deny ip any any
3:1: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: line 2 has a set of this name for the same packets already; rename one of them, or write their entries into one set
)T",
            read(aclOf("\n" + setOf("A", "ACL_IPV4", anEntry) + ",\n" + setOf("A", "ACL_MIXED", anEntry))));
}

TEST(OpenConfigDocument, mixedSetsBecomeTwoLists) {
  const std::string v4Entry = R"({"sequence-id":10,"ipv4":{"protocol":6},)" + drop + "}";
  const std::string v6Entry = R"({"sequence-id":20,"ipv6":{"protocol":17},)" + drop + "}";
  const std::string either = R"({"sequence-id":30,)" + drop + "}";
  const std::string both = R"({"sequence-id":40,"ipv4":{"protocol":6},"ipv6":{"protocol":6},)" + drop + "}";
  const std::string l2Entry = R"({"sequence-id":50,"l2":{"ethertype":2054},)" + drop + "}";
  const std::string at = appliedTo("Ethernet1", "A", "ACL_MIXED");
  EXPECT_EQ(R"T(v4 extended A
  10 deny tcp any any
  30 deny ip any any
v6 extended A
  20 deny udp any any
  30 deny ipv6 any any
Ethernet1 = Ethernet1 [v4 in A, v6 in A]
1:32: warning: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: a mixed set is read as an IPv4 list and an IPv6 list of this name, so that frames that carry neither pass; write a set of type ACL_L2 for those
)T",
            read(aclOf(setOf("A", "ACL_MIXED", v4Entry + "," + v6Entry + "," + either), at)));
  EXPECT_EQ(R"T(v4 extended A (errors)
  10 deny tcp any any
v6 extended A (errors)
Ethernet1 = Ethernet1 refused [v4 in A, v6 in A]
1:32: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: the set has no entry that could match IPv6 packets, so that it would drop them all, but a list without entries drops nothing; write an entry for them, or make the type ACL_IPV4
1:32: warning: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: a mixed set is read as an IPv4 list and an IPv6 list of this name, so that frames that carry neither pass; write a set of type ACL_L2 for those
)T",
            read(aclOf(setOf("A", "ACL_MIXED", v4Entry), at)));
  EXPECT_EQ(R"T(v4 extended A (errors)
v6 extended A (errors)
  20 deny udp any any
Ethernet1 = Ethernet1 refused [v4 in A, v6 in A]
1:32: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: the set has no entry that could match IPv4 packets, so that it would drop them all, but a list without entries drops nothing; write an entry for them, or make the type ACL_IPV6
1:32: warning: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: a mixed set is read as an IPv4 list and an IPv6 list of this name, so that frames that carry neither pass; write a set of type ACL_L2 for those
)T",
            read(aclOf(setOf("A", "ACL_MIXED", v6Entry), at)));
  EXPECT_EQ(R"T(v4 extended A (errors)
  30 deny ip any any
v6 extended A (errors)
  30 deny ipv6 any any
Ethernet1 = Ethernet1 refused [v4 in A, v6 in A]
1:32: warning: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]: a mixed set is read as an IPv4 list and an IPv6 list of this name, so that frames that carry neither pass; write a set of type ACL_L2 for those
1:174: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]/acl-entries/acl-entry[sequence-id=40]/ipv4: no packet is IPv6 and IPv4 at once, and this stands in a set of type ACL_MIXED; leave the container out, or move the entry to a set of its type
1:196: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]/acl-entries/acl-entry[sequence-id=40]/ipv6: no packet is IPv4 and IPv6 at once, and this stands in a set of type ACL_MIXED; leave the container out, or move the entry to a set of its type
1:274: error: /acl/acl-sets/acl-set[name=A][type=ACL_MIXED]/acl-entries/acl-entry[sequence-id=50]/l2: a row compares either MAC addresses and the EtherType or what is in the IP packet, and this stands in a set of type ACL_MIXED; move the entry to a set of type ACL_L2
)T",
            read(aclOf(setOf("A", "ACL_MIXED", either + "," + both + "," + l2Entry), at)));
}

TEST(OpenConfigDocument, whatIsNotKnownOfSetsAndInterfaces) {
  EXPECT_EQ(R"T(v4 extended A (errors)
v4 extended aclGroupDefault (errors)
Ethernet1 = Ethernet1 refused [v4 in A]
Ethernet2 = Ethernet2
1:16: error: /acl/mode: this is not known here, and without it the sets may mean something else; leave it out
1:41: error: /acl/acl-sets/acl-sett: this is not known here; the list 'acl-set' belongs here; did you mean 'acl-set'?
2:28: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/config/default-action: this is not known here, and without it the set may mean something else; leave it out
2:62: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/config/name: 'B' stands here and 'A' at /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/name; only one can be meant, make them equal
2:94: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry: an object stands where a list is needed; write [ and ] around its entries
3:1: error: /acl/acl-sets/acl-set[name=aclGroupDefault][type=ACL_IPV4]: this name means no list at all; give the set another name
3:54: error: /acl/acl-sets/acl-set: the set has no name, so that no interface can have it; write "name"
3:63: error: /acl/acl-sets/acl-set: 'ACL_IPV5' is no type of a set; write "type": ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED
3:76: error: /acl/acl-sets/acl-set: the set has no name, so that no interface can have it; write "name"
3:76: error: /acl/acl-sets/acl-set: the set has no type; write "type": ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED
4:53: error: /acl/interfaces/interface[id=Ethernet1]/mode: this is not known here, and without it the sets may judge other packets; leave it out
5:43: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set/order: this is not known here, and without it the set may judge other packets; leave it out
5:46: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set: the type is missing, so that nobody can tell which set is meant; write it
5:63: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set: the set-name is missing, so that nobody can tell which set is meant; write it
5:95: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set/set-name: the number 7 stands where the name of a set is needed; write it in double quotes
5:104: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set/type: 'x' is no type of a set; write ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED
5:109: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set: the number 9 stands where an object is needed; write { and }
6:18: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/egress-acl-set: this is not known here; the list 'ingress-acl-set' belongs here; did you mean 'ingress-acl-set'?
6:23: error: /acl/interfaces/interface: the interface has no id and no interface-ref, so that nobody can tell which one it is; write "id" with its name
6:43: error: /acl/interfaces/interface/ingress-acl-sets: an array stands where an object is needed; write { and }
7:16: error: /acl/interfaces/interface/interface-ref/config/subinterface: the system has no subinterfaces but 0, which is the interface itself; apply the set to the interface, or to the VLAN interface of the packets that are meant
7:26: error: /acl/interfaces/interface/interface-ref/unit: only interface and subinterface say where sets apply; leave this out
7:31: error: /acl/interfaces/interface: the number 7 stands where an object is needed; write { and }
)T",
            read(R"({"acl":{"mode":1,"acl-sets":{"acl-sett":[],"acl-set":[{"name":"A","type":"ACL_IPV4",
"config":{"default-action":"ACCEPT","description":"d","name":"B"},"acl-entries":{"acl-entry":{}}},
{"name":"aclGroupDefault","type":"ACL_IPV4"},{"name":7,"type":"ACL_IPV5"}, 5]},
"interfaces":{"interface":[{"id":"Ethernet1","mode":"x","ingress-acl-sets":{"ingress-acl-set":[
{"set-name":"A","type":"ACL_IPV4","order":1},{"set-name":"A"},{"type":"ACL_IPV4"},{"set-name":7,"type":"x"},9],
"egress-acl-set":[]}},{"ingress-acl-sets":[]},{"id":"","interface-ref":{"config":{"interface":"Ethernet2",
"subinterface":3},"unit":1}}, 7]}}})"));
}

TEST(OpenConfigDocument, whereSetsApply) {
  const std::string sets = setOf("A", "ACL_IPV4", anEntry) + "," + setOf("B", "ACL_IPV4", anEntry) + "," +
                           setOf("S", "ACL_IPV6", anEntry) + "," + setOf("M", "ACL_L2", anEntry) + "," +
                           setOf("E", "ACL_IPV4", "");
  const auto at = [&sets](const std::string& interfaces, const std::string& more = "") {
    const std::string text = read(aclOf(sets, "\n" + interfaces, more));
    return text.substr(text.find("Eth"));
  };
  EXPECT_EQ("Ethernet1 = Ethernet1 [v4 in A]\n", at(appliedTo("Ethernet1", "A", "openconfig-acl:ACL_IPV4")));
  // The reference, not the id, says which interface it is.
  EXPECT_EQ("Ethernet1 = GigabitEthernet1/0/1 [v4 out A]\n",
            at(R"({"id":"uplink","config":{"id":"uplink"},"interface-ref":{"config":{"interface":"Gi1/0/1",)"
               R"("subinterface":0}},"egress-acl-sets":{"egress-acl-set":[{"set-name":"A","type":"ACL_IPV4",)"
               R"("config":{"set-name":"A","type":"openconfig-acl:ACL_IPV4"},"state":{"x":1}}]}})"));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 refused [v4 in X]
2:58: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set[set-name=X][type=ACL_IPV4]: there is no set of this name and type in /acl/acl-sets; define it, or take it out here; did you mean 'A'?
)T",
            at(appliedTo("Ethernet1", "X", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 refused [v4 in S]
2:58: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set[set-name=S][type=ACL_IPV4]: the set 'S' is of type ACL_IPV6; write this type here, or define a set of type ACL_IPV4
)T",
            at(appliedTo("Ethernet1", "S", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 refused [mac out M]
2:56: error: /acl/interfaces/interface[id=Ethernet1]/egress-acl-sets/egress-acl-set[set-name=M][type=ACL_L2]: the chip has no rows for sets of type ACL_L2 on the way out; apply the set in ingress-acl-sets, on the ports where the frames come from
)T",
            at(appliedTo("Ethernet1", "M", "ACL_L2", "egress")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1
2:58: warning: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set[set-name=E][type=ACL_IPV4]: the set has no entries, so that it is no list and everything is permitted; give it an entry, or take it out here
)T",
            at(appliedTo("Ethernet1", "E", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 refused [v4 in A, v4 in B]
3:53: error: /acl/interfaces/interface[id=Eth1]/ingress-acl-sets/ingress-acl-set[set-name=B][type=ACL_IPV4]: line 2 applies the set 'A' for the same packets at this place already; keep one of the two, or write their entries into one set
)T",
            at(appliedTo("Ethernet1", "A", "ACL_IPV4") + ",\n" + appliedTo("Eth1", "B", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 refused [v4 in A, v4 in A]
3:58: error: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: line 2 applies the set 'A' for the same packets at this place already; keep one of the two, or write their entries into one set
)T",
            at(appliedTo("Ethernet1", "A", "ACL_IPV4") + ",\n" + appliedTo("Ethernet1", "A", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 [v4 in A]
- = Vlan10 refused [mac in M]
- = Loopback0 refused [v4 in A] (unsupported)
- = Ethernet1.5 refused [v4 in A] (unsupported)
- = 1/1 refused [v4 in A] (unsupported)
2:150: error: /acl/interfaces/interface[id=Vlan10]/ingress-acl-sets/ingress-acl-set[set-name=M][type=ACL_L2]: a VLAN interface sees IP packets only; apply the set to the Ethernet ports of the VLAN
2:243: error: /acl/interfaces/interface[id=Loopback0]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: the set cannot be applied to 'Loopback0', because the system has no loopback interfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
2:340: error: /acl/interfaces/interface[id=Ethernet1.5]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: the set cannot be applied to 'Ethernet1.5', because the system has no subinterfaces; apply it to an Ethernet port, a port-channel or a VLAN interface
2:429: error: /acl/interfaces/interface[id=1/1]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: the set cannot be applied to '1/1', because a name starts with the kind of the interface, like Ethernet1; apply it to an Ethernet port, a port-channel or a VLAN interface
)T",
            at(appliedTo("Ethernet1", "A", "ACL_IPV4") + "," + appliedTo("Vlan10", "M", "ACL_L2") + "," +
               appliedTo("Loopback0", "A", "ACL_IPV4") + "," + appliedTo("Ethernet1.5", "A", "ACL_IPV4") +
               "," + appliedTo("1/1", "A", "ACL_IPV4")));
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1 [v4 in A]
- = Port-Channel1
2:157: error: /acl/interfaces/interface[id=Port-Channel1]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: Port-Channel1 has no member ports to apply the set to; write its name as the aggregate-id of the ports in /interfaces/interface/ethernet/config
)T",
            at(appliedTo("Ethernet1", "A", "ACL_IPV4") + "," + appliedTo("Port-Channel1", "A", "ACL_IPV4")));
}

TEST(OpenConfigDocument, setsThatAreAppliedNowhere) {
  const std::string wrong = setOf("A", "ACL_IPV4", R"({"sequence-id":10,"ipv4":{"dscp":1},)" + drop + "}");
  EXPECT_EQ(R"T(v4 extended A (errors)
1:123: warning: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=10]/ipv4/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports (no error, because the set is applied nowhere)
)T",
            read(aclOf(wrong)));
  EXPECT_EQ(R"T(v4 extended A (errors)
1:123: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=10]/ipv4/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports
)T",
            read(aclOf(wrong), false, true));
  EXPECT_EQ(R"T(v4 extended A (errors)
Ethernet1 = Ethernet1 refused [v4 in A]
1:123: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=10]/ipv4/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports
1:255: warning: /acl/interfaces/interface[id=Ethernet1]/ingress-acl-sets/ingress-acl-set[set-name=A][type=ACL_IPV4]: the set has errors and is not loaded; what the interface had in its place stays
)T",
            read(aclOf(wrong, appliedTo("Ethernet1", "A", "ACL_IPV4")), true));
}

TEST(OpenConfigDocument, portsAndVlans) {
  EXPECT_EQ(R"T(v4 extended A
  10 deny ip any any
Ethernet7 = Ethernet7 [v4 in A] trunk 10,20-22,30 group 1 chip 1
Ethernet8 = Ethernet8 [v4 in A] trunk 10,20-22,30 group 1 chip 1
- = Port-Channel1 trunk 10,20-22,30
Ethernet3 = Ethernet3 access 10
Ethernet4 = Ethernet4 trunk 1-4094
- = Loopback0 (unsupported)
- = Vlan10
vlan 10
vlan 20
vlan 30
ingressV4 128
chips 2
)T",
            read(R"({"acl-set":[{"name":"A","type":"ACL_IPV4","acl-entries":{"acl-entry":[
{"sequence-id":10,"actions":{"forwarding-action":"DROP"}}]}}],
"openconfig-interfaces:interfaces":{"interface":[
{"name":"Ethernet7","config":{"mtu":9000},"openconfig-if-ethernet:ethernet":{"config":{"port-speed":"X",
"openconfig-if-aggregate:aggregate-id":"Port-Channel1"}}},
{"name":"Ethernet8","ethernet":{"config":{"aggregate-id":"Po1"}}},
{"name":"Port-Channel1","openconfig-if-aggregate:aggregation":{"openconfig-vlan:switched-vlan":{"config":
{"interface-mode":"TRUNK","trunk-vlans":[10,"20..22","30"],"native-vlan":1}}}},
{"name":"Ethernet3","ethernet":{"switched-vlan":{"config":{"interface-mode":"ACCESS","access-vlan":10,
"trunk-vlans":[5]}}}},
{"name":"Ethernet4","ethernet":{"switched-vlan":{"config":{"interface-mode":"TRUNK"}}}},
{"name":"Loopback0"},{"name":"Vlan10","openconfig-vlan:routed-vlan":{"config":{"vlan":10}}}]},
"openconfig-network-instance:network-instances":{"network-instance":[{"name":"default","vlans":{"vlan":[
{"vlan-id":10,"config":{"vlan-id":10,"name":"users"}},{"vlan-id":20}]}}]},
"openconfig-vlan:vlans":{"vlan":[{"vlan-id":30}]},
"openconfig-acl:acl":{"interfaces":{"interface":[{"id":"Port-Channel1","ingress-acl-sets":{"ingress-acl-set":[
{"set-name":"A","type":"ACL_IPV4"}]}}]}},
"xpacl:hardware":{"tcam":[{"table":"ingressV4","rows":128}],"interface":[{"name":"Ethernet7","chip":1},
{"name":"Ethernet8","chip":1}]}})"));
}

TEST(OpenConfigDocument, portsAndVlansThatAreNone) {
  EXPECT_EQ(R"T(Ethernet1 = Ethernet1
Ethernet2 = Ethernet2 trunk none
Ethernet3 = Ethernet3 trunk none
Ethernet4 = Ethernet4 trunk 1-4094
- = Vlan5000 (unsupported)
- = Vlan7
2:58: error: /interfaces/interface[name=Ethernet1]/ethernet/config/aggregate-id: 'Ethernet2' is no port-channel; write a name like "Port-Channel1"
3:18: error: /interfaces/interface[name=Ethernet1]/ethernet/switched-vlan/config/interface-mode: 'BRIDGE' is no mode; write ACCESS or TRUNK
3:41: error: /interfaces/interface[name=Ethernet1]/ethernet/switched-vlan/config/access-vlan: the number 4095 stands where a VLAN is needed, a whole number from 1 to 4094
4:100: error: /interfaces/interface[name=Ethernet2]/ethernet/switched-vlan/config/trunk-vlans: the number 0 is no VLAN; write a number from 1 to 4094, or a range like "10..20"
4:102: error: /interfaces/interface[name=Ethernet2]/ethernet/switched-vlan/config/trunk-vlans: '9..3' is no VLAN; write a number from 1 to 4094, or a range like "10..20"
4:109: error: /interfaces/interface[name=Ethernet2]/ethernet/switched-vlan/config/trunk-vlans: the number 5000 is no VLAN; write a number from 1 to 4094, or a range like "10..20"
5:99: error: /interfaces/interface[name=Ethernet3]/ethernet/switched-vlan/config/trunk-vlans: the number 7 stands where a list is needed; write numbers and ranges in [ and ]
6:15: warning: /interfaces/interface[name=Ethernet3]/ethernet/switched-vlan/config/native-vlan: frames without a tag are in VLAN 1 on a trunk of this system; write 1
7:96: error: /interfaces/interface[name=Ethernet4]/ethernet/switched-vlan/config/isolated: this is not known here, and without it the port may carry other VLANs; leave it out
8:1: error: /interfaces/interface[name=Vlan5000]: 'Vlan5000': VLANs are numbered from 1 to 4094
9:29: error: /vlans/vlan/vlan-id: the number 0 stands where a VLAN is needed, a whole number from 1 to 4094
10:36: error: /xpacl:hardware/tcam: a table and its number of rows are needed here; the tables are ingressV4, ingressV6, egressV4, egressV6 and ingressMac
10:84: error: /xpacl:hardware/tcam/rows: the number 32769 stands where the number of rows of a table is needed, a whole number from 0 to 32768
10:91: error: /xpacl:hardware/tcam: a table and its number of rows are needed here; the tables are ingressV4, ingressV6, egressV4, egressV6 and ingressMac
10:103: error: /xpacl:hardware/tcam: the number 3 stands where an object is needed; write { and }
11:22: error: /xpacl:hardware/interface/name: 'Vlan7': only Ethernet ports have a chip; name Ethernet ports here
11:67: error: /xpacl:hardware/interface/chip: the number 64 stands where the number of a chip is needed, a whole number from 0 to 63
11:71: error: /xpacl:hardware/interface: the name of an interface and the number of its chip are needed here
11:99: error: /xpacl:hardware/fan: this is not known here; tcam and interface are
12:7: warning: /alc: this is none of the models that are read, and is passed over; did you mean 'acl'?
)T",
            read(R"({"interfaces":{"interface":[
{"name":"Ethernet1","ethernet":{"config":{"aggregate-id":"Ethernet2"},"switched-vlan":{"config":{
"interface-mode":"BRIDGE","access-vlan":4095}}}},
{"name":"Ethernet2","ethernet":{"switched-vlan":{"config":{"interface-mode":"TRUNK","trunk-vlans":[0,"9..3",5000]}}}},
{"name":"Ethernet3","ethernet":{"switched-vlan":{"config":{"interface-mode":"TRUNK","trunk-vlans":7,
"native-vlan":10}}}},
{"name":"Ethernet4","ethernet":{"switched-vlan":{"config":{"interface-mode":"TRUNK","isolated":true}}}},
{"name":"Vlan5000"},{"type":"x"}]},
"vlans":{"vlan":[{"vlan-id":0}]},
"xpacl:hardware":{"tcam":[{"table":"ingress","rows":5},{"table":"ingressV4","rows":32769},{"rows":1}, 3],
"interface":[{"name":"Vlan7","chip":0},{"name":"Ethernet1","chip":64},{"name":"Ethernet1"}],"fan":1},
"alc":{"acl-sets":{}}})"));
}

TEST(OpenConfigDocument, whatIsNoJson) {
  const auto error = [](const std::string& text) {
    const Config config = readConfigText(text, "t", {InputFormat::openconfig, false, false, {}});
    std::string found = config.readable ? "readable " : "";
    return found + diagnosticsText(config);
  };
  const std::string table = R"T(
{} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets?
[] => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets?
5 => readable 1:1: error: /: the number 5 is no configuration; the document is an object, or a list of acl-sets / 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets?
"x" => readable 1:1: error: /: 'x' is no configuration; the document is an object, or a list of acl-sets / 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets?
{"acl": => 1:8: error: this is no JSON: the text ends too early: a value is needed here: an object, an array, a string in double quotes, a number, true, false or null
{"acl":1 "x":2} => 1:10: error: this is no JSON: '"': a comma or the closing brace of the object is needed here
{"acl" 1} => 1:8: error: this is no JSON: '1': a colon is needed here, between a name and its value
{acl:1} => 1:2: error: this is no JSON: 'a': a name in double quotes is needed here, then a colon and a value
[1 2] => 1:4: error: this is no JSON: '2': a comma or the closing bracket of the array is needed here
[1,] => 1:4: error: this is no JSON: ']': a value is needed here: an object, an array, a string in double quotes, a number, true, false or null
{"a":1,} => 1:8: error: this is no JSON: '}': a name in double quotes is needed here, then a colon and a value
{"a":01} => 1:6: error: this is no JSON: '0': a number does not start with a zero; leave it out
{"a":-} => 1:7: error: this is no JSON: '}': a digit is needed here
{"a":1.} => 1:8: error: this is no JSON: '}': a digit is needed behind the point
{"a":1e} => 1:8: error: this is no JSON: '}': a digit is needed in the exponent
{"a":-0.5e+3} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets?
{"a":tru} => 1:6: error: this is no JSON: 't': a value is needed here: an object, an array, a string in double quotes, a number, true, false or null
{"a":"x => 1:6: error: this is no JSON: '"': this quote has no closing one
{"a":"\x"} => 1:7: error: this is no JSON: '\': behind a backslash stands one of " \ / b f n r t, or u and four hexadecimal digits
{"a":"\u12g4"} => 1:7: error: this is no JSON: '\': behind a backslash stands one of " \ / b f n r t, or u and four hexadecimal digits
{"a":"\ud800"} => 1:7: error: this is no JSON: '\': this is one half of a character; write both halves, or the character itself
{"a":"\udc00"} => 1:7: error: this is no JSON: '\': this is one half of a character; write both halves, or the character itself
{"a":"\ud800\u0041"} => 1:7: error: this is no JSON: '\': this is one half of a character; write both halves, or the character itself
{"a":1}} => 1:8: error: this is no JSON: '}': the value of the text has ended before this; one object, or one array, is the whole text
{"a":1,"b":2,"a":3} => 1:14: error: this is no JSON: 'a': the object has a member of this name already, and only one can be meant; leave one of them out
{"acl":[]} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets? / 1:8: error: /acl: an array stands where an object is needed; write { and }
{"acl":{"acl-sets":[]}} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets? / 1:20: error: /acl/acl-sets: an array stands where an object is needed; write { and }
{"acl-sets":5} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets? / 1:13: error: /acl/acl-sets: the number 5 stands where an object is needed; write { and }
{"acl-set":{}} => readable 1:1: warning: no access list and no interface stands in this document; is it one of the OpenConfig models, with acl, acl-sets or a list of acl-sets? / 1:12: error: /acl/acl-sets/acl-set: an object stands where a list is needed; write [ and ] around its entries
)T";
  EXPECT_EQ(table, regenerated(table, [](const std::string& text) {
              const Config config = readConfigText(text, "t", {InputFormat::openconfig, false, false, {}});
              std::string found = (config.readable ? "readable " : "") + diagnosticsText(config);
              found.pop_back();
              for (size_t at = found.find('\n'); at != std::string::npos; at = found.find('\n'))
                found.replace(at, 1, " / ");
              return found;
            }));
  EXPECT_EQ(
      "3:3: error: this is no JSON: '}': a name in double quotes is needed here, then a colon and a value\n",
      error("{\n\"acl\": {},\n  }"));
  EXPECT_EQ("1:3: error: this is no JSON: '\\x0a': a control character cannot stand in a string; close the "
            "string, or write \\n or \\u000a\n",
            error("[\"\n\"]"));
  EXPECT_EQ("1:3: error: this is no JSON: '\\xff': this octet is no UTF-8; save the file in UTF-8\n",
            error("[\"\xFF\"]"));
  for (const char* const wrong : {"\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\xE0\x80\x80"})
    EXPECT_NE(std::string::npos, error("[\"" + std::string(wrong) + "\"]").find("no UTF-8")) << wrong;
  EXPECT_EQ("1:66: error: this is no JSON: '[': values stand in one another more than 64 deep, which is no "
            "configuration\n",
            error(std::string(100000, '[')));
}

TEST(OpenConfigDocument, textsOfStrings) {
  // Escapes are the characters that they stand for, and a name may be any that can be shown.
  EXPECT_EQ("v4 extended a\"\\/\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E\xC3\xA9\n  10 deny ip any any\n",
            read("[" +
                 setOf(R"(a\"\\\/\u00e9\u20AC\ud834\udd1e)" + std::string("\xC3\xA9"), "ACL_IPV4", anEntry) +
                 "]"));
  EXPECT_EQ(
      "v4 extended B\n  10 deny ip any any\n1:10: error: /acl/acl-sets/acl-set: "
      "'a\\x08\\x0c\\x0a\\x0d\\x09\\x01': a name with a control character cannot be shown; write another\n",
      read("[" + setOf(R"(a\b\f\n\r\t\u0001)", "ACL_IPV4", anEntry) + "," + setOf("B", "ACL_IPV4", anEntry) +
           "]"));
}

TEST(OpenConfigDocument, realDocuments) {
  const auto shared = test::sharedData();
  if (!shared || !std::filesystem::is_directory(*shared / "openconfig"))
    GTEST_SKIP() << test::noSharedData;
  std::string text;
  for (const char* const name : {"01-update-identityref", "02-deny-subnets-bound", "03-two-sets-two-ports",
                                 "04-compiled-inet", "05-compiled-mixed", "06-port-ranges-established"}) {
    const Config config = readConfig(*shared / "openconfig" / (std::string(name) + ".json"));
    text += name;
    for (const AccessList& list : config.lists)
      text += " " + std::to_string(list.rules.size()) + (list.hasErrors ? "!" : "");
    size_t errors = 0;
    for (const Diagnostic& diagnostic : config.diagnostics)
      errors += diagnostic.severity == Severity::error ? 1 : 0;
    text += ", " + std::to_string(errors) + " errors\n";
  }
  EXPECT_EQ("01-update-identityref 5, 0 errors\n"
            "02-deny-subnets-bound 10, 0 errors\n"
            "03-two-sets-two-ports 0! 0!, 10 errors\n"
            "04-compiled-inet 55, 0 errors\n"
            "05-compiled-mixed 56 16, 0 errors\n"
            "06-port-ranges-established 2 1 1, 0 errors\n",
            text);
}

} // namespace
