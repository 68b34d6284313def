#include "agent/config/ProtocolParser.h"

namespace agent {

namespace {

bool refuseUnknown(const Token& token, Findings& findings) {
  if (token.text.empty())
    return findings.refuse(token, "the protocol is missing; write ip, tcp, udp, icmp or a number");
  if (const char* reason = pseudoProtocolReason(token.text))
    return findings.refuse(token, reason);
  NearestWord nearest(token.text);
  offerProtocols(nearest);
  nearest.offer("ip");
  return findings.refuse(token,
                         "this is no protocol that is known here; write its number" + nearest.suggestion());
}

bool takeAnyProtocol(const Token& token, bool v6, Findings& findings) {
  const bool isV6Word = sameWord(token.text, "ipv6");
  if (isV6Word == v6)
    return true;
  if (v6)
    return findings.refuse(token,
                           "an IPv6 list sees IPv6 packets only; write ipv6 for all of them, or 4 for IPv4 "
                           "packets carried in IPv6");
  return findings.refuse(token,
                         "an IPv4 list sees IPv4 packets only; write ip for all of them, or 41 for IPv6 "
                         "packets carried in IPv4");
}

bool takeProtocolNumber(const Token& token, Findings& findings, std::optional<uint8_t>& protocol) {
  const auto value = decimal(token.text, 255);
  if (!value)
    return findings.refuse(token, "protocol numbers end at 255; write one from 1 to 255");
  if (*value == 0)
    return findings.refuse(token,
                           "protocol 0 cannot be a criterion, because a row takes it for any protocol; write "
                           "ip or ipv6 when every packet is meant");
  protocol = static_cast<uint8_t>(*value);
  return true;
}

} // namespace

bool takeProtocol(Cursor& cursor, bool v6, Findings& findings, std::optional<uint8_t>& protocol) {
  const Token token = cursor.take();
  protocol.reset();
  if (allDigits(token.text))
    return takeProtocolNumber(token, findings, protocol);
  if (sameWord(token.text, "ip") || sameWord(token.text, "ipv4") || sameWord(token.text, "ipv6"))
    return takeAnyProtocol(token, v6, findings);
  protocol = protocolFromName(token.text);
  if (!protocol)
    return refuseUnknown(token, findings);
  // Lists for IPv6 call ICMPv6 plainly icmp; ICMP itself does not occur in IPv6.
  if (v6 && sameWord(token.text, "icmp"))
    protocol = icmpProtocol(true);
  return true;
}

std::optional<IcmpName> takeIcmpType(Cursor& cursor, bool v6, Findings& findings) {
  const Token token = cursor.take();
  IcmpName result;
  if (allDigits(token.text)) {
    const auto type = decimal(token.text, 255);
    if (!type) {
      findings.refuse(token, "ICMP types end at 255; write a number from 0 to 255");
      return std::nullopt;
    }
    result.type = static_cast<uint8_t>(*type);
  } else if (const auto named = icmpFromName(token.text, v6)) {
    result = *named;
  } else {
    NearestWord nearest(token.text);
    offerIcmpNames(nearest, v6);
    findings.refuse(token,
                    std::string("this is no ") + (v6 ? "ICMPv6" : "ICMP") +
                        " type that is known here; write the number of the type, and of the code behind it" +
                        nearest.suggestion());
    return std::nullopt;
  }
  const Token codeToken = cursor.peek();
  if (result.code || !allDigits(codeToken.text))
    return result;
  cursor.skip(1);
  const auto code = decimal(codeToken.text, 255);
  if (!code) {
    findings.refuse(codeToken, "ICMP codes end at 255; write a number from 0 to 255");
    return std::nullopt;
  }
  result.code = static_cast<uint8_t>(*code);
  return result;
}

} // namespace agent
