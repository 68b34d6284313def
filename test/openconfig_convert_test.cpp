#include "test/LongRuns.h"
#include "tool/Convert.h"

#include "agent/config/OpenConfigText.h"
#include "fuzz/ConfigGrammar.h"
#include "test/Random.h"
#include "test/Shared.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

// Conversions both ways: what is written says the same, packet by packet, and what cannot be said is named.

namespace {

using namespace agent;
using tool::convert;
using tool::Converted;

std::string lines(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts)
    all += text + "\n";
  return all;
}

// Losses and notes of a conversion.
std::string said(const Converted& converted) {
  return lines(converted.losses) + (converted.notes.empty() ? "" : "notes\n") + lines(converted.notes);
}

Config read(const std::string& text, const char* file = "t") {
  return readConfigText(text, file);
}

std::string losses(const std::string& text, InputFormat target = InputFormat::openconfig) {
  return said(convert(read(text), target));
}

// From text into a document, and from that into text again: nothing gets lost on either way.
void expectThereAndBack(const Config& config, const std::string& what) {
  const Converted document = convert(config, InputFormat::openconfig);
  ASSERT_EQ("", lines(document.losses)) << what;
  const Config again = read(document.text);
  EXPECT_FALSE(again.hasErrors()) << what << document.text;
  EXPECT_EQ("", tool::difference(config, again)) << what << document.text;
  const Converted text = convert(again, InputFormat::cli);
  ASSERT_EQ("", lines(text.losses)) << what << document.text;
  EXPECT_EQ("", tool::difference(config, read(text.text))) << what << text.text;
}

TEST(OpenConfigConvert, theCampusExample) {
  const std::string folder = std::string(XPACL_SOURCE_DIR) + "/examples/";
  const Config text = readConfig(folder + "campus.conf");
  expectThereAndBack(text, "campus");
  // The shipped document is what convert makes of it.
  EXPECT_EQ("", tool::difference(text, readConfig(folder + "campus.openconfig.json")));
}

TEST(OpenConfigConvert, whatIsWritten) {
  const Config config = read(R"(hardware tcam ingressV4 512
vlan 10
object-group network NET
 10.0.0.0/8
 host 192.0.2.1
ip access-list extended A
 10 permit tcp object-group NET any eq 80 443 log
 20 deny icmp any host 10.0.0.1 8
ipv6 access-list B
 10 permit 58 2001:db8::/32 any 135 0
mac access-list extended C
 10 deny host 0200.5e00.0bad 0200.0000.0000 0000.00ff.ffff 0x0806
interface Ethernet1
 switchport access vlan 10
 ip access-group A in
 mac access-group C in
interface Vlan10
 ipv6 traffic-filter B out
)");
  std::vector<std::string> lost;
  std::vector<std::string> notes;
  const std::string expected = R"T({
  "openconfig-acl:acl": {
    "acl-sets": {
      "acl-set": [
        {
          "name": "A",
          "type": "openconfig-acl:ACL_IPV4",
          "config": {
            "name": "A",
            "type": "openconfig-acl:ACL_IPV4"
          },
          "acl-entries": {
            "acl-entry": [
              {
                "sequence-id": 10,
                "config": {
                  "sequence-id": 10
                },
                "ipv4": {
                  "config": {
                    "source-address-prefix-set": "prefixes-v4-1",
                    "protocol": "openconfig-packet-match-types:IP_TCP"
                  }
                },
                "transport": {
                  "config": {
                    "destination-port-set": "ports-1"
                  }
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:ACCEPT",
                    "log-action": "openconfig-acl:LOG_SYSLOG"
                  }
                }
              },
              {
                "sequence-id": 20,
                "config": {
                  "sequence-id": 20
                },
                "ipv4": {
                  "config": {
                    "destination-address": "10.0.0.1/32",
                    "protocol": "openconfig-packet-match-types:IP_ICMP"
                  },
                  "icmpv4": {
                    "config": {
                      "type": "openconfig-icmpv4-types:ECHO"
                    }
                  }
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:DROP",
                    "log-action": "openconfig-acl:LOG_NONE"
                  }
                }
              }
            ]
          }
        },
        {
          "name": "B",
          "type": "openconfig-acl:ACL_IPV6",
          "config": {
            "name": "B",
            "type": "openconfig-acl:ACL_IPV6"
          },
          "acl-entries": {
            "acl-entry": [
              {
                "sequence-id": 10,
                "config": {
                  "sequence-id": 10
                },
                "ipv6": {
                  "config": {
                    "source-address": "2001:db8::/32",
                    "protocol": 58
                  },
                  "icmpv6": {
                    "config": {
                      "type": 135,
                      "code": 0
                    }
                  }
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:ACCEPT",
                    "log-action": "openconfig-acl:LOG_NONE"
                  }
                }
              }
            ]
          }
        },
        {
          "name": "C",
          "type": "openconfig-acl:ACL_L2",
          "config": {
            "name": "C",
            "type": "openconfig-acl:ACL_L2"
          },
          "acl-entries": {
            "acl-entry": [
              {
                "sequence-id": 10,
                "config": {
                  "sequence-id": 10
                },
                "l2": {
                  "config": {
                    "source-mac": "02:00:5e:00:0b:ad",
                    "destination-mac": "02:00:00:00:00:00",
                    "destination-mac-mask": "ff:ff:ff:00:00:00",
                    "ethertype": "openconfig-packet-match-types:ETHERTYPE_ARP"
                  }
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:DROP",
                    "log-action": "openconfig-acl:LOG_NONE"
                  }
                }
              }
            ]
          }
        }
      ]
    },
    "interfaces": {
      "interface": [
        {
          "id": "Ethernet1",
          "config": {
            "id": "Ethernet1"
          },
          "interface-ref": {
            "config": {
              "interface": "Ethernet1",
              "subinterface": 0
            }
          },
          "ingress-acl-sets": {
            "ingress-acl-set": [
              {
                "set-name": "A",
                "type": "openconfig-acl:ACL_IPV4",
                "config": {
                  "set-name": "A",
                  "type": "openconfig-acl:ACL_IPV4"
                }
              },
              {
                "set-name": "C",
                "type": "openconfig-acl:ACL_L2",
                "config": {
                  "set-name": "C",
                  "type": "openconfig-acl:ACL_L2"
                }
              }
            ]
          }
        },
        {
          "id": "Vlan10",
          "config": {
            "id": "Vlan10"
          },
          "interface-ref": {
            "config": {
              "interface": "Vlan10",
              "subinterface": 0
            }
          },
          "egress-acl-sets": {
            "egress-acl-set": [
              {
                "set-name": "B",
                "type": "openconfig-acl:ACL_IPV6",
                "config": {
                  "set-name": "B",
                  "type": "openconfig-acl:ACL_IPV6"
                }
              }
            ]
          }
        }
      ]
    }
  },
  "openconfig-defined-sets:defined-sets": {
    "ipv4-prefix-sets": {
      "ipv4-prefix-set": [
        {
          "name": "prefixes-v4-1",
          "config": {
            "name": "prefixes-v4-1",
            "prefix": [
              "10.0.0.0/8",
              "192.0.2.1/32"
            ]
          }
        }
      ]
    },
    "port-sets": {
      "port-set": [
        {
          "name": "ports-1",
          "config": {
            "name": "ports-1",
            "port": [
              80,
              443
            ]
          }
        }
      ]
    }
  },
  "openconfig-interfaces:interfaces": {
    "interface": [
      {
        "name": "Ethernet1",
        "config": {
          "name": "Ethernet1",
          "type": "iana-if-type:ethernetCsmacd"
        },
        "openconfig-if-ethernet:ethernet": {
          "openconfig-vlan:switched-vlan": {
            "config": {
              "interface-mode": "ACCESS",
              "access-vlan": 10
            }
          }
        }
      },
      {
        "name": "Vlan10",
        "config": {
          "name": "Vlan10",
          "type": "iana-if-type:l3ipvlan"
        },
        "openconfig-vlan:routed-vlan": {
          "config": {
            "vlan": 10
          }
        }
      }
    ]
  },
  "openconfig-network-instance:network-instances": {
    "network-instance": [
      {
        "name": "default",
        "config": {
          "name": "default"
        },
        "vlans": {
          "vlan": [
            {
              "vlan-id": 10,
              "config": {
                "vlan-id": 10
              }
            }
          ]
        }
      }
    ]
  },
  "xpacl:hardware": {
    "tcam": [
      {
        "table": "ingressV4",
        "rows": 512
      }
    ]
  }
}
)T";
  EXPECT_EQ(expected, toOpenConfig(config, lost, notes));
  EXPECT_EQ("", lines(lost) + lines(notes));
}

TEST(OpenConfigConvert, stateStandsBesideTheConfiguration) {
  const Config config = read("ip access-list extended A\n 10 permit tcp any any eq 80\n 20 deny ip any any\n"
                             "interface Ethernet1\n ip access-group A in\n");
  OpenConfigOptions options;
  options.state = true;
  options.matchedPackets = [](const AccessList&, size_t rule) {
    return rule == 0 ? std::optional<uint64_t>(12345678901234567890u) : std::nullopt;
  };
  std::vector<std::string> lost;
  std::vector<std::string> notes;
  const std::string expected = R"T({
  "openconfig-acl:acl": {
    "state": {
      "counter-capability": "openconfig-acl:AGGREGATE_ONLY"
    },
    "acl-sets": {
      "acl-set": [
        {
          "name": "A",
          "type": "openconfig-acl:ACL_IPV4",
          "config": {
            "name": "A",
            "type": "openconfig-acl:ACL_IPV4"
          },
          "state": {
            "name": "A",
            "type": "openconfig-acl:ACL_IPV4"
          },
          "acl-entries": {
            "acl-entry": [
              {
                "sequence-id": 10,
                "config": {
                  "sequence-id": 10
                },
                "state": {
                  "sequence-id": 10,
                  "matched-packets": "12345678901234567890"
                },
                "ipv4": {
                  "config": {
                    "protocol": "openconfig-packet-match-types:IP_TCP"
                  }
                },
                "transport": {
                  "config": {
                    "destination-port": 80
                  }
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:ACCEPT",
                    "log-action": "openconfig-acl:LOG_NONE"
                  },
                  "state": {
                    "forwarding-action": "openconfig-acl:ACCEPT",
                    "log-action": "openconfig-acl:LOG_NONE"
                  }
                }
              },
              {
                "sequence-id": 20,
                "config": {
                  "sequence-id": 20
                },
                "state": {
                  "sequence-id": 20
                },
                "actions": {
                  "config": {
                    "forwarding-action": "openconfig-acl:DROP",
                    "log-action": "openconfig-acl:LOG_NONE"
                  },
                  "state": {
                    "forwarding-action": "openconfig-acl:DROP",
                    "log-action": "openconfig-acl:LOG_NONE"
                  }
                }
              }
            ]
          }
        }
      ]
    },
    "interfaces": {
      "interface": [
        {
          "id": "Ethernet1",
          "config": {
            "id": "Ethernet1"
          },
          "state": {
            "id": "Ethernet1"
          },
          "interface-ref": {
            "config": {
              "interface": "Ethernet1",
              "subinterface": 0
            }
          },
          "ingress-acl-sets": {
            "ingress-acl-set": [
              {
                "set-name": "A",
                "type": "openconfig-acl:ACL_IPV4",
                "config": {
                  "set-name": "A",
                  "type": "openconfig-acl:ACL_IPV4"
                },
                "state": {
                  "set-name": "A",
                  "type": "openconfig-acl:ACL_IPV4"
                }
              }
            ]
          }
        }
      ]
    }
  },
  "openconfig-interfaces:interfaces": {
    "interface": [
      {
        "name": "Ethernet1",
        "config": {
          "name": "Ethernet1",
          "type": "iana-if-type:ethernetCsmacd"
        }
      }
    ]
  }
}
)T";
  const std::string text = toOpenConfig(config, lost, notes, options);
  EXPECT_EQ(expected, text);
  EXPECT_EQ("", tool::difference(config, read(text)));
}

TEST(OpenConfigConvert, linesThatBecomeSeveralEntries) {
  // There is room for the second entry of line 10, but none for those of line 20.
  const std::string groups = "object-group service S\n tcp eq 80\n udp eq 53\n tcp eq 443\n";
  const auto sequences = [](const Config& config) {
    std::string text;
    for (const Rule& rule : config.lists.at(0).rules)
      text += std::to_string(rule.sequence) + " " + describe(rule.alternatives.at(0), Family::ipv4) + "\n";
    return text;
  };
  const Converted fits = convert(
      read(groups + "ip access-list extended A\n 10 permit object-group S any any\n 12 deny ip any any\n"),
      InputFormat::openconfig);
  EXPECT_EQ("", said(fits));
  EXPECT_EQ("10 tcp any any eq 80 443\n11 udp any any eq 53\n12 ip any any\n", sequences(read(fits.text)));
  const Converted fitsNot = convert(
      read(groups + "ip access-list extended A\n 10 permit object-group S any any\n 11 deny ip any any\n"),
      InputFormat::openconfig);
  EXPECT_EQ("notes\nt:5:25: the entries of 'A' are numbered anew, because some of its lines become several "
            "entries\n",
            said(fitsNot));
  EXPECT_EQ("10 tcp any any eq 80 443\n20 udp any any eq 53\n30 ip any any\n", sequences(read(fitsNot.text)));
  const Converted atTheEnd =
      convert(read(groups + "ip access-list extended A\n 4294967295 permit object-group S any any\n"),
              InputFormat::openconfig);
  EXPECT_EQ("10 tcp any any eq 80 443\n20 udp any any eq 53\n", sequences(read(atTheEnd.text)));
}

TEST(OpenConfigConvert, scatteredWildcardsBecomePrefixes) {
  const Config config = read("ip access-list extended A\n 10 permit ip 10.0.0.0 0.0.2.255 any\n"
                             " 20 deny ip 0.1.2.3 15.0.0.254 host 10.0.0.9\n");
  const Converted converted = convert(config, InputFormat::openconfig);
  EXPECT_EQ("", said(converted));
  const Config again = read(converted.text);
  EXPECT_EQ("ip 10.0.0.0 0.0.0.255 any", describe(again.lists[0].rules[0].alternatives.at(0), Family::ipv4));
  EXPECT_EQ("ip 10.0.2.0 0.0.0.255 any", describe(again.lists[0].rules[0].alternatives.at(1), Family::ipv4));
  EXPECT_EQ(2u, again.lists[0].rules[0].alternatives.size());
}

TEST(OpenConfigConvert, whatTheModelsHaveNoWordsFor) {
  EXPECT_EQ(
      R"T(t:2:5: 'permit any any 0x0800 vlan 10': the models have no leaf for the VLAN of a frame; apply a list without it to the ports of the VLAN
)T",
      losses("mac access-list extended M\n 10 permit any any 0x0800 vlan 10\n"));
  EXPECT_EQ(
      R"T(t:2:5: 'permit any any 0x0100': the models have EtherTypes from 1536 only, because smaller numbers are lengths of frames; leave the line out
)T",
      losses("mac access-list extended M\n 10 permit any any 0x0100\n"));
  EXPECT_EQ(
      R"T(t:2:5: 'permit tcp any lt 0 any': the line matches no port, and the models have no words for nothing; leave the line out
)T",
      losses("ip access-list extended A\n 10 permit tcp any lt 0 any\n"));
  EXPECT_EQ(
      R"T(t:1:1: '@10.0.0.0/8 0.0.0.0/0 80 : 80 0 : 65535 0x00/0x00': the line compares ports and does not say of which protocol; write a line for TCP and one for UDP
)T",
      losses("@10.0.0.0/8 0.0.0.0/0 80 : 80 0 : 65535 0x00/0x00\n"));
  EXPECT_EQ(
      R"T(t:2:5: 'permit ip 10.0.0.0 0.170.170.254 any': the addresses stand for more than 4096 prefixes, because the bits of their wildcards are scattered; write narrower ones, or prefixes
)T",
      losses("ip access-list extended A\n 10 permit ip 10.0.0.0 0.170.170.254 any\n"));
  EXPECT_EQ(
      R"T(t:2:5: 'permit ip 10.0.0.0 0.0.170.170 10.0.0.0 0.0.170.170': the addresses stand for more combinations of prefixes than there are rows, because the bits of their wildcards are scattered; write narrower ones, or prefixes
)T",
      losses("ip access-list extended A\n 10 permit ip 10.0.0.0 0.0.170.170 10.0.0.0 0.0.170.170\n"));
  EXPECT_EQ(
      R"T(t:1:11: the trunk Ethernet1 carries no VLAN, and in the models a trunk without VLANs carries them all; give it one
)T",
      losses("interface Ethernet1\n switchport trunk allowed vlan none\n"));
  EXPECT_EQ(R"T(t:1:25: the list 'A' has lines with errors, which no document can say; mend or delete them
)T",
            losses("ip access-list extended A\n 10 permit tcp any any syn\n"));
  EXPECT_EQ(R"T(t:1:25: the name '\xff' is no UTF-8, which JSON texts are; give the list another name
)T",
            losses("ip access-list extended \xFF\n 10 permit tcp any any\n"));
  EXPECT_EQ(R"T(t:2:18: the list 'X' was refused at Ethernet1; mend that first
)T",
            losses("interface Ethernet1\n ip access-group X in\n"));
}

TEST(OpenConfigConvert, whatTextHasNoWordsFor) {
  const auto set = [](const std::string& name, const std::string& body = "") {
    return R"([{"name":")" + name + R"(","type":"ACL_IPV4","acl-entries":{"acl-entry":[{"sequence-id":10,)" +
           body + R"("actions":{"forwarding-action":"DROP"}}]}}])";
  };
  EXPECT_EQ("", losses(set("A"), InputFormat::cli));
  EXPECT_EQ(
      R"T(t:1:2: the name 'A B' is no single word, which names are in configuration text; give the list another name
)T",
      losses(set("A B"), InputFormat::cli));
  EXPECT_EQ(
      R"T(t:1:2: the name '!A' is no single word, which names are in configuration text; give the list another name
)T",
      losses(set("!A"), InputFormat::cli));
  // A number says what kind of list it is.
  EXPECT_EQ("", losses(set("10"), InputFormat::cli));
  EXPECT_EQ("", losses(set("150", R"("ipv4":{"protocol":6},)"), InputFormat::cli));
  EXPECT_EQ(
      R"T(t:1:2: the name '10' is a number that configuration text keeps for lists of another kind; give the list another name
)T",
      losses(set("10", R"("ipv4":{"protocol":6},)"), InputFormat::cli));
  EXPECT_EQ(
      R"T(t:1:2: the name '5000' is a number that configuration text keeps for lists of another kind; give the list another name
)T",
      losses(set("5000"), InputFormat::cli));
  EXPECT_EQ(R"T(t:1:2: the list 'A' has lines with errors, which are not converted; mend or delete them
)T",
            losses(set("A", R"("ipv4":{"dscp":1},)"), InputFormat::cli));
  EXPECT_EQ(R"T(t:2:18: the list 'X' was refused at Ethernet1; mend that first
)T",
            losses("interface Ethernet1\n ip access-group X in\n", InputFormat::cli));
  EXPECT_EQ(
      R"T(t:1:1: @10.0.0.0/8 0.0.0.0/0 80 : 80 0 : 65535 0x00/0x00: configuration text has no words for this line; write it in other words
)T",
      losses("@10.0.0.0/8 0.0.0.0/0 80 : 80 0 : 65535 0x00/0x00\n", InputFormat::cli));
}

TEST(OpenConfigConvert, differencesAreFound) {
  const auto list = [](const std::string& line, const std::string& more = "") {
    return read("ip access-list extended A\n 10 " + line + "\n 20 permit ip any any\n" + more);
  };
  const Config base = list("deny tcp any any eq 80");
  EXPECT_EQ("", tool::difference(base, list("deny tcp any any range 80 80")));
  EXPECT_EQ("ipv4 list A judges this packet differently: tcp 10.1.0.1:40000 > 10.2.0.1:81 syn ttl 64",
            tool::difference(base, list("deny tcp any any eq 81")));
  EXPECT_EQ("ipv4 list A does not log the same, such as tcp 10.1.0.1:40000 > 10.2.0.1:80 syn ttl 64",
            tool::difference(base, list("deny tcp any any eq 80 log")));
  EXPECT_EQ("'1 chips' becomes 'Ethernet1 Ethernet1 chip 0'",
            tool::difference(base, list("deny tcp any any eq 80", "interface Ethernet1\n")));
  EXPECT_EQ("'ipv4 list A' becomes 'ipv4 list B'",
            tool::difference(base, read("ip access-list extended B\n permit ip any any\n")));
  EXPECT_EQ("ipv4 list A: one of the two has no lines",
            tool::difference(base, read("ip access-list extended A\n")));
  // Other lines that judge and log every packet the same.
  EXPECT_EQ("", tool::difference(list("deny tcp any any range 80 81 log"),
                                 read("ip access-list extended A\n 1 deny tcp any any eq 80 log\n"
                                      " 2 deny tcp any any eq 81 log\n 3 permit ip any any\n")));
}

TEST(OpenConfigConvert, realConfigurations) {
  const auto shared = test::sharedData();
  if (!shared)
    GTEST_SKIP() << test::noSharedData;
  size_t converted = 0;
  for (const char* const folder : {"configs", "openconfig"}) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(*shared / folder))
      files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
      const Config config = readConfig(file.string());
      std::vector<std::string> lost;
      std::vector<std::string> notes;
      toOpenConfig(config, lost, notes);
      if (config.hasErrors() || !lost.empty())
        continue;
      expectThereAndBack(config, file.string());
      ++converted;
    }
  }
  std::cout << converted << " files converted there and back\n";
  EXPECT_GE(converted, 12u);
}

// Wildcards with scattered bits become many prefixes, which take long to compare.
constexpr size_t mostAlternatives = 200;

bool canBeSaid(const AccessList& list) {
  Config alone;
  alone.lists.push_back(list);
  std::vector<std::string> lost;
  std::vector<std::string> notes;
  const std::string document = toOpenConfig(alone, lost, notes);
  if (!lost.empty())
    return false; // such as a VLAN in a MAC line
  size_t alternatives = 0;
  for (const AccessList& again : read(document).lists)
    for (const Rule& rule : again.rules)
      alternatives += rule.alternatives.size();
  return alternatives <= mostAlternatives;
}

// Takes the lists away that cannot be said, and what applies them; answers how many stay.
size_t leaveWhatCanBeSaid(Config& config) {
  std::erase_if(config.lists, [](const AccessList& list) { return !canBeSaid(list); });
  for (Interface& interface : config.interfaces)
    std::erase_if(interface.bindings, [&config](const Binding& binding) {
      return config.list(binding.family, binding.list) == nullptr;
    });
  return config.lists.size();
}

TEST(OpenConfigConvert, generatedConfigurations) {
  test::Random random(test::Random::seed("generated configurations"));
  const size_t rounds = test::isLong() ? 2000 : 30;
  size_t lists = 0;
  for (size_t round = 0; round < rounds; ++round) {
    std::vector<uint8_t> bytes(64 + random.below(700));
    for (uint8_t& byte : bytes)
      byte = random.byte();
    fuzzing::ConfigGrammar grammar(bytes.data(), bytes.size());
    const std::string text = grammar.text().joined();
    Config config = read(text);
    if (config.hasErrors())
      continue;
    lists += leaveWhatCanBeSaid(config);
    expectThereAndBack(config, text);
    if (HasFailure())
      return;
  }
  std::cout << lists << " generated lists converted there and back\n";
  EXPECT_GE(lists, rounds / 4);
}

} // namespace
