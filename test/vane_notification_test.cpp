#include "Vane/Vane.h"
#include "test/Happened.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Demo {

using Large = std::array<Vane::U8, 4096>;

class Table : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Table, Vane::PtrInterface, SCALAR(int, level, Level, 0),
              SCALAR(Vane::String, label, Label, "none"), PTR(Table const, next, Next),
              MAP(Vane::U32, int, row, Row), SET(Vane::String, name, Name),
              ORDERED_MAP(Vane::U32, bool, free, Free), SET(Large, large, Large))
};
VANE_FACTORY(Table, tableFactory)

class WideTable : public Table {
public:
  VANE_ENTITY(Demo, WideTable, Table, SCALAR(int, width, Width, 8))
};
VANE_FACTORY(WideTable, wideTableFactory)

} // namespace Demo

namespace {

using Demo::Table;
using Vane::Ptr;
using Vane::U32;

using test::note;
using test::taken;

// Notes what it is told, then does what the test says.
class Watcher : public Table::NotifieeConst {
public:
  explicit Watcher(const std::string& name) : name_(name) {}
  ~Watcher() override { note("~" + name_); }
  void onLevel() override { told("level" + std::to_string(notifier()->level())); }
  void onLabel() override { told(std::string("label:") + notifier()->label().charPtr()); }
  void onNext() override { told(notifier()->next() ? "next" : "noNext"); }
  void onRow(const U32& row) override {
    told("row" + std::to_string(row) + "=" + std::to_string(notifier()->row(row)));
  }
  void onRowvaneImmediate() override { told("rows"); }
  void onName(const Vane::String& name) override { told(std::string("name:") + name.charPtr()); }
  void onFree(const U32& row) override { told("free" + std::to_string(row)); }
  void onLarge(const Demo::Large& key) override { told("large" + std::to_string(key[4095])); }
  void onZeroReferences() override { note("zero:" + name_); }
  bool onNotificationException(const std::exception_ptr&) override {
    note(name_ + ":exception");
    return swallow;
  }

  std::function<void()> action; // run once, by the next notification
  bool swallow = false;

private:
  void told(const std::string& what) {
    note(name_ + ":" + what);
    if (const auto run = std::exchange(action, nullptr)) {
      run();
      note(name_ + ":done");
    }
  }
  std::string name_;
};

Ptr<Watcher> watch(const Ptr<Table>& table, const std::string& name) {
  Ptr<Watcher> watcher(new Watcher(name));
  watcher->notifierIs(table);
  return watcher;
}

class VaneNotification : public testing::Test {
protected:
  VaneNotification() : table(Demo::tableFactory()), a(watch(table, "a")) { taken(); }
  Ptr<Table> table;
  Ptr<Watcher> a;
};

TEST_F(VaneNotification, OnlyChangesNotify) {
  table->levelIs(0);
  table->labelIs("none");
  table->nextIs(nullptr);
  table->nextDel();
  table->rowDel(5);
  table->rowDelAll();
  EXPECT_EQ(taken(), "");
  table->levelIs(2);
  table->levelIs(2);
  table->labelIs("x");
  table->rowIs(5, 0); // absent: inserted even with the default value
  table->rowIs(5, 0);
  table->rowIs(5, 1);
  table->rowDel(5);
  table->rowDel(5);
  table->nameIs("n", true);
  table->nameIs("n", true);
  table->nameIs("n", false);
  table->freeIs(3, true);
  table->freeDel(table->freeFirst());
  EXPECT_EQ(taken(), "a:level2 a:label:x a:row5=0 a:row5=1 a:row5=0 a:name:n a:name:n a:free3 a:free3 ");
  const auto other = Demo::tableFactory();
  table->nextIs(other);
  table->nextIs(other);
  table->nextDel();
  EXPECT_EQ(taken(), "a:next a:noNext ");
}

TEST_F(VaneNotification, ExplicitNotifyReachesEveryone) {
  const auto b = watch(table, "b");
  table->rowNotify(7);
  table->rowNotify();
  table->levelNotify();
  EXPECT_EQ(taken(), "a:row7=0 b:row7=0 a:rows b:rows a:level0 b:level0 ");
}

TEST_F(VaneNotification, DelAllNotifiesOncePerMember) {
  table->rowIs(3, 1);
  table->rowIs(1, 1);
  table->rowIs(2, 1);
  taken();
  table->rowDelAll();
  EXPECT_EQ(taken(), "a:row3=0 a:row1=0 a:row2=0 ");
  EXPECT_EQ(table->rowCount(), 0u);
}

TEST_F(VaneNotification, ReactorsRunToCompletion) {
  const auto b = watch(table, "b");
  a->action = [&] {
    table->rowIs(2, 20);
    table->rowIs(3, 30);
    note("written");
  };
  table->rowIs(1, 10);
  EXPECT_EQ(taken(), "a:row1=10 written a:done b:row1=10 a:row2=20 b:row2=20 a:row3=30 b:row3=30 ");
}

TEST_F(VaneNotification, NothingIsCoalescedAndStateIsReadAtDelivery) {
  a->action = [&] {
    table->levelIs(2);
    table->levelIs(3);
  };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 a:done a:level3 a:level3 ");
}

TEST_F(VaneNotification, DrainRunningIsVisibleToReactorsOnly) {
  EXPECT_FALSE(Vane::notificationDrainRunning());
  a->action = [] { note(Vane::notificationDrainRunning() ? "running" : "idle"); };
  table->levelIs(1);
  EXPECT_FALSE(Vane::notificationDrainRunning());
  EXPECT_EQ(taken(), "a:level1 running a:done ");
}

TEST_F(VaneNotification, EntriesOfDetachedInactiveAndZombieReactorsAreDropped) {
  const auto b = watch(table, "b");
  const auto c = watch(table, "c");
  const auto d = watch(table, "d");
  const auto e = watch(table, "e");
  a->action = [&] {
    b->notifierIs(nullptr);
    c->hasNotificationActiveIs(false);
    d->vaneMarkedForDeletionIs(true);
    e->isRegisteredNotifieeIs(false);
  };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 a:done ");
  table->levelIs(2);
  EXPECT_EQ(taken(), "a:level2 ");
  b->notifierIs(table);
  c->hasNotificationActiveIs(true);
  d->vaneMarkedForDeletionIs(false);
  e->isRegisteredNotifieeIs(true);
  table->levelIs(3);
  EXPECT_EQ(taken(), "a:level3 c:level3 d:level3 b:level3 e:level3 "); // in the order of registration
}

TEST_F(VaneNotification, LeavingAndComingBackDropsWhatWasQueuedBefore) {
  const auto b = watch(table, "b");
  a->action = [&] {
    b->notifierIs(nullptr);
    b->notifierIs(table);
    table->rowIs(1, 1);
  };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 a:done a:row1=1 b:row1=1 ");
}

TEST_F(VaneNotification, NotifieesMayJoinAndDieWhileOthersAreTold) {
  auto b = watch(table, "b");
  Ptr<Watcher> late;
  a->action = [&] {
    late = watch(table, "late");
    b = nullptr; // its entry keeps it until delivery
    note("dropped");
  };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 dropped a:done b:level1 zero:b ~b ");
  table->levelIs(2);
  EXPECT_EQ(taken(), "a:level2 late:level2 ");
}

TEST_F(VaneNotification, AReactorMayDropItself) {
  a->action = [&] { a = nullptr; };
  Ptr<Table> kept = table;
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 a:done zero:a ~a ");
  EXPECT_FALSE(kept->vaneHasNotifiees());
}

TEST_F(VaneNotification, ExceptionConsumesItsNotificationAlone) {
  const auto b = watch(table, "b");
  const auto c = watch(table, "c");
  a->action = [&] { table->rowIs(1, 1); };
  b->action = [] { throw std::runtime_error("first"); };
  c->action = [] { throw std::runtime_error("second"); };
  try {
    table->levelIs(1);
    note("not thrown");
  } catch (const std::runtime_error& e) {
    note(e.what());
  }
  EXPECT_EQ(taken(), "a:level1 a:done b:level1 b:exception c:level1 c:exception "
                     "a:row1=1 b:row1=1 c:row1=1 first ");
  EXPECT_FALSE(Vane::notificationDrainRunning());
  table->levelIs(2);
  EXPECT_EQ(taken(), "a:level2 b:level2 c:level2 ");
}

TEST_F(VaneNotification, ExceptionThatTheReactorDealsWithGoesNoFurther) {
  a->swallow = true;
  a->action = [] { throw std::runtime_error("mine"); };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 a:exception ");
}

TEST_F(VaneNotification, ScopeDeliversAtItsEnd) {
  {
    Vane::NotificationScope scope;
    table->levelIs(1);
    table->rowIs(1, 1);
    note("written");
    scope.close();
  }
  EXPECT_EQ(taken(), "written a:level1 a:row1=1 ");
  try {
    Vane::NotificationScope scope;
    table->levelIs(2);
    throw std::runtime_error("left");
  } catch (const std::runtime_error&) {
    note("left");
  }
  table->rowIs(2, 2);
  EXPECT_EQ(taken(), "left a:level2 a:row2=2 ");
}

TEST_F(VaneNotification, AttachingTwiceRegistersOnce) {
  a->notifierIs(table);
  a->notifierIs(table);
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 ");
  EXPECT_EQ(table->notifieeList().size(), 1u);
  a->notifierIs(nullptr);
  EXPECT_FALSE(table->vaneHasNotifiees());
  EXPECT_FALSE(a->isRegisteredNotifiee());
  EXPECT_EQ(a->notifier(), nullptr);
}

TEST_F(VaneNotification, InheritedAttributesReachWatchersOfEitherType) {
  class WideWatcher : public Demo::WideTable::NotifieeConst {
  public:
    void onLevel() override { note("wide:level" + std::to_string(notifier()->level())); }
    void onWidth() override { note("wide:width" + std::to_string(notifier()->width())); }
  };
  const auto wide = Demo::wideTableFactory();
  const auto narrow = watch(wide, "n");
  const Ptr<WideWatcher> watcher(new WideWatcher);
  watcher->notifierIs(wide);
  wide->widthIs(9); // the watcher of the base type has no such reaction
  wide->levelIs(1);
  EXPECT_EQ(taken(), "wide:width9 n:level1 wide:level1 ");
}

TEST_F(VaneNotification, EveryDeliveryPassesHandleNotification) {
  class Gate : public Table::NotifieeConst {
  public:
    void handleNotification(const Vane::Notification& notification) override {
      note("gate");
      notification.deliverTo(*this);
    }
    void onRow(const U32& row) override { note("row" + std::to_string(row)); }
  };
  const Ptr<Gate> gate(new Gate);
  gate->notifierIs(table);
  table->rowIs(4, 0);
  EXPECT_EQ(taken(), "a:row4=0 gate row4 ");
}

TEST_F(VaneNotification, KeysOfEverySizeSurviveALongQueue) {
  a->action = [&] {
    for (U32 i = 0; i < 3000; ++i) {
      table->rowIs(i, 1);
      table->nameIs(Vane::format("a name that does not fit into a pointer %u", i), true);
    }
    for (unsigned i = 0; i < 5; ++i) {
      Demo::Large key{};
      key[4095] = static_cast<Vane::U8>(i);
      table->largeIs(key, true);
    }
  };
  table->levelIs(1);
  std::string expected = "a:level1 a:done ";
  for (U32 i = 0; i < 3000; ++i) {
    expected += Vane::format("a:row%u=1 a:name:a name that does not fit into a pointer %u ", i, i).charPtr();
  }
  EXPECT_EQ(taken(), expected + "a:large0 a:large1 a:large2 a:large3 a:large4 ");
}

TEST_F(VaneNotification, TheKeyIsTheReactorsOwn) {
  class Changer : public Table::NotifieeConst {
  public:
    explicit Changer(Vane::String& key) : key_(key) {}
    void onName(const Vane::String& name) override {
      key_ = "something else";
      note(name.charPtr());
    }

  private:
    Vane::String& key_;
  };
  Vane::String key("first");
  a->notifierIs(nullptr);
  const Ptr<Changer> changer(new Changer(key));
  changer->notifierIs(table);
  table->nameIs(key, true);
  EXPECT_EQ(taken(), "first ");
}

TEST_F(VaneNotification, EachThreadHasAQueueOfItsOwn) {
  a->action = [&] {
    std::thread([] {
      EXPECT_FALSE(Vane::notificationDrainRunning());
      const auto other = Demo::tableFactory();
      const auto b = watch(other, "b");
      other->levelIs(5);
    }).join();
  };
  table->levelIs(1);
  EXPECT_EQ(taken(), "a:level1 b:level5 zero:b ~b a:done ");
}

TEST(VaneNotificationDeathTest, NotifierOfAnotherTypeIsAProgrammingError) {
  const Ptr<Watcher> watcher(new Watcher("w"));
  const Ptr<Vane::PtrInterface> stranger(Vane::dirFactory("d"));
  Vane::PtrInterface::NotifieeConst& base = *watcher;
  EXPECT_DEATH(base.notifierIs(stranger), "notifier->fwkType\\(\\)\\.isA\\( watchedType \\)");
}

TEST(VanePtr, CountsAndConversions) {
  Ptr<Demo::WideTable> wide = Demo::wideTableFactory();
  EXPECT_EQ(wide->references(), 1u);
  {
    const Ptr<Table> base = wide;
    Ptr<Table const> readOnly = base;
    EXPECT_EQ(wide->references(), 3u);
    EXPECT_TRUE(readOnly == wide);
    EXPECT_TRUE(Vane::dynamicPtrCast<Demo::WideTable const>(readOnly));
    EXPECT_FALSE(Vane::dynamicPtrCast<Demo::WideTable>(Ptr<Table>(Demo::tableFactory())));
    Ptr<Table const> moved = std::move(readOnly);
    EXPECT_EQ(wide->references(), 3u);
    EXPECT_FALSE(readOnly); // NOLINT(bugprone-use-after-move): what a moved pointer is, is promised
    const Ptr<Table const>& same = moved;
    moved = same;
    EXPECT_EQ(wide->references(), 3u);
  }
  EXPECT_EQ(wide->references(), 1u);
  EXPECT_TRUE(Ptr<Table>() == nullptr);
}

TEST(VanePtr, CountsAreAtomicWhenThreadsShareThem) {
  VFPtrInterface::threadSafePointers = true;
  const auto table = Demo::tableFactory();
  const Vane::String text("shared by threads");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50000; ++i) {
        const Ptr<Table> copy = table;
        const Vane::String same = text;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  VFPtrInterface::threadSafePointers = false;
  EXPECT_EQ(table->references(), 1u);
  EXPECT_STREQ(text.charPtr(), "shared by threads");
}

// Memory of objects is the thread's own, wherever they die.
TEST(VanePtr, ThreadsMakeAndDropObjectsSideBySide) {
  constexpr int numThreads = 4;
  constexpr int numTables = 200;
  constexpr int numRounds = 500;
  std::vector<std::vector<Ptr<Table>>> left(numThreads);
  std::vector<int> sums(numThreads);
  std::latch begin(numThreads);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < numThreads; ++thread) {
    threads.emplace_back([&, thread] {
      begin.arrive_and_wait();
      for (int round = 0; round < numRounds; ++round) {
        std::vector<Ptr<Table>> tables;
        for (int i = 0; i < numTables; ++i) {
          tables.push_back(Demo::tableFactory());
          tables.back()->levelIs(thread);
        }
        for (const Ptr<Table>& table : tables) {
          sums[static_cast<std::size_t>(thread)] += table->level() == thread ? 1 : 0;
        }
        left[static_cast<std::size_t>(thread)] = std::move(tables);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sums, std::vector<int>(numThreads, numRounds * numTables));
  left.clear(); // on another thread than they were made on
  EXPECT_EQ(Demo::tableFactory()->level(), 0);
}

} // namespace
