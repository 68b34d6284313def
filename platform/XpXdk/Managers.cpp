#include "XpXdk/Managers.h"

#include <utility>

namespace XpXdk {

namespace {
xpDeviceMgr* installedDeviceMgr = nullptr;
xpAclPl* installedAclPl = nullptr;
xpIfPl* installedIfPl = nullptr;
uint32_t lastPlMgrId = 0;
} // namespace

xpDeviceMgr* xpDeviceMgr::instance() {
  return installedDeviceMgr;
}
xpDeviceMgr* xpDeviceMgr::install(xpDeviceMgr* mgr) {
  return std::exchange(installedDeviceMgr, mgr);
}

uint32_t getNewPlMgrId() {
  return ++lastPlMgrId;
}

xpAclPl* xpAclPl::instance() {
  return installedAclPl;
}
xpAclPl* xpAclPl::install(xpAclPl* pl) {
  return std::exchange(installedAclPl, pl);
}

xpIfPl* xpIfPl::instance() {
  return installedIfPl;
}
xpIfPl* xpIfPl::install(xpIfPl* pl) {
  return std::exchange(installedIfPl, pl);
}

} // namespace XpXdk
