#include "agent/config/AddressParser.h"

namespace agent {

namespace {

bool isAddressGroup(GroupKind kind) {
  return kind == GroupKind::network || kind == GroupKind::address;
}

class IpAddressParser {
public:
  IpAddressParser(Cursor& cursor, const EntryContext& context, const char* side, Findings& findings,
                  AddressSet& addresses)
      : cursor_(cursor), context_(context), side_(side), findings_(findings), addresses_(addresses),
        v6_(context.family == Family::ipv6) {}

  bool take() {
    if (cursor_.takeWord("any"))
      return true;
    if (cursor_.takeWord("host"))
      return takeHost();
    if (cursor_.at("object-group") || cursor_.at("addrgroup"))
      return takeAddressGroup();
    const Token token = cursor_.take();
    if (token.text.find('/') != std::string_view::npos)
      return takePrefix(token);
    return v6_ ? takeV6(token) : takeV4(token);
  }

private:
  bool takeHost();
  bool takeAddressGroup();
  bool takePrefix(const Token& token);
  bool takeV4(const Token& token);
  bool takeV6(const Token& token);
  // `part` is what of the word should have been an address.
  bool refuseNoAddress(const Token& token, std::string_view part);

  Cursor& cursor_;
  const EntryContext& context_;
  const char* side_;
  Findings& findings_;
  AddressSet& addresses_;
  bool v6_;
};

bool IpAddressParser::refuseNoAddress(const Token& token, std::string_view part) {
  const std::string needed = std::string("a ") + side_ + " address is needed here";
  const std::string forms =
      v6_ ? "write any, host A or A/length" : "write any, host A, A and its wildcard, or A/length";
  if (token.text.empty())
    return findings_.refuse(token, needed + "; " + forms);
  if (v6_ ? v4FromText(part).has_value() : v6FromText(part).has_value())
    return findings_.refuse(
        token, v6_ ? "an IPv6 list has IPv6 addresses only; write IPv4 lines in an ip access-list"
                   : "an IPv4 list has IPv4 addresses only; write IPv6 lines in an ipv6 "
                     "access-list");
  if (isPortOperator(token.text))
    return findings_.refuse(token, needed + ", before its ports; " + forms);
  if (sameWord(token.text, "any4") || sameWord(token.text, "any6"))
    return findings_.refuse(token, "a list has one address family only; write any");
  if (sameWord(token.text, "object") || sameWord(token.text, "interface"))
    return findings_.refuse(token, needed + ", named objects and interfaces are not looked up; " + forms +
                                       ", or object-group with the name of a group");
  return findings_.refuse(token, needed + ", and this is none; " + forms);
}

bool IpAddressParser::takeHost() {
  const Token token = cursor_.take();
  if (v6_) {
    const auto address = v6FromText(token.text);
    if (!address)
      return findings_.refuse(
          token, "behind host an IPv6 address is needed, names are not resolved; write host A, or "
                 "any for every address");
    addresses_.v6 = {*address, 128};
    return true;
  }
  const auto address = v4FromText(token.text);
  if (!address)
    return findings_.refuse(token,
                            "behind host an IPv4 address is needed, names are not resolved; write host A, or "
                            "any for every address");
  addresses_.v4 = {*address, 0};
  return true;
}

bool IpAddressParser::takeAddressGroup() {
  cursor_.skip(1);
  const Token name = cursor_.peek();
  addresses_.group = takeGroup(cursor_, context_, findings_, isAddressGroup, "addresses");
  if (addresses_.group == nullptr)
    return false;
  if (addresses_.size(v6_) == 0)
    return findings_.refuse(name, v6_ ? "this object group has no IPv6 address; an IPv6 list needs one"
                                      : "this object group has no IPv4 address; an IPv4 list needs one");
  return true;
}

bool IpAddressParser::takePrefix(const Token& token) {
  const size_t slash = token.text.find('/');
  const std::string_view address = token.text.substr(0, slash);
  const std::string_view length = token.text.substr(slash + 1);
  if (v6_) {
    const auto v6 = v6FromText(address);
    if (!v6)
      return refuseNoAddress(token, address);
    const auto bits = decimal(length, 128);
    if (!bits)
      return findings_.refuse(token, "the prefix length of an IPv6 address is a number from 0 to 128");
    addresses_.v6 = v6Match(*v6, static_cast<uint8_t>(*bits));
    return true;
  }
  const auto v4 = v4FromText(address);
  if (!v4)
    return refuseNoAddress(token, address);
  const auto bits = decimal(length, 32);
  if (!bits)
    return findings_.refuse(token, "the prefix length of an IPv4 address is a number from 0 to 32");
  addresses_.v4 = v4Match(*v4, v4Wildcard(*bits));
  return true;
}

bool IpAddressParser::takeV6(const Token& token) {
  const auto address = v6FromText(token.text);
  if (!address)
    return refuseNoAddress(token, token.text);
  addresses_.v6 = {*address, 128};
  return true;
}

bool IpAddressParser::takeV4(const Token& token) {
  const auto address = v4FromText(token.text);
  if (!address)
    return refuseNoAddress(token, token.text);
  const Token maskToken = cursor_.peek();
  const auto wildcard = v4FromText(maskToken.text);
  if (!wildcard) {
    addresses_.v4 = {*address, 0};
    return true;
  }
  addresses_.wildcard = cursor_.take();
  addresses_.v4 = v4Match(*address, *wildcard);
  // A netmask in the place of a wildcard leaves nothing of the address but zeros.
  const bool netmask = *wildcard != 0 && *wildcard != 0xFFFFFFFF && prefixLengthOf(~*wildcard).has_value();
  if (netmask && addresses_.v4.address == 0 && *address != 0)
    findings_.warn(maskToken,
                   "this looks like a netmask, but a wildcard stands here, in which a bit of 1 is ignored; "
                   "write " +
                       v4Text(~*wildcard) + " to compare what the netmask covers");
  return true;
}

} // namespace

const GroupContent* takeGroup(Cursor& cursor, const EntryContext& context, Findings& findings,
                              bool (*mayBe)(GroupKind), const char* what) {
  const Token name = cursor.take();
  if (name.text.empty() || context.groups == nullptr || !context.groups->has(name.text)) {
    NearestWord nearest(name.text);
    if (context.groups != nullptr)
      context.groups->offerNames(nearest);
    findings.refuse(name, "there is no object group of this name; define it with object-group" +
                              nearest.suggestion());
    return nullptr;
  }
  const std::string place = "line " + std::to_string(context.groups->line(name.text));
  const GroupContent& content =
      context.groups->content(name.text, context.family == Family::ipv6, context.applied);
  const GroupKind kind = context.groups->kind(name.text);
  if (kind != GroupKind::unsupported && !mayBe(kind)) {
    findings.refuse(name, std::string("a group of ") + what + " is needed here, and " + place +
                              " defines this one as another kind");
    return nullptr;
  }
  if (!content.readable) {
    findings.refuse(name, "this object group is empty or cannot be read; mend its definition in " + place);
    return nullptr;
  }
  return &content;
}

bool takeIpAddress(Cursor& cursor, const EntryContext& context, const char* side, Findings& findings,
                   AddressSet& addresses) {
  return IpAddressParser(cursor, context, side, findings, addresses).take();
}

} // namespace agent
