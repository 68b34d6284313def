#include "agent/config/GroupMembers.h"

#include "agent/config/ProtocolParser.h"

#include <algorithm>
#include <tuple>

namespace agent {

namespace {

// Members may carry the keyword of their kind in front ("network-object", "service-object") and a
// sequence number before that.
void skipPrefix(GroupKind kind, Cursor& cursor) {
  const bool numbered = kind == GroupKind::address || kind == GroupKind::port || kind == GroupKind::network;
  if (numbered && allDigits(cursor.peek().text) && !cursor.peek(1).text.empty())
    cursor.skip(1);
  for (const char* keyword : {"network-object", "service-object", "port-object", "protocol-object"})
    if (cursor.takeWord(keyword))
      return;
}

bool takeV4Range(Cursor& cursor, Findings& findings, GroupContent& content) {
  const Token lowToken = cursor.take();
  const Token highToken = cursor.take();
  const auto low = v4FromText(lowToken.text);
  const auto high = v4FromText(highToken.text);
  if (!low || !high)
    return findings.refuse(low ? highToken : lowToken, "a range has two IPv4 addresses");
  if (*low > *high)
    return findings.refuse(highToken, "the range runs backwards; write the lower address first");
  const auto prefixes = v4Prefixes(*low, *high);
  content.v4.insert(content.v4.end(), prefixes.begin(), prefixes.end());
  return true;
}

bool takeHost(Cursor& cursor, Findings& findings, GroupContent& content) {
  const Token token = cursor.take();
  if (const auto v4 = v4FromText(token.text))
    content.v4.push_back({*v4, 0});
  else if (const auto v6 = v6FromText(token.text))
    content.v6.push_back({*v6, 128});
  else
    return findings.refuse(token,
                           "an address is needed here, names of hosts are not resolved; write one like "
                           "host 10.0.0.1");
  return true;
}

bool takePrefix(const Token& token, Findings& findings, GroupContent& content) {
  const size_t slash = token.text.find('/');
  const std::string_view address = token.text.substr(0, slash);
  const std::string_view length = token.text.substr(slash + 1);
  if (const auto v4 = v4FromText(address)) {
    const auto bits = decimal(length, 32);
    if (!bits)
      return findings.refuse(token, "the prefix length of an IPv4 address is a number from 0 to 32");
    content.v4.push_back(v4Match(*v4, v4Wildcard(*bits)));
    return true;
  }
  if (const auto v6 = v6FromText(address)) {
    const auto bits = decimal(length, 128);
    if (!bits)
      return findings.refuse(token, "the prefix length of an IPv6 address is a number from 0 to 128");
    content.v6.push_back(v6Match(*v6, static_cast<uint8_t>(*bits)));
    return true;
  }
  return findings.refuse(token, "this is no address with a prefix length, like 10.0.0.0/8");
}

bool takeAddress(GroupKind kind, Cursor& cursor, Findings& findings, GroupContent& content) {
  if (cursor.takeWord("host"))
    return takeHost(cursor, findings, content);
  if (cursor.takeWord("range"))
    return takeV4Range(cursor, findings, content);
  if (cursor.takeWord("any")) {
    content.v4.push_back({});
    content.v6.push_back({});
    return true;
  }
  const Token token = cursor.take();
  if (token.text.find('/') != std::string_view::npos)
    return takePrefix(token, findings, content);
  if (const auto v6 = v6FromText(token.text)) {
    content.v6.push_back({*v6, 128});
    return true;
  }
  const auto address = v4FromText(token.text);
  if (!address)
    return findings.refuse(token, "this is no address; write host A, A with its mask, or A/length");
  const Token maskToken = cursor.peek();
  const auto mask = v4FromText(maskToken.text);
  if (!mask) {
    content.v4.push_back({*address, 0});
    return true;
  }
  cursor.skip(1);
  const auto wildcard = kind == GroupKind::address ? mask : wildcardOfNetmask(*mask);
  if (!wildcard)
    return findings.refuse(maskToken,
                           "masks in this kind of group are netmasks, and this is none; write one like "
                           "255.255.255.0, or use object-group ip address with wildcards");
  content.v4.push_back(v4Match(*address, *wildcard));
  return true;
}

// "tcp source range 1 5 eq 80", "udp www", "tcp-udp eq 53".
bool takePortedService(PortProtocols names, const std::vector<uint8_t>& protocols, Cursor& cursor,
                       Findings& findings, GroupContent& content) {
  ServiceMatch service;
  if (cursor.takeWord("source")) {
    const auto ports = takePortExpression(cursor, names, findings);
    if (!ports)
      return false;
    service.srcPorts = *ports;
  }
  cursor.takeWord("destination");
  if (!cursor.atEnd()) {
    std::optional<PortSet> ports;
    if (isPortOperator(cursor.peek().text))
      ports = takePortExpression(cursor, names, findings);
    else if (const auto port = takePort(cursor, names, findings))
      ports = portRange(*port, *port);
    if (!ports)
      return false;
    service.dstPorts = *ports;
  }
  for (const uint8_t protocol : protocols) {
    service.protocol = protocol;
    content.services.push_back(service);
  }
  return true;
}

bool takeService(bool v6, Cursor& cursor, Findings& findings, GroupContent& content) {
  if (cursor.at("tcp-udp") || cursor.at("tcpudp")) {
    cursor.skip(1);
    return takePortedService(tcpPorts | udpPorts, {6, 17}, cursor, findings, content);
  }
  ServiceMatch service;
  if (!takeProtocol(cursor, v6, findings, service.protocol))
    return false;
  const PortProtocols names = service.protocol ? portProtocolOf(*service.protocol) : PortProtocols{0};
  if (names != 0)
    return takePortedService(names, {*service.protocol}, cursor, findings, content);
  if (service.protocol == icmpProtocol(v6) && !cursor.atEnd()) {
    const auto icmp = takeIcmpType(cursor, v6, findings);
    if (!icmp)
      return false;
    service.icmpType = icmp->type;
    service.icmpCode = icmp->code;
  }
  content.services.push_back(service);
  return true;
}

bool takePorts(PortProtocols protocols, Cursor& cursor, Findings& findings, GroupContent& content) {
  const auto ports = takePortExpression(cursor, protocols, findings);
  if (!ports)
    return false;
  content.ports.append(*ports);
  return true;
}

bool takeProtocolMember(bool v6, Cursor& cursor, Findings& findings, GroupContent& content) {
  ServiceMatch service;
  if (!takeProtocol(cursor, v6, findings, service.protocol))
    return false;
  content.services.push_back(service);
  return true;
}

template <class Range>
auto rangeKey(const Range& ports) {
  std::vector<std::pair<uint16_t, uint16_t>> key;
  key.reserve(ports.size());
  for (const PortRange& range : ports)
    key.emplace_back(range.low, range.high);
  return key;
}

auto serviceKey(const ServiceMatch& service) {
  return std::make_tuple(service.protocol, service.icmpType, service.icmpCode, rangeKey(service.srcPorts));
}

void mergeServices(std::vector<ServiceMatch>& services) {
  std::stable_sort(services.begin(), services.end(), [](const ServiceMatch& a, const ServiceMatch& b) {
    return std::tie(a.protocol, a.icmpType, a.icmpCode) < std::tie(b.protocol, b.icmpType, b.icmpCode) ||
           (std::tie(a.protocol, a.icmpType, a.icmpCode) == std::tie(b.protocol, b.icmpType, b.icmpCode) &&
            rangeKey(a.srcPorts) < rangeKey(b.srcPorts));
  });
  std::vector<ServiceMatch> merged;
  for (ServiceMatch& service : services) {
    if (merged.empty() || serviceKey(merged.back()) != serviceKey(service)) {
      if (!merged.empty())
        merged.back().dstPorts = normalized(std::move(merged.back().dstPorts));
      merged.push_back(std::move(service));
      continue;
    }
    merged.back().dstPorts.append(service.dstPorts);
  }
  if (!merged.empty())
    merged.back().dstPorts = normalized(std::move(merged.back().dstPorts));
  services = std::move(merged);
}

template <class Match, class Less>
void sortUnique(std::vector<Match>& matches, Less less) {
  std::sort(matches.begin(), matches.end(), less);
  matches.erase(std::unique(matches.begin(), matches.end()), matches.end());
}

} // namespace

bool looksLikeGroupMember(GroupKind kind, const std::vector<Token>& tokens) {
  const std::string_view word = tokens[0].text;
  for (const char* keyword : {"host", "any", "range", "group-object", "network-object", "service-object",
                              "port-object", "protocol-object", "icmp-object", "description"})
    if (sameWord(word, keyword))
      return true;
  switch (kind) {
  case GroupKind::network:
  case GroupKind::address:
    return isDigit(word[0]) || word.find(':') != std::string_view::npos;
  case GroupKind::service:
  case GroupKind::protocol: {
    // "ip" alone is a member, "ip route ..." is a command.
    const bool bareIp = (sameWord(word, "ip") || sameWord(word, "ipv6")) && tokens.size() == 1;
    return bareIp || allDigits(word) || sameWord(word, "tcp-udp") || protocolFromName(word).has_value();
  }
  case GroupKind::port:
    return isPortOperator(word) || allDigits(word);
  default:
    return false;
  }
}

bool takeGroupMember(GroupKind kind, PortProtocols portProtocols, bool v6, Cursor& cursor, Findings& findings,
                     GroupContent& content) {
  if (cursor.at("no"))
    return findings.refuse(cursor.peek(),
                           "members of a group are not deleted one by one; leave out this line and "
                           "the one that it deletes");
  skipPrefix(kind, cursor);
  bool taken = false;
  switch (kind) {
  case GroupKind::network:
  case GroupKind::address:
    taken = takeAddress(kind, cursor, findings, content);
    break;
  case GroupKind::service:
    taken = takeService(v6, cursor, findings, content);
    break;
  case GroupKind::port:
    taken = takePorts(portProtocols, cursor, findings, content);
    break;
  case GroupKind::protocol:
    taken = takeProtocolMember(v6, cursor, findings, content);
    break;
  case GroupKind::unsupported:
    return false; // the line that opened it says so already
  }
  if (taken && !cursor.atEnd())
    return findings.refuse(cursor.peek(), "the member of the group ends before this word; leave it out");
  return taken;
}

void addContent(const GroupContent& from, GroupContent& to) {
  to.v4.insert(to.v4.end(), from.v4.begin(), from.v4.end());
  to.v6.insert(to.v6.end(), from.v6.begin(), from.v6.end());
  to.services.insert(to.services.end(), from.services.begin(), from.services.end());
  to.ports.append(from.ports);
}

void removeDuplicates(GroupContent& content) {
  sortUnique(content.v4, [](const V4Match& a, const V4Match& b) {
    return std::tie(a.address, a.wildcard) < std::tie(b.address, b.wildcard);
  });
  sortUnique(content.v6, [](const V6Match& a, const V6Match& b) {
    return std::tie(a.address, a.prefixLength) < std::tie(b.address, b.prefixLength);
  });
  content.ports = normalized(std::move(content.ports));
  mergeServices(content.services);
}

} // namespace agent
