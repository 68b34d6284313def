#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <map>
#include <string>
#include <vector>

// Recomputes from scratch what the books promise.

namespace XpAcl {

namespace {

// Who uses each row of one table.
using RowUsers = std::map<Vane::U32, unsigned>;

void countRows(const TcamIdxMapping& mapping, std::map<TcamType, RowUsers>& users) {
  const Plex::AclKey& key = mapping.aclKeyInfo().aclKey();
  RowUsers& table = users[getTcamType(key.direction(), key.aclType())];
  for (const auto& placed : mapping.tcamIdxAll()) {
    ++table[placed.value()];
  }
}

} // namespace

std::vector<std::string> XpAclPlexAggregatorHelper::audit() const {
  std::vector<std::string> broken;
  std::map<TcamType, RowUsers> users;
  for (const auto& version : programmedAclKeyInfoToIdxAll()) {
    countRows(*version.ptr(), users);
  }
  for (const auto& pending : pendingTcamMappingAll()) {
    for (const auto& version : pending.ptr()->pendingAclKeyInfoToIdxAll()) {
      countRows(*version.ptr(), users);
      if (programmedAclKeyInfoToIdxHas(version.key())) {
        broken.push_back(std::string("version ") + valueToStrep(version.key()).charPtr() +
                         " is both staged and programmed");
      }
    }
  }
  for (const auto& entry : tcamIdxAllocatorAll()) {
    const TcamTableInfo& table = tcamTable(entry.key());
    const Vane::U32 max = xpAclTcamLimit()->maxTcamIdx(entry.key());
    auditTable(table, max, *entry.ptr(), users[entry.key()], broken);
  }
  return broken;
}

void XpAclPlexAggregatorHelper::auditTable(const TcamTableInfo& table, Vane::U32 max,
                                           const TcamIdxAllocator& pool,
                                           const std::map<Vane::U32, unsigned>& users,
                                           std::vector<std::string>& broken) const {
  const auto say = [&](Vane::U32 row, const char* what) {
    broken.push_back(std::string(table.tableName) + " row " + std::to_string(row) + " " + what);
  };
  for (const auto& user : users) {
    if (user.first >= max) {
      say(user.first, "is mapped but beyond the table");
    }
  }
  for (const auto& free : pool.freeTcamIdxAll()) {
    if (free.key() >= max) {
      say(free.key(), "is free but beyond the table");
    }
  }
  for (Vane::U32 row = 0; row < max; ++row) {
    const bool free = pool.freeTcamIdx(row);
    const auto user = users.find(row);
    const unsigned mapped = user == users.end() ? 0 : user->second;
    const unsigned isDefault = row == max - 1 ? 1 : 0;
    const unsigned claims = (free ? 1 : 0) + mapped + isDefault;
    if (claims == 0) {
      say(row, "is neither free nor mapped");
    } else if (claims > 1) {
      say(row, isDefault != 0 ? "holds the default entry and is claimed" : "is claimed more than once");
    }
    OvIaclKey key(table.keyType);
    XpXdk::xpIaclData_t data;
    Vane::U32 isValid = 0;
    const auto status =
        iaclMgr()->readEntry(xpDevId().value(), table.table, row, isValid, &key.sdkKey, &data, 0);
    if (status != XpXdk::statusOk) {
      say(row, "cannot be read back");
    } else if (free && isValid != 0) {
      say(row, "is free but valid in the chip");
    } else if (isDefault != 0 && isValid == 0) {
      say(row, "holds the default entry but is not valid in the chip");
    }
  }
}

} // namespace XpAcl
