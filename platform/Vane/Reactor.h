#pragma once

#include "Vane/Entity.h"
#include "Vane/Macros.h"
#include "Vane/Notification.h"
#include "Vane/Ptr.h"

#include <utility>

// State machines: objects that watch shared entities, each through an inner reactor.
//
//   class ChipHwAclIdSm : public Vane::PtrInterface {
//   public:
//     VANE_STATE_MACHINE(XpAcl, ChipHwAclIdSm, Vane::PtrInterface, ...attributes as of VANE_ENTITY...)
//     VANE_REACTOR(ChipHwAclIdSm, ChipHwAclIdMap, chipHwAclIdMap, ChipHwAclIdMap,
//                  ON_KEYED(IngressPortAclIdEn, Ovnet::IntfId),
//                  ON_KEYED(IngressRouteAclIdEn, Bridging::VlanId))
//     VANE_REACTORS(chipHwAclIdMap)
//     void handleIngressPortAclIdEn(const Ovnet::IntfId& intf);   // one member changed
//     void handleIngressPortAclIdEn();                            // look at all of them
//     ...
//     void vaneConstructed();   // attach the reactors here: the object is complete and held
//   };
//
// VANE_REACTOR(Owner, Watched, foo, Foo, handlers...) makes the reactor class VaneFoo and
//   foo()        the watched entity, read-only, or null
//   fooIs(ptr)   watches it. A new entity is attached and registered, then the key-less handlers run
//                in the order in which they are named (name them in the order in which Watched
//                declares its attributes); the entity that is watched already changes nothing
//   fooDel()     stops watching
// VANE_REACTOR_RW is the same for an entity that the owner also writes. The handlers are
//   ON_KEYED(Foo, Key)             onFoo(key) calls handleFoo(key); onFoovaneImmediate() and a new
//                                  notifier call handleFoo()
//   ON_KEYED_AS(Foo, Key, handler) the same with a handler of another name
//   ON_SCALAR(Foo)                 onFoo() calls handleFoo()
//   ON_SCALAR_AS(Foo, handler)
// VANE_REACTORS names the reactors of the class, not those of its bases, in their order; it may be
// empty, but a state machine has it.

namespace Vane {

// Keeps the owner of a reactor alive while one of its handlers runs. An owner that is still being
// constructed has no references yet and is left alone.
class OwnerHold {
public:
  explicit OwnerHold(const PtrInterface* owner) : owner_(owner->references() != 0 ? owner : nullptr) {
    if (owner_ != nullptr) {
      owner_->referencesInc();
    }
  }
  ~OwnerHold() {
    if (owner_ != nullptr) {
      owner_->referencesDec();
    }
  }
  OwnerHold(const OwnerHold&) = delete;
  OwnerHold& operator=(const OwnerHold&) = delete;

private:
  const PtrInterface* owner_;
};

// A state machine's hold on one of its reactors. Queued notifications may keep the reactor longer
// than the machine, so giving it up makes it a zombie first.
template <typename Reactor>
class ReactorHolder {
public:
  ReactorHolder() = default;
  ReactorHolder(const ReactorHolder&) = delete;
  ReactorHolder& operator=(const ReactorHolder&) = delete;
  ~ReactorHolder() { del(); }

  const Ptr<Reactor>& reactor() const { return reactor_; }

  template <typename Owner, typename Watched>
  void is(Owner& owner, const Ptr<Watched const>& watched) { // watches it; null changes nothing at first
    if (!reactor_) {
      if (!watched) {
        return;
      }
      reactor_ = Ptr<Reactor>(new Reactor(owner));
      reactor_->hasNotificationActiveIs(owner.hasNotificationActive());
      reactor_->vaneDoZombieReactors(owner.vaneMarkedForDeletion());
    }
    // A handler of the first pass may drop or re-target the reactor.
    const Ptr<Reactor> hold(reactor_);
    hold->notifierIs(watched);
  }

  void del() { // stops watching
    if (const Ptr<Reactor> reactor = std::move(reactor_)) {
      reactor->vaneDoZombieReactors(true);
      reactor->notifierIs(nullptr);
    }
  }

private:
  Ptr<Reactor> reactor_;
};

} // namespace Vane

// clang-format off

#define VANE_STATE_MACHINE(NS, CLS, BASE, ...)                                                     \
  VANE_ENTITY(NS, CLS, BASE, __VA_ARGS__)                                                          \
  void hasNotificationActiveIs(bool active) override {                                             \
    if (active == hasNotificationActive()) {                                                       \
      return;                                                                                      \
    }                                                                                              \
    BASE::hasNotificationActiveIs(active);                                                         \
    vaneEachReactor([active](auto& reactor) { reactor.hasNotificationActiveIs(active); });         \
    VaneSelf::vaneChildrenActiveIs(active);                                                        \
  }                                                                                                \
  void vaneDoZombieReactors(bool zombie) override {                                                \
    if (zombie == vaneMarkedForDeletion()) {                                                       \
      return;                                                                                      \
    }                                                                                              \
    vaneEachReactor([zombie](auto& reactor) { reactor.vaneDoZombieReactors(zombie); });            \
    BASE::vaneDoZombieReactors(zombie);                                                            \
    vaneMarkedForDeletionIs(zombie);                                                               \
  }

#define VANE_REACTORS(...)                                                                         \
  template <typename Visit>                                                                        \
  void vaneEachReactor([[maybe_unused]] Visit visit) {                                             \
    VANE_FOR_EACH(VANE_REACTOR_VISIT, __VA_ARGS__)                                                 \
  }
#define VANE_REACTOR_VISIT(foo)                                                                    \
  if (const auto reactor = foo##Reactor_.reactor()) {                                              \
    visit(*reactor);                                                                               \
  }

#define VANE_REACTOR(OWNER, WATCHED, foo, Foo, ...)                                                \
  VANE_REACTOR_CLASS(OWNER, WATCHED, Foo, __VA_ARGS__)                                             \
  VANE_REACTOR_ATTRIBUTE(WATCHED, WATCHED const, foo, Foo)

#define VANE_REACTOR_RW(OWNER, WATCHED, foo, Foo, ...)                                             \
  VANE_REACTOR_CLASS(OWNER, WATCHED, Foo, __VA_ARGS__)                                             \
  VANE_REACTOR_ATTRIBUTE(WATCHED, WATCHED, foo, Foo)

#define VANE_REACTOR_CLASS(OWNER, WATCHED, Foo, ...)                                               \
  class Vane##Foo : public WATCHED::NotifieeConst {                                                \
  public:                                                                                          \
    explicit Vane##Foo(OWNER& owner) : owner_(&owner) {}                                           \
    VANE_FOR_EACH(VANE_HANDLER, __VA_ARGS__)                                                       \
                                                                                                   \
  protected:                                                                                       \
    void vaneNotifierIs(const ::Vane::Ptr<::Vane::PtrInterface const>& watched) override {         \
      if (!this->vaneAttach(watched) || !watched) {                                                \
        return;                                                                                    \
      }                                                                                            \
      const ::Vane::OwnerHold hold(owner_);                                                        \
      VANE_FOR_EACH(VANE_PASS, __VA_ARGS__)                                                        \
      if (this->vaneStillOn(watched)) {                                                            \
        this->isRegisteredNotifieeIs(true);                                                        \
      }                                                                                            \
    }                                                                                              \
                                                                                                   \
  private:                                                                                         \
    OWNER* owner_;                                                                                 \
  };

// A reactor is given only pointers of the access that its owner has, so casting back is sound.
#define VANE_REACTOR_ATTRIBUTE(WATCHED, SEEN, foo, Foo)                                            \
  ::Vane::Ptr<SEEN> foo() const {                                                                  \
    const auto& reactor = foo##Reactor_.reactor();                                                 \
    return reactor ? const_cast<SEEN*>(static_cast<WATCHED const*>(reactor->vaneNotifier()))       \
                   : nullptr;                                                                      \
  }                                                                                                \
  void foo##Is(const ::Vane::Ptr<SEEN>& watched) {                                                 \
    foo##Reactor_.is(*this, ::Vane::Ptr<WATCHED const>(watched));                                  \
  }                                                                                                \
  void foo##Del() { foo##Reactor_.del(); }                                                         \
private:                                                                                           \
  ::Vane::ReactorHolder<Vane##Foo> foo##Reactor_;                                                  \
public:

#define VANE_HANDLER(line) VANE_HANDLER_##line
#define VANE_HANDLER_CALL(...)                                                                     \
  if (!this->vaneMarkedForDeletion()) {                                                            \
    const ::Vane::OwnerHold hold(owner_);                                                          \
    owner_->__VA_ARGS__;                                                                           \
  }
#define VANE_HANDLER_ON_KEYED(Foo, Key) VANE_HANDLER_ON_KEYED_AS(Foo, Key, handle##Foo)
#define VANE_HANDLER_ON_KEYED_AS(Foo, Key, handler)                                                \
  void on##Foo(const Key& key) override { VANE_HANDLER_CALL(handler(key)) }                        \
  void on##Foo##vaneImmediate() override { VANE_HANDLER_CALL(handler()) }
#define VANE_HANDLER_ON_SCALAR(Foo) VANE_HANDLER_ON_SCALAR_AS(Foo, handle##Foo)
#define VANE_HANDLER_ON_SCALAR_AS(Foo, handler)                                                    \
  void on##Foo() override { VANE_HANDLER_CALL(handler()) }

#define VANE_PASS(line) VANE_PASS_##line
#define VANE_PASS_ON_KEYED(Foo, Key) VANE_PASS_ON_KEYED_AS(Foo, Key, handle##Foo)
#define VANE_PASS_ON_KEYED_AS(Foo, Key, handler)                                                   \
  if (this->vaneStillOn(watched)) {                                                                \
    owner_->handler();                                                                             \
  }
#define VANE_PASS_ON_SCALAR(Foo)
#define VANE_PASS_ON_SCALAR_AS(Foo, handler)

// clang-format on
