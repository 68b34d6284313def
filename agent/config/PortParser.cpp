#include "agent/config/PortParser.h"

#include <array>
#include <utility>

namespace agent {

namespace {

const char* protocolWord(PortProtocols protocols) {
  switch (protocols) {
  case tcpPorts:
    return "TCP ";
  case udpPorts:
    return "UDP ";
  case sctpPorts:
    return "SCTP ";
  default:
    return "";
  }
}

// A list of ports goes on with numbers and names only, so that an option behind it ends it.
bool continuesPortList(const Cursor& cursor, PortProtocols protocols) {
  const std::string_view word = cursor.peek().text;
  return allDigits(word) || portFromText(word, protocols).has_value();
}

std::optional<PortSet> takePortList(Cursor& cursor, PortProtocols protocols, Findings& findings) {
  PortSet ports;
  do {
    const auto port = takePort(cursor, protocols, findings);
    if (!port)
      return std::nullopt;
    ports.push_back({*port, *port});
  } while (!cursor.atEnd() && continuesPortList(cursor, protocols));
  return normalized(std::move(ports));
}

std::optional<PortSet> takeRange(Cursor& cursor, PortProtocols protocols, Findings& findings) {
  const auto low = takePort(cursor, protocols, findings);
  if (!low)
    return std::nullopt;
  const Token last = cursor.peek();
  const auto high = takePort(cursor, protocols, findings);
  if (!high)
    return std::nullopt;
  if (*low > *high) {
    findings.refuse(last, "the range runs backwards from " + std::to_string(*low) + " to " +
                              std::to_string(*high) + "; write the lower port first");
    return std::nullopt;
  }
  return portRange(*low, *high);
}

} // namespace

bool isPortOperator(std::string_view word) {
  constexpr std::array<std::string_view, 5> operators = {"eq", "neq", "gt", "lt", "range"};
  for (const std::string_view candidate : operators)
    if (sameWord(word, candidate))
      return true;
  return false;
}

std::optional<uint16_t> portFromText(std::string_view word, PortProtocols protocols) {
  if (const auto value = decimal(word, 65535))
    return static_cast<uint16_t>(*value);
  if (word.empty() || !isLetter(word[0]))
    return std::nullopt;
  if (protocols != 0)
    return serviceFromName(word, protocols);
  for (const PortProtocols each : {tcpPorts, udpPorts, sctpPorts})
    if (const auto port = serviceFromName(word, each))
      return port;
  return std::nullopt;
}

std::optional<uint16_t> takePort(Cursor& cursor, PortProtocols protocols, Findings& findings) {
  const Token token = cursor.take();
  if (const auto port = portFromText(token.text, protocols))
    return port;
  if (token.text.empty()) {
    findings.refuse(token, "a port is missing; write a number from 0 to 65535 or the name of a service");
  } else if (allDigits(token.text)) {
    findings.refuse(token, "ports end at 65535; write a number from 0 to 65535");
  } else if (isServiceName(token.text)) {
    findings.refuse(token, std::string("this is no ") + protocolWord(protocols) +
                               "service, or not the same port for all protocols of the line; write the "
                               "number of the port");
  } else {
    NearestWord nearest(token.text);
    offerServices(nearest, protocols);
    findings.refuse(token, std::string("this is no ") + protocolWord(protocols) +
                               "service that is known here; write the number of the port" +
                               nearest.suggestion());
  }
  return std::nullopt;
}

std::optional<PortSet> takePortExpression(Cursor& cursor, PortProtocols protocols, Findings& findings) {
  const Token token = cursor.take();
  if (sameWord(token.text, "eq"))
    return takePortList(cursor, protocols, findings);
  if (sameWord(token.text, "range"))
    return takeRange(cursor, protocols, findings);
  if (sameWord(token.text, "neq")) {
    const auto ports = takePortList(cursor, protocols, findings);
    return ports ? std::optional(complementOf(*ports)) : std::nullopt;
  }
  const bool greater = sameWord(token.text, "gt");
  if (!greater && !sameWord(token.text, "lt")) {
    findings.refuse(token, "a port expression starts with eq, neq, gt, lt or range");
    return std::nullopt;
  }
  const auto port = takePort(cursor, protocols, findings);
  if (!port)
    return std::nullopt;
  // "gt 65535" and "lt 0" hold for no port at all.
  if (greater)
    return portRange(uint32_t{*port} + 1, 65535);
  return *port == 0 ? PortSet{} : portRange(0, uint32_t{*port} - 1);
}

} // namespace agent
