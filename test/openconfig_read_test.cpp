#include "test/ConfigSummary.h"

#include <gtest/gtest.h>

// What becomes of entries of OpenConfig documents: every construct, and every refusal with its place.

namespace {

using namespace agent;

const std::string actions = R"(,"actions":{"config":{"forwarding-action":"ACCEPT"}})";

// A document with one entry in one set, which is applied to one port. The entry stands in line 2.
std::string documentOf(const std::string& type, const std::string& body) {
  const std::string own = body.find("\"actions\"") == std::string::npos ? actions : "";
  return R"({"openconfig-acl:acl":{"acl-sets":{"acl-set":[{"name":"A","type":")" + type +
         R"(","acl-entries":{"acl-entry":[)" + "\n" + R"({"sequence-id":10)" + (body.empty() ? "" : ",") +
         body + own + "}\n" + R"(]}}]},"interfaces":{"interface":[{"id":"Ethernet1","ingress-acl-sets":)" +
         R"({"ingress-acl-set":[{"set-name":"A","type":")" + type + R"("}]}}]}},
"defined-sets":{"ipv4-prefix-sets":{"ipv4-prefix-set":[
{"name":"NETS","config":{"name":"NETS","prefix":["10.0.0.0/8","192.168.1.0/24"]}},
{"name":"HOSTS","prefix":["10.0.0.1/32","10.0.0.2/32"]},
{"name":"WRONG","prefix":["10.0.0.1",7]},{"name":"any","prefix":["10.0.0.1/32"]},
{"name":"NONE","prefix":[]},
{"name":"TWICE","prefix":["10.0.0.1/32"]},{"name":"TWICE","prefix":["10.0.0.1/32"]},
{"name":"EXTRA","mode":"IPV4","prefix":["10.0.0.1/32"]}]},
"ipv6-prefix-sets":{"ipv6-prefix-set":[{"name":"NETS","prefix":["2001:db8::/32","2001:db9::/32"]},
{"name":"WRONG","prefix":["10.0.0.0/8"]}]},
"port-sets":{"port-set":[{"name":"WEB","port":[80,"8000..8099",443]},{"name":"WRONG","port":["http"]},
{"name":"ALL","port":["ANY"]}]}}})";
}

// The alternatives of the entry, then its diagnostics with their columns and the ends of their paths.
std::string entryOf(const std::string& type, const std::string& body) {
  const Config config = readConfigText(documentOf(type, body), "t");
  std::string text;
  for (const AccessList& list : config.lists)
    for (const Rule& rule : list.rules)
      for (const Criteria& criteria : rule.alternatives)
        text += (text.empty() ? "" : " | ") + std::string(rule.permit ? "permit " : "deny ") +
                describe(criteria, list.family) + (rule.log ? " log" : "");
  for (const Diagnostic& diagnostic : config.diagnostics) {
    std::string message = diagnostic.message;
    const std::string above = "/acl/acl-sets/acl-set[name=A][type=" + type + "]/acl-entries/";
    if (message.starts_with(above))
      message = message.substr(above.size());
    const std::string entry = "acl-entry[sequence-id=10]";
    if (message.starts_with(entry))
      message = "." + message.substr(entry.size());
    text += (text.empty() ? "[" : " [") +
            (diagnostic.loc.line == 2 ? "" : std::to_string(diagnostic.loc.line) + ":") +
            std::to_string(diagnostic.loc.column) +
            (diagnostic.severity == Severity::error ? " error " : " warning ") + message + "]";
  }
  return text;
}

std::string v4(const std::string& body) {
  return entryOf("ACL_IPV4", body);
}
std::string v6(const std::string& body) {
  return entryOf("ACL_IPV6", body);
}
std::string l2(const std::string& body) {
  return entryOf("ACL_L2", body);
}

void expectTable(const std::string& table, std::string (*output)(const std::string&)) {
  EXPECT_EQ(table, configtest::regenerated(table, output));
}

TEST(OpenConfigEntry, whatAnIpv4EntryMatches) {
  const std::string table = R"T(
"config":{"sequence-id":10,"description":"x"} => permit ip any any
"ipv4":{"config":{"source-address":"10.0.0.0/8","destination-address":"10.1.2.3/32"}} => permit ip 10.0.0.0 0.255.255.255 host 10.1.2.3
"ipv4":{"config":{"source-address":"10.1.2.3/8","destination-address":"0.0.0.0/0"}} => permit ip 10.0.0.0 0.255.255.255 any
"ipv4":{"source-address":"10.0.0.0/8"} => permit ip 10.0.0.0 0.255.255.255 any
"ipv4":{"source-address":"10.0.0.0/8","config":{"source-address":"10.0.0.0/8","protocol":17},"state":{"protocol":6}} => permit udp 10.0.0.0 0.255.255.255 any
"openconfig-acl:ipv4":{"openconfig-acl:config":{"openconfig-acl:protocol":"openconfig-packet-match-types:IP_TCP"}} => permit tcp any any
"@ipv4":{"a:b":true},"ipv4":{"@protocol":{"a:b":1},"protocol":"oc-pkt-match-types:IP_UDP"} => permit udp any any
"ipv4":{"config":{"protocol":"IP_TCP"}} => permit tcp any any
"ipv4":{"config":{"protocol":"IP_UDP"}} => permit udp any any
"ipv4":{"config":{"protocol":"IP_ICMP"}} => permit icmp any any
"ipv4":{"config":{"protocol":"IP_IGMP"}} => permit 2 any any
"ipv4":{"config":{"protocol":"IP_GRE"}} => permit 47 any any
"ipv4":{"config":{"protocol":"IP_AUTH"}} => permit 51 any any
"ipv4":{"config":{"protocol":"IP_PIM"}} => permit 103 any any
"ipv4":{"config":{"protocol":"IP_RSVP"}} => permit 46 any any
"ipv4":{"config":{"protocol":"IP_L2TP"}} => permit 115 any any
"ipv4":{"config":{"protocol":"IP_IN_IP"}} => permit 4 any any
"ipv4":{"config":{"protocol":132}} => permit sctp any any
"ipv4":{"config":{"protocol":"89"}} => permit 89 any any
"ipv4":{"config":{"protocol":255}} => permit 255 any any
"ipv4":{"config":{"hop-limit":1}} => permit ip any any ttl eq 1
"ipv4":{"config":{"hop-limit":"255"}} => permit ip any any ttl eq 255
"ipv4":{"config":{"dscp-set":[]}} => permit ip any any
"ipv4":{"config":{"source-address-prefix-set":"NETS"}} => permit ip 10.0.0.0 0.255.255.255 any | permit ip 192.168.1.0 0.0.0.255 any
"ipv4":{"config":{"source-address-prefix-set":"NETS","destination-address-prefix-set":"HOSTS","protocol":6}},"transport":{"config":{"destination-port":22}} => permit tcp 10.0.0.0 0.255.255.255 host 10.0.0.1 eq 22 | permit tcp 10.0.0.0 0.255.255.255 host 10.0.0.2 eq 22 | permit tcp 192.168.1.0 0.0.0.255 host 10.0.0.1 eq 22 | permit tcp 192.168.1.0 0.0.0.255 host 10.0.0.2 eq 22
"ipv4":{"protocol":1,"icmpv4":{"config":{"type":"ECHO"}}} => permit icmp any any 8
"ipv4":{"config":{"protocol":"IP_ICMP"},"icmpv4":{"config":{"type":"openconfig-icmpv4-types:DST_UNREACHABLE","code":4}}} => permit icmp any any 3 4
"ipv4":{"protocol":1,"icmpv4":{"type":200,"code":"7"}} => permit icmp any any 200 7
"ipv4":{"protocol":1,"icmpv4":{}} => permit icmp any any
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"destination-port":80}} => permit tcp any any eq 80
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":"1024..65535","destination-port":"22"}} => permit tcp any range 1024 65535 any eq 22
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":"ANY","destination-port":"0..65535"}} => permit tcp any any
"transport":{"config":{"source-port":"ANY"}} => permit ip any any
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port-set":"WEB","destination-port-set":"ALL"}} => permit tcp any {80-80,443-443,8000-8099} any
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"BUILTIN","builtin-detail":"TCP_ESTABLISHED"}} => permit tcp any any established
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"builtin-detail":"TCP_ESTABLISHED"}} => permit tcp any any established
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"EXPLICIT","explicit-detail-match-mode":"ANY","explicit-tcp-flags":["TCP_RST","openconfig-packet-match-types:TCP_ACK"]}} => permit tcp any any established
"transport":{"config":{"detail-mode":"BUILTIN","builtin-detail":"FRAGMENT"}} => permit ip any any fragments
"l2":{},"ipv6":{"config":{}},"mpls":{"config":{}},"input-interface":{} => permit ip any any
)T";
  expectTable(table, v4);
}

TEST(OpenConfigEntry, whatAnIpv4EntryCannotSay) {
  const std::string table = R"T(
"ipv4":{"config":{"source-address":"10.0.0.1"}} => [54 error ./ipv4/config/source-address: '10.0.0.1' is no IPv4 prefix; write address and length, like "10.0.0.0/8", and a single address with /32]
"ipv4":{"config":{"source-address":"10.0.0.0/33"}} => [54 error ./ipv4/config/source-address: '10.0.0.0/33' is no IPv4 prefix; write address and length, like "10.0.0.0/8", and a single address with /32]
"ipv4":{"config":{"source-address":"2001:db8::/32"}} => [54 error ./ipv4/config/source-address: '2001:db8::/32' is no IPv4 prefix; write address and length, like "10.0.0.0/8", and a single address with /32]
"ipv4":{"config":{"source-address":167772160}} => [54 error ./ipv4/config/source-address: the number 167772160 stands where a prefix is needed; write it in double quotes]
"ipv4":{"config":{"destination-address":""}} => [59 error ./ipv4/config/destination-address: the string is empty, and a prefix is needed here]
"ipv4":{"config":{"destination-address":null}} => [59 error ./ipv4/config/destination-address: null stands where a prefix is needed; write it in double quotes]
"ipv4":{"config":{"source-address":"10.0.0.0/8","source-address-prefix-set":"NETS"}} => [95 error ./ipv4/config/source-address-prefix-set: the entry has a source-address as well, and only one can be meant; leave one of them out]
"ipv4":{"config":{"source-address-prefix-set":"NET"}} => [65 error ./ipv4/config/source-address-prefix-set: /defined-sets/ipv4-prefix-sets of the document has no set 'NET'; define it there, or write the values into the entry; did you mean 'NETS'?]
"ipv4":{"config":{"source-address-prefix-set":"WRONG"}} => [65 error ./ipv4/config/source-address-prefix-set: the set 'WRONG' cannot be used, because something is wrong in it; mend it] [7:27 error /defined-sets/ipv4-prefix-sets/ipv4-prefix-set[name=WRONG]/prefix: '10.0.0.1' is no prefix; write an IPv4 prefix, like "10.0.0.0/8"] [7:38 error /defined-sets/ipv4-prefix-sets/ipv4-prefix-set[name=WRONG]/prefix: the number 7 is no prefix; write an IPv4 prefix, like "10.0.0.0/8"]
"ipv4":{"config":{"source-address-prefix-set":"NONE"}} => [65 error ./ipv4/config/source-address-prefix-set: the set 'NONE' cannot be used, because something is wrong in it; mend it] [8:1 error /defined-sets/ipv4-prefix-sets/ipv4-prefix-set[name=NONE]: the set is empty, and what no packet meets cannot be compared; give it an IPv4 prefix in a list 'prefix']
"ipv4":{"config":{"source-address-prefix-set":"TWICE"}} => [65 error ./ipv4/config/source-address-prefix-set: the set 'TWICE' cannot be used, because something is wrong in it; mend it] [9:1 error /defined-sets/ipv4-prefix-sets/ipv4-prefix-set[name=TWICE]: another set has this name too, and only one can be meant; rename one]
"ipv4":{"config":{"source-address-prefix-set":"EXTRA"}} => [65 error ./ipv4/config/source-address-prefix-set: the set 'EXTRA' cannot be used, because something is wrong in it; mend it] [10:24 error /defined-sets/ipv4-prefix-sets/ipv4-prefix-set[name=EXTRA]/mode: this is not known here, and without it the set may mean something else; leave it out]
"ipv4":{"config":{"source-address-prefix-set":["NETS"]}} => [65 error ./ipv4/config/source-address-prefix-set: an array stands where the name of a set is needed; write it in double quotes]
"ipv4":{"config":{"protocol":0}} => [48 error ./ipv4/config/protocol: protocol 0 cannot be a criterion, because a row takes it for any protocol; leave the leaf out when every packet is meant]
"ipv4":{"config":{"protocol":256}} => [48 error ./ipv4/config/protocol: the number 256 is no protocol that is known here; write its number, or an identity like IP_TCP]
"ipv4":{"config":{"protocol":6.0}} => [48 error ./ipv4/config/protocol: the number 6.0 is no protocol that is known here; write its number, or an identity like IP_TCP]
"ipv4":{"config":{"protocol":"TCP"}} => [48 error ./ipv4/config/protocol: 'TCP' is no protocol that is known here; write its number, or an identity like IP_TCP]
"ipv4":{"config":{"protocol":"IP_TPC"}} => [48 error ./ipv4/config/protocol: 'IP_TPC' is no protocol that is known here; write its number, or an identity like IP_TCP; did you mean 'IP_TCP'?]
"ipv4":{"config":{"protocol":"other:IP_TCP"}} => [48 error ./ipv4/config/protocol: 'other:IP_TCP' is no protocol that is known here; write its number, or an identity like IP_TCP]
"ipv4":{"config":{"protocol":[6]}} => [48 error ./ipv4/config/protocol: an array is no protocol that is known here; write its number, or an identity like IP_TCP]
"ipv4":{"config":{"hop-limit":256}} => [49 error ./ipv4/config/hop-limit: the number 256 stands where a time to live is needed, a whole number from 0 to 255]
"ipv4":{"config":{"hop-limit":true}} => [49 error ./ipv4/config/hop-limit: true stands where a time to live is needed, a whole number from 0 to 255]
"ipv4":{"config":{"dscp":1}} => [44 error ./ipv4/config/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports]
"ipv4":{"config":{"dscp-set":[1,2]}} => [48 error ./ipv4/config/dscp-set: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports]
"ipv4":{"config":{"length":64}} => [46 error ./ipv4/config/length: a row does not see the length of a packet; leave the leaf out]
"ipv4":{"config":{"source-adress":"10.0.0.0/8"}} => [53 error ./ipv4/config/source-adress: this is no leaf of ipv4 that is known here, and the entry would match more packets without it; leave it out or correct it; did you mean 'source-address'?]
"ipv4":{"config":{"tos":4}} => [43 error ./ipv4/config/tos: this is no leaf of ipv4 that is known here, and the entry would match more packets without it; leave it out or correct it]
"ipv4":{"config":{"other:protocol":6}} => [54 error ./ipv4/config/other:protocol: this is no leaf of ipv4 that is known here, and the entry would match more packets without it; leave it out or correct it]
"ipv4":{"protocol":6,"config":{"protocol":17}} => [61 error ./ipv4/config/protocol: the number 17 stands here and the number 6 at /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=10]/ipv4/protocol; only one can be meant, make them equal]
"ipv4":[] => [26 error ./ipv4: an array stands where an object is needed; write { and }]
"ipv4":{"config":"x"} => [36 error ./ipv4/config: 'x' stands where an object is needed; write { and }]
"ipv4":{"protocol":6,"icmpv4":{"type":8}} => [49 error ./ipv4/icmpv4: only ICMP has these message types; write the protocol IP_ICMP, or leave the container out]
"ipv4":{"icmpv4":{"type":8}} => [36 error ./ipv4/icmpv4: only ICMP has these message types; write the protocol IP_ICMP, or leave the container out]
"ipv4":{"protocol":1,"icmpv4":{"code":4}} => [57 error ./ipv4/icmpv4/code: a code is compared only together with its type; write the type as well]
"ipv4":{"protocol":1,"icmpv4":{"type":"ECO"}} => [57 error ./ipv4/icmpv4/type: 'ECO' is no message type that is known here; write its number, from 0 to 255, or an identity like ECHO; did you mean 'ECHO'?]
"ipv4":{"protocol":1,"icmpv4":{"type":256}} => [57 error ./ipv4/icmpv4/type: the number 256 is no message type that is known here; write its number, from 0 to 255, or an identity like ECHO]
"ipv4":{"protocol":1,"icmpv4":{"type":3,"code":"NET"}} => [66 error ./ipv4/icmpv4/code: 'NET' is no code that is known here; write its number, from 0 to 255]
"ipv4":{"protocol":1,"icmpv4":{"type":3,"id":1}} => [64 error ./ipv4/icmpv4/id: only type and code of a message are compared; leave this out]
"transport":{"config":{"source-port":80}} => [56 error ./transport/config/source-port: the entry compares ports and does not say of which protocol; write the protocol IP_TCP, IP_UDP or 132 (SCTP), with an entry for each, or leave the ports out]
"ipv4":{"config":{"protocol":47}},"transport":{"config":{"destination-port":80}} => [95 error ./transport/config/destination-port: protocol 47 has no ports; write the protocol IP_TCP, IP_UDP or 132 (SCTP), with an entry for each, or leave the ports out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":65536}} => [89 error ./transport/config/source-port: the number 65536 is no port; write a number from 0 to 65535, a range like "100..200" or "ANY"]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":"http"}} => [89 error ./transport/config/source-port: 'http' is no port; write a number from 0 to 65535, a range like "100..200" or "ANY"]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":"200..100"}} => [89 error ./transport/config/source-port: the range '200..100' runs backwards; write the lower port first]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":"100-200"}} => [89 error ./transport/config/source-port: '100-200' is no port; write a number from 0 to 65535, a range like "100..200" or "ANY"]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port":80,"source-port-set":"WEB"}} => [110 error ./transport/config/source-port-set: the entry has a source-port as well, and only one can be meant; leave one of them out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port-set":"WRONG"}} => [93 error ./transport/config/source-port-set: the set 'WRONG' cannot be used, because something is wrong in it; mend it] [13:94 error /defined-sets/port-sets/port-set[name=WRONG]/port: 'http' is no port; write a number from 0 to 65535, a range like "100..200" or "ANY"]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"source-port-set":"WEEB"}} => [93 error ./transport/config/source-port-set: /defined-sets/port-sets of the document has no set 'WEEB'; define it there, or write the values into the entry; did you mean 'WEB'?]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"dest-port":80}} => [87 error ./transport/config/dest-port: this is no leaf of transport that is known here, and the entry would match more packets without it; leave it out or correct it]
"transport":{"config":{"builtin-detail":"TCP_ESTABLISHED"}} => [59 error ./transport/config/builtin-detail: only TCP connections are established; write the protocol IP_TCP, or leave the detail out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"builtin-detail":"TCP_INITIAL"}} => [92 error ./transport/config/builtin-detail: a row can compare TCP flags only as established (ACK or RST is set); write the builtin-detail TCP_ESTABLISHED, or match by addresses and ports]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"builtin-detail":"TCP_OPEN"}} => [92 error ./transport/config/builtin-detail: 'TCP_OPEN' is no detail that is known here; write TCP_ESTABLISHED or FRAGMENT]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"BUILTIN"}} => [89 error ./transport/config/detail-mode: the entry says that it compares details, but not which; write the builtin-detail, or leave this out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"FLAGS"}} => [89 error ./transport/config/detail-mode: 'FLAGS' is no mode; write BUILTIN or EXPLICIT]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"explicit-detail-match-mode":"ANY"}} => [104 error ./transport/config/explicit-detail-match-mode: the entry says that it compares details, but not which; write the builtin-detail, or leave this out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"EXPLICIT","builtin-detail":"TCP_ESTABLISHED"}} => [117 error ./transport/config/builtin-detail: the entry has explicit details as well, and only one of the two can be meant; leave one out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"BUILTIN","explicit-tcp-flags":["TCP_ACK"]}} => [120 error ./transport/config/explicit-tcp-flags: the detail-mode is BUILTIN, and flags are explicit; write the detail-mode EXPLICIT, or leave the flags out]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"EXPLICIT","explicit-detail-match-mode":"ALL","explicit-tcp-flags":["TCP_ACK","TCP_RST"]}} => [156 error ./transport/config/explicit-tcp-flags: a row can compare TCP flags only as established (ACK or RST is set); write the builtin-detail TCP_ESTABLISHED, or match by addresses and ports; ANY of the flags TCP_ACK and TCP_RST says the same]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"detail-mode":"EXPLICIT","explicit-detail-match-mode":"ANY","explicit-tcp-flags":["TCP_SYN"]}} => [156 error ./transport/config/explicit-tcp-flags: a row can compare TCP flags only as established (ACK or RST is set); write the builtin-detail TCP_ESTABLISHED, or match by addresses and ports; ANY of the flags TCP_ACK and TCP_RST says the same]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"explicit-tcp-flags":["TCP_ACK","TCP_RST"]}} => [96 error ./transport/config/explicit-tcp-flags: a row can compare TCP flags only as established (ACK or RST is set); write the builtin-detail TCP_ESTABLISHED, or match by addresses and ports; ANY of the flags TCP_ACK and TCP_RST says the same]
"ipv4":{"config":{"protocol":6}},"transport":{"config":{"destination-port":80,"builtin-detail":"FRAGMENT"}} => [114 error ./transport/config/builtin-detail: a row tells the fragments behind the first one, and those carry no ports; leave one of the two out]
"ipv4":{"protocol":1,"icmpv4":{"type":8}},"transport":{"config":{"builtin-detail":"FRAGMENT"}} => [101 error ./transport/config/builtin-detail: a row tells the fragments behind the first one, and those carry no ICMP type; leave one of the two out]
"l2":{"config":{"ethertype":2048}} => [24 error ./l2: a row compares either MAC addresses and the EtherType or what is in the IP packet, and this stands in a set of type ACL_IPV4; move the entry to a set of type ACL_L2]
"ipv6":{"config":{"protocol":6}} => [26 error ./ipv6: no packet is IPv4 and IPv6 at once, and this stands in a set of type ACL_IPV4; leave the container out, or move the entry to a set of its type]
"mpls":{"config":{"traffic-class":1}} => [26 error ./mpls: a row does not compare MPLS labels; leave the container out]
"input-interface":{"interface-ref":{"config":{"interface":"Ethernet1"}}} => [37 error ./input-interface: a row does not compare the interface that a packet came in by; apply the set at this interface in /acl/interfaces instead]
"ipv5":{} => [26 error ./ipv5: this is no container of an entry that is known here, and the entry would match more packets without it; leave it out or correct it; did you mean 'ipv6'?]
"transprot":{"config":{"destination-port":80}} => [31 error ./transprot: this is no container of an entry that is known here, and the entry would match more packets without it; leave it out or correct it; did you mean 'transport'?]
)T";
  expectTable(table, v4);
}

TEST(OpenConfigEntry, actions) {
  const std::string table = R"T(
"actions":{"config":{"forwarding-action":"ACCEPT"}} => permit ip any any
"actions":{"config":{"forwarding-action":"openconfig-acl:DROP"}} => deny ip any any
"actions":{"config":{"forwarding-action":"REJECT"}} => deny ip any any [60 warning ./actions/config/forwarding-action: a row drops the packet and sends no answer, so that REJECT is read as DROP; write DROP]
"actions":{"forwarding-action":"DROP","log-action":"LOG_SYSLOG"} => deny ip any any log
"actions":{"config":{"forwarding-action":"ACCEPT","log-action":"openconfig-acl:LOG_NONE"}} => permit ip any any
"actions":{"config":{"forwarding-action":"PERMIT"}} => [60 error ./actions/config/forwarding-action: 'PERMIT' is no action of an entry; write ACCEPT, DROP or REJECT]
"actions":{"config":{"forwarding-action":1}} => [60 error ./actions/config/forwarding-action: the number 1 is no action of an entry; write ACCEPT, DROP or REJECT]
"actions":{"config":{}} => [29 error ./actions: the forwarding-action is missing; write ACCEPT or DROP]
"actions":null => [29 error ./actions: null stands where an object is needed; write { and }]
"actions":{"config":{"forwarding-action":"ACCEPT","log-action":"LOG_ALL"}} => [82 error ./actions/config/log-action: 'LOG_ALL' is no way of logging; write LOG_SYSLOG or LOG_NONE]
"actions":{"config":{"forwarding-action":"ACCEPT","redirect":"x"}} => [80 error ./actions/config/redirect: a row permits or denies, and can be logged, but does nothing else with a packet; leave this out]
"actions":{"config":{"forwarding-action":"DROP"}},"transport":{"config":{"builtin-detail":"FRAGMENT"}} => deny ip any any fragments [109 warning ./transport/config/builtin-detail: a row tells the fragments behind the first one only, so that this entry does not drop the first fragment of a packet; write an entry for that by addresses, protocol and ports where it matters]
)T";
  expectTable(table, v4);
}

TEST(OpenConfigEntry, ipv6) {
  const std::string table = R"T(
"ipv6":{"config":{"source-address":"2001:db8::/32","destination-address":"::1/128","protocol":58}} => permit icmp 2001:db8::/32 host ::1
"ipv6":{"config":{"source-address-prefix-set":"NETS"}} => permit ipv6 2001:db8::/32 any | permit ipv6 2001:db9::/32 any
"ipv6":{"protocol":58,"icmpv6":{"config":{"type":"openconfig-icmpv6-types:ECHO_REQUEST"}}} => permit icmp any any 128
"ipv6":{"protocol":58,"icmpv6":{"type":135,"code":0}} => permit icmp any any 135 0
"ipv6":{"config":{"protocol":"IP_TCP"}},"transport":{"config":{"destination-port":443}} => permit tcp any any eq 443
"ipv6":{"config":{"protocol":1}} => permit 1 any any
"ipv6":{"config":{"protocol":"IP_ICMP"}} => [48 error ./ipv6/config/protocol: IP_ICMP is protocol 1, which does not occur in IPv6; write 58 for ICMPv6, or the number 1 when that is meant]
"ipv6":{"config":{"source-address":"10.0.0.0/8"}} => [54 error ./ipv6/config/source-address: '10.0.0.0/8' is no IPv6 prefix; write address and length, like "2001:db8::/32", and a single address with /128]
"ipv6":{"config":{"source-address":"2001:db8::/129"}} => [54 error ./ipv6/config/source-address: '2001:db8::/129' is no IPv6 prefix; write address and length, like "2001:db8::/32", and a single address with /128]
"ipv6":{"config":{"source-address-prefix-set":"WRONG"}} => [65 error ./ipv6/config/source-address-prefix-set: the set 'WRONG' cannot be used, because something is wrong in it; mend it] [12:27 error /defined-sets/ipv6-prefix-sets/ipv6-prefix-set[name=WRONG]/prefix: '10.0.0.0/8' is no prefix; write an IPv6 prefix, like "2001:db8::/32"]
"ipv6":{"config":{"source-address-prefix-set":"HOSTS"}} => [65 error ./ipv6/config/source-address-prefix-set: /defined-sets/ipv6-prefix-sets of the document has no set 'HOSTS'; define it there, or write the values into the entry]
"ipv6":{"config":{"hop-limit":1}} => [49 error ./ipv6/config/hop-limit: a row does not compare the IPv6 hop limit; leave the leaf out]
"ipv6":{"config":{"dscp":0}} => [44 error ./ipv6/config/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports]
"ipv6":{"config":{"source-flow-label":1,"destination-flow-label":2}} => [57 error ./ipv6/config/source-flow-label: a row does not compare the IPv6 flow label; leave the leaf out] [84 error ./ipv6/config/destination-flow-label: a row does not compare the IPv6 flow label; leave the leaf out]
"ipv6":{"protocol":58,"icmpv4":{"type":8}} => [50 error ./ipv6/icmpv4: this is no leaf of ipv6 that is known here, and the entry would match more packets without it; leave it out or correct it; did you mean 'icmpv6'?]
"ipv6":{"protocol":58,"icmpv6":{"type":"ECHO"}} => [58 error ./ipv6/icmpv6/type: 'ECHO' is no message type that is known here; write its number, from 0 to 255, or an identity like ECHO_REQUEST]
"ipv6":{"protocol":6,"icmpv6":{"type":128}} => [49 error ./ipv6/icmpv6: only ICMPv6 has these message types; write the protocol 58, or leave the container out]
"transport":{"config":{"builtin-detail":"FRAGMENT"}} => [59 error ./transport/config/builtin-detail: a row does not see whether an IPv6 packet is a fragment; leave the detail out]
"ipv4":{"config":{"protocol":6}} => [26 error ./ipv4: no packet is IPv6 and IPv4 at once, and this stands in a set of type ACL_IPV6; leave the container out, or move the entry to a set of its type]
)T";
  expectTable(table, v6);
}

TEST(OpenConfigEntry, l2) {
  const std::string table = R"T(
"l2":{} => permit any any
"l2":{"config":{"source-mac":"02:00:5e:00:0b:ad"}} => permit host 0200.5e00.0bad any
"l2":{"config":{"destination-mac":"01:80:c2:00:00:00","destination-mac-mask":"ff:ff:ff:00:00:00"}} => permit any 0180.c200.0000 0000.00ff.ffff
"l2":{"config":{"source-mac":"0200.5e00.0bad","source-mac-mask":"00:00:00:00:00:00"}} => permit any any
"l2":{"config":{"ethertype":"openconfig-packet-match-types:ETHERTYPE_ARP"}} => permit any any 0x0806
"l2":{"config":{"ethertype":34958}} => permit any any 0x888E
"l2":{"config":{"ethertype":"0x88cc"}} => permit any any 0x88CC
"l2":{"config":{"source-mac":"02:00:5e:00:0b"}} => [48 error ./l2/config/source-mac: '02:00:5e:00:0b' is no MAC address; write it like "aa:bb:cc:dd:ee:ff"]
"l2":{"config":{"source-mac":7}} => [48 error ./l2/config/source-mac: the number 7 is no MAC address; write it like "aa:bb:cc:dd:ee:ff"]
"l2":{"config":{"source-mac-mask":"ff:ff:ff:00:00:00"}} => [53 error ./l2/config/source-mac-mask: the mask stands without an address; write the source-mac, or leave the mask out]
"l2":{"config":{"source-mac":"02:00:5e:00:0b:ad","source-mac-mask":"ff"}} => [86 error ./l2/config/source-mac-mask: 'ff' is no mask of a MAC address; write it like "ff:ff:ff:00:00:00", where bits of 1 are compared]
"l2":{"config":{"ethertype":1535}} => [47 error ./l2/config/ethertype: EtherTypes start at 1536, and smaller numbers are lengths of frames; write a number from 1536 to 65535]
"l2":{"config":{"ethertype":65536}} => [47 error ./l2/config/ethertype: the number 65536 is no EtherType that is known here; write its number, from 1536 to 65535, or an identity like ETHERTYPE_ARP]
"l2":{"config":{"ethertype":"ETHERTYPE_IP"}} => [47 error ./l2/config/ethertype: 'ETHERTYPE_IP' is no EtherType that is known here; write its number, from 1536 to 65535, or an identity like ETHERTYPE_ARP; did you mean 'ETHERTYPE_IPV4'?]
"l2":{"config":{"ethertype":[2048]}} => [47 error ./l2/config/ethertype: an array is no EtherType that is known here; write its number, from 1536 to 65535, or an identity like ETHERTYPE_ARP]
"l2":{"config":{"vlan":10}} => [42 error ./l2/config/vlan: this is no leaf of l2 that is known here, and the entry would match more frames without it; leave it out or correct it]
"ipv4":{"config":{"protocol":6}} => [26 error ./ipv4: a row compares either MAC addresses and the EtherType or what is in the IP packet, and this stands in a set of type ACL_L2; move the entry to a set of type ACL_IPV4 or ACL_IPV6]
"transport":{"config":{"destination-port":80}} => [31 error ./transport: a row compares either MAC addresses and the EtherType or what is in the IP packet, and this stands in a set of type ACL_L2; move the entry to a set of type ACL_IPV4 or ACL_IPV6]
)T";
  expectTable(table, l2);
}

// How the tool names an entry: in the words of configuration text.
TEST(OpenConfigEntry, textOfARule) {
  const auto textOf = [](const std::string& type, const std::string& body) {
    return readConfigText(documentOf(type, body), "t").lists.at(0).rules[0].text;
  };
  EXPECT_EQ("permit ip any any", textOf("ACL_IPV4", ""));
  EXPECT_EQ("permit tcp prefix-set NETS host 10.0.0.1 eq 22",
            textOf("ACL_IPV4",
                   R"("ipv4":{"protocol":6,"source-address-prefix-set":"NETS",)"
                   R"("destination-address":"10.0.0.1/32"},"transport":{"destination-port":22})"));
  EXPECT_EQ("deny udp 10.0.0.0 0.255.255.255 eq 53 prefix-set any log",
            textOf("ACL_IPV4", R"("ipv4":{"protocol":17,"source-address":"10.0.0.0/8",)"
                               R"("destination-address-prefix-set":"any"},"transport":{"source-port":53},)"
                               R"("actions":{"forwarding-action":"DROP","log-action":"LOG_SYSLOG"})"));
  EXPECT_EQ("permit ipv6 prefix-set NETS any",
            textOf("ACL_IPV6", R"("ipv6":{"source-address-prefix-set":"NETS"})"));
  EXPECT_EQ("permit host 0200.0000.0001 any 0x0806",
            textOf("ACL_L2", R"("l2":{"source-mac":"02:00:00:00:00:01","ethertype":2054})"));
}

} // namespace
