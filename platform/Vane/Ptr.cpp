#include "Vane/Ptr.h"

#include "Vane/Notification.h"
#include "Vane/Type.h"

#include <algorithm>
#include <new>

bool VFPtrInterface::threadSafePointers = false;

namespace Vane {

namespace {
// While an object is destroyed, pointers to it may come and go without destroying it again.
constexpr U32 dying = 0x40000000;
} // namespace

const PtrInterface::NotifieeList PtrInterface::nobody_;

PtrInterface::~PtrInterface() {
  VANE_ASSERT_TEXT(notifieeList_ == nullptr, "notifieeList().empty()");
}

void PtrInterface::handleZeroRef() {
  references_ = dying;
  vaneDoZombieReactors(true);
  delete this;
}

void PtrInterface::hasNotificationActiveIs(bool active) {
  flagIs(flagNotificationActive, active);
}

void PtrInterface::vaneDoZombieReactors(bool zombie) {
  vaneMarkedForDeletionIs(zombie);
}

void PtrInterface::notifieeAdd(NotifieeConst* notifiee) const {
  if (notifieeList_ == nullptr) {
    notifieeList_ = std::make_unique<NotifieeList>();
  }
  notifieeList_->push_back(notifiee);
}

void PtrInterface::notifieeRemove(NotifieeConst* notifiee) const {
  std::erase(*notifieeList_, notifiee);
  if (notifieeList_->empty()) {
    notifieeList_.reset();
  }
}

const Type& PtrInterface::vaneType() {
  static const Type& type = Type::define("Vane::PtrInterface", typeid(PtrInterface), nullptr, [](Type&) {});
  return type;
}

const Type& PtrInterface::fwkType() const {
  return vaneType();
}

void* PtrInterface::vaneMemAlloc(std::size_t size) {
  return ::operator new(size);
}

void PtrInterface::vaneMemFree(void* memory) noexcept {
  ::operator delete(memory);
}

} // namespace Vane
