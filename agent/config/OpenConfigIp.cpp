#include "agent/config/Addresses.h"
#include "agent/config/OpenConfigEntryParts.h"
#include "agent/config/OpenConfigNames.h"

#include <array>

namespace agent::openconfig {

namespace {

constexpr uint8_t icmp = 1;
constexpr uint8_t icmpV6 = 58;

constexpr const char* dscpReason =
    "a row does not compare the DSCP bits; leave the leaf out, or match by addresses, protocol and ports";

struct Inexpressible {
  const char* leaf;
  const char* why;
};
constexpr std::array inexpressibles = {
    Inexpressible{"dscp", dscpReason},
    Inexpressible{"length", "a row does not see the length of a packet; leave the leaf out"},
    Inexpressible{"source-flow-label", "a row does not compare the IPv6 flow label; leave the leaf out"},
    Inexpressible{"destination-flow-label", "a row does not compare the IPv6 flow label; leave the leaf out"},
};

class IpReader {
public:
  IpReader(const Member& header, bool v6, DefinedSets& sets, Problems& problems, EntryMatch& match)
      : v6_(v6), sets_(sets), problems_(problems), match_(match),
        container_(*header.value, header.place, problems) {}

  void read() {
    takeAddress("source-address", match_.v4Sources, match_.v6Sources, match_.sourceSet);
    takeAddress("destination-address", match_.v4Destinations, match_.v6Destinations, match_.destinationSet);
    takeProtocol();
    takeHopLimit();
    takeIcmp();
    refuseInexpressible();
    container_.refuseRest(std::string("this is no leaf of ") + (v6_ ? "ipv6" : "ipv4") +
                          " that is known here, and the entry would match more packets without it; leave it "
                          "out or correct it");
  }

private:
  void takeAddress(const std::string& leaf, std::vector<V4Match>& v4, std::vector<V6Match>& v6,
                   std::string& setName);
  void takePrefix(const Member& member, std::vector<V4Match>& v4, std::vector<V6Match>& v6);
  void takeProtocol();
  void takeProtocolIdentity(const Member& member);
  void takeHopLimit();
  void takeIcmp();
  void takeIcmpType(const Member& member);
  void refuseInexpressible();

  bool v6_;
  DefinedSets& sets_;
  Problems& problems_;
  EntryMatch& match_;
  Container container_;
};

void IpReader::takeAddress(const std::string& leaf, std::vector<V4Match>& v4, std::vector<V6Match>& v6,
                           std::string& setName) {
  const Member* const prefix = container_.take(leaf);
  const Member* const set = container_.take(leaf + "-prefix-set");
  if (prefix != nullptr && set != nullptr) {
    problems_.refuse(*set->value, set->place,
                     "the entry has a " + leaf +
                         " as well, and only one can be meant; leave one of them out");
    return;
  }
  if (prefix != nullptr)
    takePrefix(*prefix, v4, v6);
  if (set == nullptr)
    return;
  const DefinedSet* const found =
      sets_.find(v6_ ? SetKind::v6Prefixes : SetKind::v4Prefixes, *set, problems_);
  if (found == nullptr)
    return;
  v4 = found->v4;
  v6 = found->v6;
  setName = cleaned(set->value->text);
}

void IpReader::takePrefix(const Member& member, std::vector<V4Match>& v4, std::vector<V6Match>& v6) {
  const auto text = takeText(member, "a prefix", problems_);
  if (!text)
    return;
  const auto v4Match = v6_ ? std::nullopt : v4Prefix(*text);
  const auto v6Match = v6_ ? v6Prefix(*text) : std::nullopt;
  if (v4Match)
    v4 = {*v4Match};
  else if (v6Match)
    v6 = {*v6Match};
  else
    problems_.refuse(*member.value, member.place,
                     quotedWord(*text) + " is no " + (v6_ ? "IPv6" : "IPv4") +
                         " prefix; write address and length, like " +
                         (v6_ ? "\"2001:db8::/32\"" : "\"10.0.0.0/8\"") + ", and a single address with /" +
                         (v6_ ? "128" : "32"));
}

void IpReader::takeProtocol() {
  const Member* const member = container_.take("protocol");
  if (member == nullptr)
    return;
  const auto number = plainNumber(*member->value, 255);
  if (number == 0u)
    problems_.refuse(
        *member->value, member->place,
        "protocol 0 cannot be a criterion, because a row takes it for any protocol; leave the leaf "
        "out when every packet is meant");
  else if (number)
    match_.base.protocol = static_cast<uint8_t>(*number);
  else
    takeProtocolIdentity(*member);
}

void IpReader::takeProtocolIdentity(const Member& member) {
  const auto protocol = protocolFromIdentity(member.value->text);
  if (!protocol || !member.value->is(JsonKind::string)) {
    NearestWord nearest(withoutModule(member.value->text));
    offerProtocolIdentities(nearest);
    problems_.refuse(*member.value, member.place,
                     describe(*member.value) +
                         " is no protocol that is known here; write its number, or an identity like IP_TCP" +
                         nearest.suggestion());
    return;
  }
  if (v6_ && *protocol == icmp) {
    problems_.refuse(
        *member.value, member.place,
        "IP_ICMP is protocol 1, which does not occur in IPv6; write 58 for ICMPv6, or the number 1 "
        "when that is meant");
    return;
  }
  match_.base.protocol = protocol;
}

void IpReader::takeHopLimit() {
  const Member* const member = container_.take("hop-limit");
  if (member == nullptr)
    return;
  if (v6_) {
    problems_.refuse(*member->value, member->place,
                     "a row does not compare the IPv6 hop limit; leave the leaf out");
    return;
  }
  if (const auto value = takeNumber(*member, "a time to live", 0, 255, problems_))
    match_.base.ttl = static_cast<uint8_t>(*value);
}

void IpReader::takeIcmp() {
  const Member* const member = container_.take(v6_ ? "icmpv6" : "icmpv4");
  if (member == nullptr || !saysSomething(*member->value))
    return;
  Container container(*member->value, member->place, problems_);
  const Member* const type = container.take("type");
  const Member* const code = container.take("code");
  container.refuseRest("only type and code of a message are compared; leave this out");
  if (match_.base.protocol != (v6_ ? icmpV6 : icmp)) {
    problems_.refuse(*member->value, member->place,
                     std::string("only ") +
                         (v6_ ? "ICMPv6 has these message types; write the protocol 58"
                              : "ICMP has these message types; write the protocol IP_ICMP") +
                         ", or leave the container out");
    return;
  }
  if (type != nullptr)
    takeIcmpType(*type);
  if (code == nullptr)
    return;
  if (type == nullptr) {
    problems_.refuse(*code->value, code->place,
                     "a code is compared only together with its type; write the type as well");
    return;
  }
  const auto number = plainNumber(*code->value, 255);
  if (number)
    match_.base.icmpCode = static_cast<uint8_t>(*number);
  else
    problems_.refuse(*code->value, code->place,
                     describe(*code->value) +
                         " is no code that is known here; write its number, from 0 to 255");
}

void IpReader::takeIcmpType(const Member& member) {
  const auto number = plainNumber(*member.value, 255);
  const auto identity =
      member.value->is(JsonKind::string) ? icmpTypeFromIdentity(member.value->text, v6_) : std::nullopt;
  if (number || identity) {
    match_.base.icmpType = number ? static_cast<uint8_t>(*number) : *identity;
    return;
  }
  NearestWord nearest(withoutModule(member.value->text));
  offerIcmpTypeIdentities(nearest, v6_);
  problems_.refuse(
      *member.value, member.place,
      describe(*member.value) +
          " is no message type that is known here; write its number, from 0 to 255, or an identity "
          "like " +
          (v6_ ? "ECHO_REQUEST" : "ECHO") + nearest.suggestion());
}

void IpReader::refuseInexpressible() {
  for (const Inexpressible& each : inexpressibles)
    if (const Member* const member = container_.take(each.leaf))
      problems_.refuse(*member->value, member->place, each.why);
  // A leaf-list without values is no leaf-list.
  const Member* const dscpSet = container_.take("dscp-set");
  if (dscpSet != nullptr && saysSomething(*dscpSet->value))
    problems_.refuse(*dscpSet->value, dscpSet->place, dscpReason);
}

} // namespace

void readIp(Container& entry, bool v6, DefinedSets& sets, Problems& problems, EntryMatch& match) {
  if (const Member* const header = entry.take(v6 ? "ipv6" : "ipv4"))
    IpReader(*header, v6, sets, problems, match).read();
}

} // namespace agent::openconfig
