#include "Vane/Vane.h"
#include "test/Happened.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Demo {

using test::note;
using test::taken;

// What the machines watch.
class Ports : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Ports, Vane::PtrInterface, MAP(Vane::U32, int, ingress, Ingress),
              SET(Vane::U32, deviceId, DeviceId), SCALAR(bool, initialized, Initialized, false))
};
VANE_FACTORY(Ports, portsFactory)

class Blocked : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Blocked, Vane::PtrInterface, SET(Vane::U32, intf, Intf))
};
VANE_FACTORY(Blocked, blockedFactory)

// A machine with one read-only reactor; derived machines override its handlers.
class BaseSm : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, BaseSm, Vane::PtrInterface, CONST(Vane::String, name))
  VANE_REACTOR(BaseSm, Ports, ports, Ports, ON_KEYED(Ingress, Vane::U32),
               ON_KEYED_AS(DeviceId, Vane::U32, handleXpDevice), ON_SCALAR(Initialized))
  VANE_REACTORS(ports)

  explicit BaseSm(const Vane::String& name) : name_(name) {}
  ~BaseSm() override { note(std::string("~") + name_.charPtr()); }

  virtual void handleIngress(const Vane::U32& port) {
    note(name_.charPtr() + std::string(":") + std::to_string(port) + "=" +
         std::to_string(ports()->ingress(port)));
  }
  void handleIngress() {
    note(name_.charPtr() + std::string(":all"));
    for (const auto& member : ports()->ingressAll()) {
      handleIngress(member.key());
    }
  }
  void handleXpDevice(Vane::U32 device) {
    note(name_.charPtr() + std::string(":device") + std::to_string(device));
  }
  void handleXpDevice() { note(name_.charPtr() + std::string(":devices")); }
  void handleInitialized() { note(name_.charPtr() + std::string(":initialized")); }
};
VANE_FACTORY(BaseSm, baseSmFactory)

// Adds a reactor on an entity that it also writes, and does its first pass when it is whole.
class ChipSm : public BaseSm {
public:
  VANE_STATE_MACHINE(Demo, ChipSm, BaseSm, CONST(Vane::U32, chipId))
  VANE_REACTOR_RW(ChipSm, Blocked, blocked, Blocked, ON_KEYED(Intf, Vane::U32))
  VANE_REACTORS(blocked)
  VANE_CONSTRUCTOR_PARAMS((ports))

  ChipSm(Vane::U32 chipId, const Vane::Ptr<Ports const>& ports)
      : BaseSm(Vane::format("chip%u", chipId)), chipId_(chipId), given_(ports) {}
  void vaneConstructed() {
    portsIs(given_);
    blockedIs(blockedFactory());
  }
  void handleIngress(const Vane::U32& port) override {
    blocked() ? blocked()->intfIs(port, true) : note("early");
  }
  void handleIntf(Vane::U32 intf) { note(Vane::format("chip%u blocks %u", chipId(), intf).charPtr()); }
  void handleIntf() { note("chip looks"); }

private:
  Vane::Ptr<Ports const> given_;
};

class TopSm : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, TopSm, Vane::PtrInterface, CHILDREN(Vane::U32, ChipSm, chip, Chip))
  VANE_REACTORS()
};
VANE_FACTORY(TopSm, topSmFactory)

} // namespace Demo

namespace {

using namespace Demo;
using Vane::Ptr;

class VaneReactor : public testing::Test {
protected:
  VaneReactor() : ports(portsFactory()) { taken(); }
  Ptr<Ports> ports;
};

TEST_F(VaneReactor, FirstPassThenChanges) {
  ports->ingressIs(4, 40);
  ports->ingressIs(2, 20);
  const auto machine = baseSmFactory("m");
  EXPECT_TRUE(machine->ports() == nullptr);
  machine->portsIs(ports);
  EXPECT_TRUE(machine->ports() == ports);
  EXPECT_EQ(taken(), "m:all m:4=40 m:2=20 m:devices ");
  machine->portsIs(ports); // the one it watches already
  EXPECT_EQ(taken(), "");
  ports->ingressIs(4, 41);
  ports->ingressDel(2);
  ports->deviceIdIs(1, true);
  ports->initializedIs(true);
  ports->ingressNotify();
  EXPECT_EQ(taken(), "m:4=41 m:2=0 m:device1 m:initialized m:all m:4=41 ");
}

TEST_F(VaneReactor, RetargetAndDetach) {
  const auto machine = baseSmFactory("m");
  const auto other = portsFactory();
  other->ingressIs(9, 90);
  machine->portsIs(ports);
  taken();
  machine->portsIs(other);
  EXPECT_EQ(taken(), "m:all m:9=90 m:devices ");
  ports->ingressIs(1, 1);
  EXPECT_EQ(taken(), "");
  EXPECT_FALSE(ports->vaneHasNotifiees());
  machine->portsDel();
  machine->portsDel();
  EXPECT_TRUE(machine->ports() == nullptr);
  other->ingressIs(9, 91);
  EXPECT_EQ(taken(), "");
  machine->portsIs(nullptr);
  machine->portsIs(other);
  machine->portsIs(nullptr);
  EXPECT_TRUE(machine->ports() == nullptr);
  EXPECT_EQ(taken(), "m:all m:9=91 m:devices ");
}

TEST_F(VaneReactor, DerivedMachineOverridesAndWritesWhatItWatches) {
  ports->ingressIs(1, 1);
  const auto top = topSmFactory();
  top->chipIs(7, ports);
  EXPECT_EQ(taken(), "chip7:all early chip7:devices chip looks ");
  ports->ingressIs(1, 2);
  ports->ingressIs(1, 3); // blocked already
  EXPECT_EQ(taken(), "chip7 blocks 1 ");
  EXPECT_TRUE(top->chip(7)->blocked()->intf(1));
  EXPECT_THROW(top->chipIs(7, portsFactory()), Vane::NameInUseException);
}

TEST_F(VaneReactor, NotificationActiveReachesReactorsAndChildren) {
  const auto top = topSmFactory();
  top->chipIs(1, ports);
  taken();
  top->hasNotificationActiveIs(false);
  EXPECT_FALSE(top->chip(1)->hasNotificationActive());
  ports->ingressIs(1, 1);
  top->chip(1)->blocked()->intfIs(5, true);
  EXPECT_EQ(taken(), "");
  const auto late = top->chipIs(2, ports); // a child of an inactive machine is inactive
  taken();
  EXPECT_FALSE(late->hasNotificationActive());
  top->hasNotificationActiveIs(true);
  ports->deviceIdIs(3, true);
  EXPECT_EQ(taken(), "chip1:device3 chip2:device3 ");
  late->portsDel();
  late->hasNotificationActiveIs(false);
  late->portsIs(ports); // so is a reactor that it makes
  taken();
  ports->deviceIdIs(4, true);
  EXPECT_EQ(taken(), "chip1:device4 ");
}

TEST_F(VaneReactor, ZombiesDeliverNothingUntilTheyAreBroughtBack) {
  const auto top = topSmFactory();
  const auto chip = top->chipIs(1, ports);
  taken();
  chip->vaneDoZombieReactors(true);
  EXPECT_TRUE(chip->vaneMarkedForDeletion());
  ports->deviceIdIs(3, true);
  chip->blocked()->intfIs(5, true);
  EXPECT_EQ(taken(), "");
  chip->vaneDoZombieReactors(false);
  EXPECT_FALSE(chip->vaneMarkedForDeletion());
  ports->deviceIdIs(4, true);
  EXPECT_EQ(taken(), "chip1:device4 ");
}

TEST_F(VaneReactor, MachineThatDiesWithNotificationsQueuedIsNotCalled) {
  auto first = baseSmFactory("first");
  auto second = baseSmFactory("second");
  first->portsIs(ports);
  second->portsIs(ports);
  taken();
  {
    Vane::NotificationScope scope;
    ports->ingressIs(1, 1);
    second = nullptr;
    scope.close();
  }
  EXPECT_EQ(taken(), "~second first:1=1 ");
}

// The machine lives until its handler has returned, though the handler drops the last pointer.
class Suicidal : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, Suicidal, Vane::PtrInterface, SCALAR(int, last, Last, 0))
  VANE_REACTOR(Suicidal, Ports, ports, Ports, ON_KEYED(Ingress, Vane::U32))
  VANE_REACTORS(ports)
  explicit Suicidal(Ptr<Suicidal>* slot) : slot_(slot) {}
  ~Suicidal() override { note(Vane::format("died %d", last()).charPtr()); }
  void handleIngress(Vane::U32 port) {
    *slot_ = nullptr;
    lastIs(static_cast<int>(port));
    note("handled");
  }
  void handleIngress() {}

private:
  Ptr<Suicidal>* slot_;
};

TEST_F(VaneReactor, HandlerMayDropItsOwnMachine) {
  Ptr<Suicidal> slot;
  slot = Vane::Access::make<Suicidal>(&slot);
  slot->portsIs(ports);
  ports->ingressIs(6, 1);
  EXPECT_EQ(taken(), "handled died 6 ");
  EXPECT_FALSE(ports->vaneHasNotifiees());
}

// A first pass that drops its own reactor stops there.
class Fickle : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, Fickle, Vane::PtrInterface)
  VANE_REACTOR(Fickle, Ports, ports, Ports, ON_KEYED(Ingress, Vane::U32), ON_KEYED(DeviceId, Vane::U32))
  VANE_REACTORS(ports)
  void handleIngress(Vane::U32) {}
  void handleIngress() {
    note("drop");
    portsDel();
  }
  void handleDeviceId(Vane::U32) {}
  void handleDeviceId() { note("never"); }
};

TEST_F(VaneReactor, FirstPassMayDetach) {
  const auto machine = Vane::Access::make<Fickle>();
  machine->portsIs(ports);
  EXPECT_EQ(taken(), "drop ");
  EXPECT_TRUE(machine->ports() == nullptr);
}

// A constructor that throws leaves no reactor behind on the watched entity.
class Throwing : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, Throwing, Vane::PtrInterface)
  VANE_REACTOR(Throwing, Ports, ports, Ports, ON_KEYED(Ingress, Vane::U32))
  VANE_REACTORS(ports)
  explicit Throwing(const Ptr<Ports>& ports) : given_(ports) {}
  void vaneConstructed() {
    portsIs(given_);
    throw std::runtime_error("no chip");
  }
  void handleIngress(Vane::U32) { note("handled"); }
  void handleIngress() {}

private:
  Ptr<Ports> given_;
};

TEST_F(VaneReactor, FailedConstructionLeavesNothingAttached) {
  EXPECT_THROW(Vane::Access::make<Throwing>(ports), std::runtime_error);
  EXPECT_FALSE(ports->vaneHasNotifiees());
  EXPECT_EQ(ports->references(), 1u);
  ports->ingressIs(1, 1);
  EXPECT_EQ(taken(), "");
}

} // namespace
