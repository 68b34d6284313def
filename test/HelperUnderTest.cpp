#include "test/HelperUnderTest.h"

#include "test/Patterns.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

using namespace XpAcl;

HelperOptions allTables(Vane::U32 rows) {
  HelperOptions options;
  for (const TcamTableInfo& table : tcamTables) {
    options.rows[table.tcamType] = rows;
  }
  return options;
}

HelperUnderTest::HelperUnderTest(const HelperOptions& options)
    : helperInfo(plexAclAggregatorHelperInfoFactory()), aclIdMapping(aclIdMappingFactory()),
      paramConfig(Acl::paramConfigFactory()), blockedIntfColl(blockedIntfCollFactory()),
      limit(xpAclTcamLimitFactory()), systemStatus(XpSystem::systemStatusFactory()),
      partition(XpLib::tcamPartitionStatusFactory()), dal(Scribe::dalFactory(sdk.acm())) {
  sdk.numTableCopiesIs(options.copies);
  systemStatus->deviceTypeIs(options.deviceType);
  for (const auto& [feature, allocated] : options.partition) {
    partition->featureAllocationIs(feature, XpLib::FeatureAllocation(allocated));
  }
  for (const auto& [type, rows] : options.rows) {
    limit->maxTcamIdxIs(type, rows);
    sdk.numRowsIs(tcamTable(type).table, rows);
  }
  helper = xpAclPlexAggregatorHelperFactory(helperInfo, aclIdMapping, paramConfig, blockedIntfColl, limit,
                                            systemStatus, partition, dal);
  helper->xpDevIdIs(XpXdk::XpDeviceId(static_cast<Vane::U8>(options.device)));
  if (options.hwInit) {
    helper->hwInit();
    sdk.takeCalls();
  }
}

unsigned HelperUnderTest::stageV4(const AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data,
                                  unsigned ruleNum, unsigned subRuleNum, const Acl::IpFilter& filter,
                                  Acl::Action action, Vane::U64 uniqueId) {
  return helper->createIpAclCommonAggregate(info, Acl::ipv4, Acl::IpRuleConfig(filter, action, false),
                                            Acl::UniqueId(uniqueId), data, ruleNum, subRuleNum, false, 0, 0,
                                            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, false);
}

unsigned HelperUnderTest::stageV6(const AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data,
                                  unsigned ruleNum, const Acl::Ip6Filter& filter, Vane::U64 uniqueId) {
  return helper->createIpAclCommonAggregate(info, Acl::ipv6, Acl::Ip6RuleConfig(filter, Acl::permit, false),
                                            Acl::UniqueId(uniqueId), data, ruleNum, 0, false, 0, 0, 0, 0, 0,
                                            0, 0, 0, 0, 0, 0, 0, 0, false);
}

unsigned HelperUnderTest::stageMac(const AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data,
                                   unsigned ruleNum, const Acl::MacFilter& filter, Vane::U64 uniqueId) {
  return helper->createMacAclCommonAggregate(info, Acl::mac, Acl::MacRuleConfig(filter, Acl::permit, false),
                                             Acl::UniqueId(uniqueId), data, ruleNum, false);
}

unsigned HelperUnderTest::stageFinal(const AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data,
                                     unsigned ruleNum) {
  return helper->createFinalAclRulePlatform(info, info.aclKey().aclType(), data, ruleNum);
}

std::string HelperUnderTest::pool(TcamType type) const {
  const auto allocator = helper->tcamIdxAllocator(type);
  if (!allocator) {
    return "no pool";
  }
  std::string text;
  Vane::U32 first = 0;
  Vane::U32 last = 0;
  bool open = false;
  const auto close = [&] {
    if (open) {
      text += (text.empty() ? "" : ", ") + std::to_string(first) +
              (first == last ? "" : "-" + std::to_string(last));
    }
  };
  for (const auto& free : allocator->freeTcamIdxAll()) {
    if (!open || free.key() != last + 1) {
      close();
      first = free.key();
      open = true;
    }
    last = free.key();
  }
  close();
  return "{" + text + "}";
}

namespace {

std::string text(const Vane::String& string) {
  return std::string(string.view());
}

std::string text(const TcamAclRuleId& id) {
  return std::to_string(id.ruleNum()) + "." + std::to_string(id.subRuleNum());
}

void rules(std::set<std::string>& lines, const std::string& head, const TcamInfo& info) {
  for (const auto& rule : info.tcamRuleInfoAll()) {
    lines.insert(head + " rule " + text(info.aclKey().name()) + " " + text(rule.key()) +
                 (rule.ptr()->finalAclRule() ? " final" : "") + (rule.ptr()->count() ? " counted" : ""));
  }
  for (const auto& mapping : info.tcamRuleIdMappingAll()) {
    std::string line =
        head + " id " + text(info.aclKey().name()) + " #" + std::to_string(mapping.key().value()) + ":";
    for (const auto& rule : mapping.ptr()->ruleIdAll()) {
      line += " " + text(rule.key());
    }
    lines.insert(line);
  }
}

void placement(std::set<std::string>& lines, const std::string& head, const TcamIdxMapping& mapping) {
  const AclKeyInfo& info = mapping.aclKeyInfo();
  std::string line = head + " rows " + text(info.aclKey().name()) + " id " + std::to_string(info.aclId()) +
                     " type " + std::to_string(info.type()) + ":";
  for (const auto& placed : mapping.tcamIdxAll()) {
    line += " " + text(placed.key()) + "@" + std::to_string(placed.value());
  }
  lines.insert(line);
}

} // namespace

std::string HelperUnderTest::books() const {
  std::set<std::string> lines;
  for (const auto& acl : helper->programmedAclKeyToTcamInfoAll()) {
    rules(lines, "programmed", *acl.ptr());
  }
  for (const auto& version : helper->programmedAclKeyInfoToIdxAll()) {
    placement(lines, "programmed", *version.ptr());
  }
  for (const auto& pending : helper->pendingTcamMappingAll()) {
    const std::string head = "pending " + text(pending.key().name());
    for (const auto& acl : pending.ptr()->pendingAclKeyToTcamInfoAll()) {
      rules(lines, head, *acl.ptr());
    }
    for (const auto& version : pending.ptr()->pendingAclKeyInfoToIdxAll()) {
      placement(lines, head, *version.ptr());
    }
  }
  std::string joined;
  for (const std::string& line : lines) {
    joined += line + "\n";
  }
  return joined;
}

std::string HelperUnderTest::audit() const {
  std::string joined;
  for (const std::string& line : helper->audit()) {
    joined += line + "\n";
  }
  return joined;
}

Plex::AclKey aclKey(const char* name, Acl::AclDirection direction, Acl::AclType type) {
  return Plex::AclKey(name, direction, type, 1);
}

std::string aclKeyText(const char* name) {
  return std::string("Value('Plex::AclKey', ** {'name': '") + name +
         "', 'direction': ingress, 'aclType': ipv4, 'generation': 1})";
}

Vane::Ptr<Plex::AclData> aclData(const Plex::AclKey& key, bool countersEnabled) {
  const auto data = Plex::aclDataFactory(key);
  data->countersEnabledIs(countersEnabled);
  return data;
}

std::string deathOf(const std::function<void()>& action) {
  std::fflush(nullptr);
  int ends[2];
  if (::pipe(ends) != 0) {
    return "no pipe";
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    try {
      action();
    } catch (const std::exception& e) {
      std::fprintf(stderr, "exception: %s\n", e.what());
    }
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGABRT) {
    return "returned" + (text.empty() ? "" : ": " + text);
  }
  const std::string lineNumber = ":[0-9]+([: ])";
  const std::string signature = ": [^(\n]*?([A-Za-z0-9_~]+)\\([^\n]*\\)[^\n]*: Assertion ";
  return replaced(replaced(text, lineNumber, ":#$1"), signature, ": $1: Assertion ");
}

std::string thrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const Vane::RangeException& e) {
    return std::string("RangeException: ") + e.what();
  } catch (const Vane::ParseException& e) {
    return std::string("ParseException: ") + e.what();
  } catch (const std::exception& e) {
    return std::string("exception: ") + e.what();
  }
  return "nothing";
}

std::string writtenBy(const std::function<void(Vane::U32 fd)>& action) {
  std::FILE* const file = std::tmpfile();
  const int fd = ::fileno(file);
  action(static_cast<Vane::U32>(fd));
  std::string text;
  ::lseek(fd, 0, SEEK_SET);
  char buffer[65536];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
  }
  std::fclose(file);
  return text;
}

} // namespace test
