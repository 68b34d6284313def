#include "agent/config/OpenConfigEntry.h"

#include "agent/config/Addresses.h"
#include "agent/config/ConfigReader.h"
#include "agent/config/Names.h"
#include "agent/config/OpenConfigEntryParts.h"

namespace agent::openconfig {

namespace {

constexpr const char* unknownReason =
    "this is no container of an entry that is known here, and the entry would match more packets without it; "
    "leave it out or correct it";

class EntryParser {
public:
  EntryParser(const JsonValue& value, const Place& place, const EntryContext& context, Problems& problems)
      : context_(context), problems_(problems), entry_(value, place, problems) {}

  void parse(Rule& rule);

private:
  bool isIp() const { return context_.family != Family::mac; }
  bool isV6() const { return context_.family == Family::ipv6; }
  void takeActions(Rule& rule);
  void refuseForeign(const char* name, const std::string& why);
  void refuseForeignHeaders();
  void build(Rule& rule);
  std::string textOf(const Rule& rule) const;

  const EntryContext& context_;
  Problems& problems_;
  Container entry_;
  EntryMatch match_;
};

void EntryParser::parse(Rule& rule) {
  const size_t errors = problems_.errors();
  if (!entry_.isObject())
    return;
  entry_.pass({"sequence-id", "description"});
  takeActions(rule);
  refuseForeignHeaders();
  if (isIp()) {
    readIp(entry_, isV6(), context_.sets, problems_, match_);
    readTransport(entry_, isV6(), rule.permit, context_.sets, problems_, match_);
  } else {
    readL2(entry_, problems_, match_);
  }
  entry_.refuseRest(unknownReason);
  if (problems_.errors() == errors)
    build(rule);
}

void EntryParser::takeActions(Rule& rule) {
  const Member* const actions = entry_.take("actions");
  if (actions == nullptr) {
    problems_.refuse(entry_.value(), entry_.place(),
                     "the entry has no actions, so that nobody can tell what it does; write "
                     "\"actions\": {\"config\": {\"forwarding-action\": \"DROP\"}} or ACCEPT");
    return;
  }
  Container container(*actions->value, actions->place, problems_);
  const Member* const forwarding = container.take("forwarding-action");
  const Member* const log = container.take("log-action");
  container.refuseRest(
      "a row permits or denies, and can be logged, but does nothing else with a packet; leave this out");
  const std::string_view action = forwarding == nullptr ? "" : withoutModule(forwarding->value->text);
  if (forwarding == nullptr && container.isObject())
    problems_.refuse(*actions->value, actions->place,
                     "the forwarding-action is missing; write ACCEPT or DROP");
  else if (action == "REJECT")
    problems_.warn(*forwarding->value, forwarding->place,
                   "a row drops the packet and sends no answer, so that REJECT is read as DROP; write DROP");
  else if (forwarding != nullptr && action != "ACCEPT" && action != "DROP")
    problems_.refuse(*forwarding->value, forwarding->place,
                     describe(*forwarding->value) +
                         " is no action of an entry; write ACCEPT, DROP or REJECT");
  rule.permit = action == "ACCEPT";
  const std::string_view logging = log == nullptr ? "LOG_NONE" : withoutModule(log->value->text);
  if (logging != "LOG_NONE" && logging != "LOG_SYSLOG")
    problems_.refuse(*log->value, log->place,
                     describe(*log->value) + " is no way of logging; write LOG_SYSLOG or LOG_NONE");
  rule.log = logging == "LOG_SYSLOG";
}

// A container that may stand there when it is empty.
void EntryParser::refuseForeign(const char* name, const std::string& why) {
  const Member* const member = entry_.take(name);
  if (member != nullptr && saysSomething(*member->value))
    problems_.refuse(*member->value, member->place, why);
}

void EntryParser::refuseForeignHeaders() {
  refuseForeign("mpls", "a row does not compare MPLS labels; leave the container out");
  refuseForeign(
      "input-interface",
      "a row does not compare the interface that a packet came in by; apply the set at this interface "
      "in /acl/interfaces instead");
  const std::string wrong = " in a set of type " + std::string(setTypeName(context_.type));
  if (!isIp()) {
    for (const char* const name : {"ipv4", "ipv6", "transport"})
      refuseForeign(name,
                    "a row compares either MAC addresses and the EtherType or what is in the IP packet, "
                    "and this stands" +
                        wrong + "; move the entry to a set of type ACL_IPV4 or ACL_IPV6");
    return;
  }
  refuseForeign("l2",
                "a row compares either MAC addresses and the EtherType or what is in the IP packet, and "
                "this stands" +
                    wrong + "; move the entry to a set of type ACL_L2");
  // In a mixed set an entry of both would match no packet at all.
  const char* const other = isV6() ? "ipv4" : "ipv6";
  refuseForeign(other, std::string("no packet is ") + (isV6() ? "IPv6 and IPv4" : "IPv4 and IPv6") +
                           " at once, and this stands" + wrong +
                           "; leave the container out, or move the entry to a set of its type");
}

void EntryParser::build(Rule& rule) {
  if (!isIp()) {
    rule.alternatives.push_back(match_.base);
    rule.text = textOf(rule);
    return;
  }
  const size_t sources = isV6() ? match_.v6Sources.size() : match_.v4Sources.size();
  const size_t destinations = isV6() ? match_.v6Destinations.size() : match_.v4Destinations.size();
  const uint64_t count = uint64_t{sources} * destinations;
  if (count > maxLineAlternatives || !context_.budget.take(count - 1)) {
    problems_.refuse(entry_.value(), entry_.place(),
                     "the prefix sets of this entry stand for " + std::to_string(count) +
                         " combinations, which is more than there are rows; use smaller sets");
    return;
  }
  rule.alternatives.reserve(count);
  for (size_t i = 0; i < sources; ++i)
    for (size_t j = 0; j < destinations; ++j) {
      Criteria& made = rule.alternatives.emplace_back(match_.base);
      if (isV6()) {
        made.srcV6 = match_.v6Sources[i];
        made.dstV6 = match_.v6Destinations[j];
      } else {
        made.srcV4 = match_.v4Sources[i];
        made.dstV4 = match_.v4Destinations[j];
      }
    }
  rule.text = textOf(rule);
}

// An address in the words of configuration text: what stands between the protocol and the destination.
std::string addressText(Family family, const V4Match& v4, const V6Match& v6) {
  Criteria criteria;
  criteria.srcV4 = v4;
  criteria.srcV6 = v6;
  const std::string text = agent::describe(criteria, family);
  const size_t first = text.find(' ') + 1;
  return text.substr(first, text.rfind(' ') - first);
}

// The entry in the words of configuration text, sets by their names.
std::string EntryParser::textOf(const Rule& rule) const {
  std::string text = agent::describe(isIp() ? match_.base : rule.alternatives.front(), context_.family);
  if (isIp()) {
    const std::string source =
        match_.sourceSet.empty()
            ? addressText(context_.family, match_.v4Sources.front(), match_.v6Sources.front())
            : "prefix-set " + match_.sourceSet;
    const std::string destination =
        match_.destinationSet.empty()
            ? addressText(context_.family, match_.v4Destinations.front(), match_.v6Destinations.front())
            : "prefix-set " + match_.destinationSet;
    // Without addresses both sides are any, and nothing else is.
    constexpr std::string_view any = " any";
    const size_t second = text.rfind(any);
    text.replace(second + 1, any.size() - 1, destination);
    text.replace(text.find(any) + 1, any.size() - 1, source);
  }
  return (rule.permit ? "permit " : "deny ") + text + (rule.log ? " log" : "");
}

} // namespace

void parseEntry(const JsonValue& value, const Place& place, const EntryContext& context, Problems& problems,
                Rule& rule) {
  EntryParser(value, place, context, problems).parse(rule);
}

EntryFamilies familiesOf(const JsonValue& entry) {
  bool v4 = false;
  bool v6 = false;
  for (const JsonValue& child : entry.children) {
    const std::string_view name = withoutModule(child.name);
    v4 = v4 || (name == "ipv4" && saysSomething(child));
    v6 = v6 || (name == "ipv6" && saysSomething(child));
  }
  return v4 || v6 ? EntryFamilies{v4, v6} : EntryFamilies{};
}

} // namespace agent::openconfig
