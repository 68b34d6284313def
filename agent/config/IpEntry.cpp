#include "agent/config/IpEntry.h"

#include "agent/config/AddressParser.h"
#include "agent/config/ConfigReader.h"
#include "agent/config/EntryOptions.h"
#include "agent/config/ProtocolParser.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

constexpr uint8_t tcp = 6;

// The headers that are skipped in search of the upper-layer protocol (IANA, IPv6 Extension Header Types).
bool isV6ExtensionHeader(uint8_t protocol) {
  constexpr std::array<uint8_t, 7> headers = {43, 44, 51, 60, 135, 139, 140};
  return std::find(headers.begin(), headers.end(), protocol) != headers.end();
}

bool isServiceGroup(GroupKind kind) {
  return kind == GroupKind::service || kind == GroupKind::protocol;
}
bool isPortGroup(GroupKind kind) {
  return kind == GroupKind::port;
}

class IpEntry {
public:
  IpEntry(Cursor& cursor, const EntryContext& context, Findings& findings)
      : cursor_(cursor), context_(context), findings_(findings), v6_(context.family == Family::ipv6) {}

  bool parse(Rule& rule) {
    const bool taken = context_.standard ? takeStandard() : takeExtended();
    rule.log = neutral_.log;
    return taken && !findings_.hasErrors() && build(rule);
  }
  std::vector<std::pair<size_t, size_t>>& skipped() { return neutral_.skipped; }

private:
  bool takeStandard();
  bool takeExtended();
  bool takeService();
  bool takePorts(PortSet& ports);
  bool checkPortsAllowed(const Token& token);
  bool takeOption();
  bool takeEstablished();
  bool takeTtl();
  bool refuseOption(const Token& token);
  bool checkFragments();
  bool allProtocols(bool (*holds)(std::optional<uint8_t> protocol)) const;
  bool allServices(bool (*holds)(const ServiceMatch&)) const;
  bool build(Rule& rule);

  Cursor& cursor_;
  const EntryContext& context_;
  Findings& findings_;
  const bool v6_;
  Criteria base_; // all but the addresses and the content of a service group
  Token protocolToken_;
  const GroupContent* services_ = nullptr;
  AddressSet src_;
  AddressSet dst_;
  Token fragmentsToken_;
  bool comparesPorts_ = false;
  NeutralOptions neutral_;
};

bool IpEntry::takeStandard() {
  const Token first = cursor_.peek();
  const bool protocol =
      sameWord(first.text, "ip") || sameWord(first.text, "ipv6") || protocolFromName(first.text).has_value();
  constexpr const char* reason =
      "a standard list compares the source address only; make the list extended, or leave "
      "this out";
  if (protocol)
    return findings_.refuse(first, reason);
  if (!takeIpAddress(cursor_, context_, "source", findings_, src_))
    return false;
  while (!cursor_.atEnd())
    if (!neutral_.take(cursor_, findings_))
      return findings_.refuse(cursor_.peek(), reason);
  return true;
}

bool IpEntry::takeExtended() {
  if (!takeService() || !takeIpAddress(cursor_, context_, "source", findings_, src_))
    return false;
  if (cursor_.atEnd() && !src_.wildcard.text.empty())
    return findings_.refuse(src_.wildcard,
                            "this was read as the wildcard of the source address, and the destination "
                            "is missing; write host before a single address");
  if (!takePorts(base_.srcPorts) || !takeIpAddress(cursor_, context_, "destination", findings_, dst_) ||
      !takePorts(base_.dstPorts))
    return false;
  while (!cursor_.atEnd())
    if (!takeOption())
      return false;
  return checkFragments();
}

bool IpEntry::takeService() {
  protocolToken_ = cursor_.peek();
  if (cursor_.takeWord("object-group")) {
    protocolToken_ = cursor_.peek();
    services_ = takeGroup(cursor_, context_, findings_, isServiceGroup, "services or protocols");
    return services_ != nullptr;
  }
  // Some configurations leave the keyword out, which cannot be told from a misspelt protocol.
  const bool known = sameWord(protocolToken_.text, "ip") || protocolFromName(protocolToken_.text);
  if (!known && context_.groups->has(protocolToken_.text))
    return findings_.refuse(protocolToken_,
                            "this is no protocol but an object group; write object-group before its "
                            "name");
  if (!takeProtocol(cursor_, v6_, findings_, base_.protocol))
    return false;
  if (v6_ && base_.protocol && isV6ExtensionHeader(*base_.protocol))
    findings_.warn(protocolToken_,
                   "a row compares the protocol behind the IPv6 extension headers, and this is one of "
                   "those headers, so that the line matches next to nothing; leave it out");
  return true;
}

// Of the line's own protocol, or of all in its object group.
bool IpEntry::allProtocols(bool (*holds)(std::optional<uint8_t> protocol)) const {
  if (services_ == nullptr)
    return holds(base_.protocol);
  return std::all_of(services_->services.begin(), services_->services.end(),
                     [holds](const ServiceMatch& service) { return holds(service.protocol); });
}

// Of the ports and types that an object group says; without one there are none.
bool IpEntry::allServices(bool (*holds)(const ServiceMatch&)) const {
  return services_ == nullptr || std::all_of(services_->services.begin(), services_->services.end(), holds);
}

bool IpEntry::checkPortsAllowed(const Token& token) {
  const auto hasPorts = [](std::optional<uint8_t> protocol) {
    return protocol && portProtocolOf(*protocol) != 0;
  };
  const auto unused = [](const ServiceMatch& service) {
    return isAnyPort(service.srcPorts) && isAnyPort(service.dstPorts);
  };
  if (!allProtocols(hasPorts))
    return findings_.refuse(
        token, quotedWord(protocolToken_.text) +
                   " has no ports; write tcp, udp or sctp as the protocol, or leave the ports out");
  if (!allServices(unused))
    return findings_.refuse(token, "the object group " + quotedWord(protocolToken_.text) +
                                       " says which ports are meant; leave the ports out here");
  return true;
}

bool IpEntry::takePorts(PortSet& ports) {
  const Token token = cursor_.peek();
  const bool isGroup = cursor_.at("object-group") && context_.groups->has(cursor_.peek(1).text) &&
                       context_.groups->kind(cursor_.peek(1).text) == GroupKind::port;
  const bool isExpression = isPortOperator(token.text);
  if (!isExpression && !isGroup && !cursor_.at("portgroup"))
    return true;
  if (!checkPortsAllowed(token))
    return false;
  comparesPorts_ = true;
  if (!isExpression) {
    cursor_.skip(1);
    const GroupContent* group = takeGroup(cursor_, context_, findings_, isPortGroup, "ports");
    if (group == nullptr)
      return false;
    ports = group->ports;
    return true;
  }
  PortProtocols names = base_.protocol ? portProtocolOf(*base_.protocol) : PortProtocols{0};
  if (services_ != nullptr)
    for (const ServiceMatch& service : services_->services)
      names |= portProtocolOf(*service.protocol);
  auto taken = takePortExpression(cursor_, names, findings_);
  if (!taken)
    return false;
  ports = std::move(*taken);
  return true;
}

bool IpEntry::takeEstablished() {
  const Token token = cursor_.take();
  if (!allProtocols([](std::optional<uint8_t> protocol) { return protocol == tcp; }))
    return findings_.refuse(token,
                            "only TCP connections are established; write tcp as the protocol, or leave the "
                            "option out");
  base_.established = true;
  return true;
}

bool IpEntry::takeTtl() {
  const Token token = cursor_.take();
  if (v6_) {
    cursor_.skip(2);
    findings_.refuse(token, "a row does not compare the IPv6 hop limit; leave the option out");
    return true;
  }
  const Token op = cursor_.peek();
  if (!sameWord(op.text, "eq")) {
    cursor_.skip(sameWord(op.text, "range") ? 3 : 2);
    findings_.refuse(
        op, "a row compares a time to live only for equality; write ttl eq N, with a line for each value");
    return true;
  }
  cursor_.skip(1);
  const Token valueToken = cursor_.take();
  const auto value = decimal(valueToken.text, 255);
  if (!value)
    return findings_.refuse(valueToken, "a time to live is a number from 0 to 255");
  if (base_.ttl && *base_.ttl != *value)
    return findings_.refuse(valueToken,
                            "the entry has another time to live already; write a line for each value");
  base_.ttl = static_cast<uint8_t>(*value);
  return true;
}

bool IpEntry::takeOption() {
  if (neutral_.take(cursor_, findings_))
    return true;
  const Token token = cursor_.peek();
  if (sameWord(token.text, "established"))
    return takeEstablished();
  if (sameWord(token.text, "fragments")) {
    fragmentsToken_ = cursor_.take();
    base_.fragments = true;
    if (v6_)
      findings_.refuse(token,
                       "a row does not see whether an IPv6 packet is a fragment; leave the option out");
    return true;
  }
  const bool ttl = sameWord(token.text, "ttl") || sameWord(token.text, "hoplimit") ||
                   (sameWord(token.text, "hop-limit") && isPortOperator(cursor_.peek(1).text));
  if (ttl)
    return takeTtl();
  const bool mayHaveType = services_ == nullptr && !sameWord(token.text, "object-group") &&
                           base_.protocol == icmpProtocol(v6_) && !base_.icmpType;
  const bool isType = allDigits(token.text) || icmpFromName(token.text, v6_).has_value();
  if (mayHaveType && (isType || !isOption(token.text)) && !sameWord(token.text, "code") &&
      !sameWord(token.text, "icmp-code")) {
    const auto icmp = takeIcmpType(cursor_, v6_, findings_);
    if (!icmp)
      return false;
    base_.icmpType = icmp->type;
    base_.icmpCode = icmp->code;
    return true;
  }
  if (refuseInexpressible(cursor_, v6_, findings_))
    return true;
  return refuseOption(token);
}

// The words that newcomers to the form of an entry put in the wrong place get their own answer.
bool IpEntry::refuseOption(const Token& token) {
  const bool icmp = services_ == nullptr && base_.protocol == icmpProtocol(v6_);
  if (sameWord(token.text, "code") || sameWord(token.text, "icmp-code"))
    return findings_.refuse(token,
                            "an ICMP code is compared only together with its type; write the number of the "
                            "type, then the number of the code");
  if (isPortOperator(token.text))
    return findings_.refuse(token,
                            "the ports of this side stand already; source ports belong behind the source "
                            "address, destination ports behind the destination address");
  if (sameWord(token.text, "vlan"))
    return findings_.refuse(token,
                            "only rows of MAC lists compare the VLAN; apply the list to the VLAN interface "
                            "instead");
  if (sameWord(token.text, "object-group"))
    return findings_.refuse(cursor_.peek(1), "behind the destination only a group of ports can stand");
  if (!icmp && icmpFromName(token.text, v6_))
    return findings_.refuse(token,
                            std::string("only ") + (v6_ ? "ICMPv6" : "ICMP") +
                                " has message types; write icmp as the protocol, or leave the type out");
  if (v4FromText(token.text))
    return findings_.refuse(
        token, "the destination has ended before this address; an address with a second one behind "
               "it was read as address and wildcard, so write host before a single address");
  NearestWord nearest(token.text);
  if (comparesPorts_)
    offerServices(nearest, 0);
  refuseUnknownOption(token, nearest, findings_);
  return false;
}

bool IpEntry::checkFragments() {
  if (!base_.fragments || v6_)
    return true;
  const auto noType = [](const ServiceMatch& service) { return !service.icmpType; };
  if (base_.icmpType || !allServices(noType))
    return findings_.refuse(fragmentsToken_,
                            "a fragment that is not the first carries no ICMP type, so that both "
                            "together match nothing; leave one of them out");
  if (base_.established)
    return findings_.refuse(fragmentsToken_,
                            "a fragment that is not the first carries no TCP flags, so that "
                            "fragments and established together match nothing; leave one of them out");
  const auto noPorts = [](const ServiceMatch& service) {
    return isAnyPort(service.srcPorts) && isAnyPort(service.dstPorts);
  };
  if (comparesPorts_ || !allServices(noPorts))
    findings_.warn(fragmentsToken_,
                   "a fragment that is not the first carries no ports, so that the ports of this "
                   "line are not compared; leave them out");
  base_.srcPorts = anyPort();
  base_.dstPorts = anyPort();
  return true;
}

bool IpEntry::build(Rule& rule) {
  const size_t services = services_ == nullptr ? 1 : services_->services.size();
  const uint64_t count = uint64_t{services} * src_.size(v6_) * dst_.size(v6_);
  if (count > maxLineAlternatives || !context_.budget->take(count - 1))
    return findings_.refuse(protocolToken_,
                            "the object groups of this line stand for " + std::to_string(count) +
                                " combinations, which is more than there are rows; use fewer or "
                                "smaller groups");
  rule.alternatives.reserve(count);
  for (size_t s = 0; s < services; ++s) {
    if (services_ != nullptr) {
      const ServiceMatch& service = services_->services[s];
      base_.protocol = service.protocol;
      base_.icmpType = service.icmpType;
      base_.icmpCode = service.icmpCode;
      if (!comparesPorts_ && !base_.fragments) {
        base_.srcPorts = service.srcPorts;
        base_.dstPorts = service.dstPorts;
      }
    }
    for (size_t i = 0; i < src_.size(v6_); ++i)
      for (size_t j = 0; j < dst_.size(v6_); ++j) {
        const bool last = rule.alternatives.size() + 1 == count;
        Criteria& made =
            last ? rule.alternatives.emplace_back(std::move(base_)) : rule.alternatives.emplace_back(base_);
        if (v6_) {
          made.srcV6 = src_.v6At(i);
          made.dstV6 = dst_.v6At(j);
        } else {
          made.srcV4 = src_.v4At(i);
          made.dstV4 = dst_.v4At(j);
        }
      }
  }
  return true;
}

} // namespace

void parseIpEntry(Cursor& cursor, const EntryContext& context, Findings& findings, Rule& rule,
                  std::vector<std::pair<size_t, size_t>>& skipped) {
  IpEntry entry(cursor, context, findings);
  entry.parse(rule);
  skipped = std::move(entry.skipped());
}

} // namespace agent
