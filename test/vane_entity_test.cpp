#include "Vane/Vane.h"

#include <gtest/gtest.h>

#include <any>
#include <string>
#include <utility>
#include <vector>

namespace Demo {

class Status : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Status, Vane::PtrInterface, SCALAR(int, mode, Mode, 3))
};
VANE_FACTORY(Status, statusFactory)

// A child that has constructor parameters besides its key.
class Port : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Port, Vane::PtrInterface, CONST(Vane::U32, number),
              CONST(Vane::Ptr<Status const>, status), CONST(Vane::String, label),
              SCALAR(bool, constructed, Constructed, false))
  VANE_CONSTRUCTOR_PARAMS((status), (label))
  Port(Vane::U32 number, const Vane::Ptr<Status const>& status, const Vane::String& label)
      : number_(number), status_(status), label_(label) {}
  void vaneConstructed() {
    Vane::Ptr<Port> self(this); // a reference may come and go: the object is held already
    constructedIs(true);
  }
};

// One that has none.
class Lamp : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Lamp, Vane::PtrInterface, CONST(Vane::String, name))
  explicit Lamp(const Vane::String& name) : name_(name) {}
};

class Box : public Vane::Entity {
public:
  VANE_ENTITY(Demo, Box, Vane::Entity, CHILDREN(Vane::U32, Port, port, Port),
              ORDERED_CHILDREN(Vane::String, Lamp, lamp, Lamp), MAP(Vane::U32, Vane::String, text, Text),
              ORDERED_MAP(Vane::U32, bool, row, Row), SET(Vane::U32, mark, Mark), PTR(Status, status, Status))
  explicit Box(const Vane::Name& name) : Vane::Entity(name) {}
  void handleParent() override { parentSeen = parent(); }

  int doAdd(Vane::U8 a, const Vane::String& b) { return a + static_cast<int>(b.size()); }
  void doReset() { markDelAll(); }
  bool doAsk() const { return markCount() != 0; }
  VANE_OPERATIONS(doAdd, doReset, doAsk)

  Vane::Dir* parentSeen = nullptr;
};
VANE_ENTITY_FACTORY(Box, boxFactory)

class BigBox : public Box {
public:
  VANE_ENTITY(Demo, BigBox, Box, SCALAR(int, size, Size, 10))
  using Box::Box;
  bool hasBackupSupport() const override { return false; }
  int doGrow() { return size(); }
  VANE_OPERATIONS(doGrow)
};
VANE_ENTITY_FACTORY(BigBox, bigBoxFactory)

class PlainBox : public Box {
public:
  VANE_ENTITY(Demo, PlainBox, Box)
  using Box::Box;
};

class NeverUsed : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, NeverUsed, Vane::PtrInterface)
};
VANE_FACTORY(NeverUsed, neverUsedFactory)

} // namespace Demo

namespace {

using namespace Demo;
using Vane::Ptr;

template <typename Action>
std::string thrown(Action action) {
  try {
    action();
  } catch (const Vane::Exception& e) {
    return e.what();
  }
  return "nothing";
}

class BoxWatcher : public Box::NotifieeConst {
public:
  void onPort(const Vane::U32& port) override {
    log += std::to_string(port);
    log += notifier()->portHas(port) ? "+ " : "- ";
  }
  std::string log;
};

TEST(VaneEntity, CollectionsReadBack) {
  const auto box = boxFactory("b");
  EXPECT_EQ(box->text(7), Vane::String());
  EXPECT_EQ(box->textFind(7), nullptr);
  box->textIs(7, "seven");
  box->textIs(1, "one");
  EXPECT_STREQ(box->textFind(7)->charPtr(), "seven");
  EXPECT_TRUE(box->textHas(1));
  EXPECT_EQ(box->textCount(), 2u);
  box->rowIs(9, true);
  box->rowIs(4, true);
  std::string all;
  for (const auto& member : box->textAll()) {
    all += std::to_string(member.key());
    all += member.value().charPtr();
  }
  for (auto row = box->rowIteratorConst(); row; ++row) {
    all += ' ';
    all += std::to_string(row.key());
  }
  EXPECT_EQ(all, "7seven1one 4 9");
  EXPECT_EQ(box->rowFirst().key(), 4u);
  box->rowDel(box->rowFirst());
  EXPECT_EQ(box->rowFirst().key(), 9u);
  box->markIs(3, true);
  EXPECT_TRUE(box->mark(3));
  EXPECT_FALSE(box->mark(4));
}

TEST(VaneEntity, ChildrenAreMadeOnce) {
  const auto box = boxFactory("b");
  const auto status = statusFactory();
  const Ptr<BoxWatcher> watcher(new BoxWatcher);
  watcher->notifierIs(box);
  const Ptr<Port> one = box->portIs(1, status, Vane::String("x"));
  EXPECT_TRUE(one->constructed());
  EXPECT_EQ(one->number(), 1u);
  EXPECT_TRUE(box->portIs(1, status, Vane::String("x")) == one);
  EXPECT_TRUE(box->port(1) == one);
  EXPECT_TRUE(box->port(2) == nullptr);
  box->portIs(2, Ptr<Status const>(status), "y");
  box->portDel(1);
  box->portDel(1);
  EXPECT_EQ(one->references(), 1u);
  box->portDelAll();
  EXPECT_EQ(watcher->log, "1+ 2+ 1- 2- ");

  const Ptr<Lamp> lamp = box->lampIs("z");
  EXPECT_TRUE(box->lampIs("z") == lamp);
  box->lampIs("a");
  std::string names;
  for (const auto& member : box->lampAll()) {
    names += member.ptr()->name().charPtr();
    box->lampDel(member.key());
  }
  EXPECT_EQ(names, "az");
  EXPECT_EQ(box->lampCount(), 0u);
}

TEST(VaneEntity, ReinstantiationNamesTheFirstDifference) {
  const auto box = boxFactory("b");
  const auto first = statusFactory();
  const auto second = statusFactory();
  const Ptr<Port> port = box->portIs(1, first, Vane::String("x"));
  const auto address = [](const Ptr<Status>& status) {
    return std::string(
        Vane::format("Demo::Status(0x%llx)", reinterpret_cast<unsigned long long>(status.ptr())).charPtr());
  };
  EXPECT_EQ(thrown([&] { box->portIs(1, second, Vane::String("y")); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _status has a "
            "different value of " +
                address(second) + " than the current value of " + address(first) + " not allowed");
  EXPECT_EQ(thrown([&] { box->portIs(1, Ptr<Status>(), Vane::String("x")); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _status has a "
            "different value of Demo::Status(0x0) than the current value of " +
                address(first) + " not allowed");
  EXPECT_EQ(thrown([&] { box->portIs(1, first, Vane::String("y")); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _label has a "
            "different value of 'y' than the current value of 'x' not allowed");
  EXPECT_THROW(box->portIs(1, second, Vane::String("x")), Vane::NameInUseException);
  EXPECT_TRUE(box->port(1) == port);
  EXPECT_EQ(box->portCount(), 1u);
}

TEST(VaneEntity, DirectoriesOwnEntitiesByName) {
  const auto root = Vane::dirFactory("root");
  const auto box = Box::newEntityForDir("box", root);
  EXPECT_EQ(box->parent(), root.ptr());
  EXPECT_EQ(box->parentSeen, root.ptr());
  EXPECT_STREQ(box->fullName().charPtr(), "root/box");
  EXPECT_TRUE(root->entity("box") == box);
  EXPECT_EQ(thrown([&] { Box::newEntityForDir("box", root); }),
            "the name \"box\" is in use in directory \"root\"");
  root->entityIs(box);
  EXPECT_EQ(root->entityCount(), 1u);
  root->entityDel("box");
  EXPECT_EQ(box->parent(), nullptr);
  EXPECT_EQ(box->references(), 1u);
}

TEST(VaneEntity, BackupCopiesMakeEntitiesAgain) {
  const auto root = Vane::dirFactory("root");
  auto box = Box::newEntityForDir("box", root);
  auto big = BigBox::newEntityForDir("big", root);
  box->saveConstructParams();
  big->saveConstructParams(); // has no backup support
  EXPECT_TRUE(root->backupHas("box"));
  EXPECT_FALSE(root->backupHas("big"));
  EXPECT_TRUE(Vane::Entity::reconstruct("box", root) == box);
  EXPECT_TRUE(Vane::Entity::reconstruct("none", root) == nullptr);

  root->entityDel("box");
  const auto again = Vane::Entity::reconstruct("box", root);
  ASSERT_TRUE(again);
  EXPECT_FALSE(again == box);
  EXPECT_STREQ(again->fwkType().name(), "Demo::Box");
  EXPECT_STREQ(again->fullName().charPtr(), "root/box");
  again->entBackupDel();
  root->entityDel("box");
  EXPECT_TRUE(Vane::Entity::reconstruct("box", root) == nullptr);
}

TEST(VaneType, RecordsNameBaseAndAttributes) {
  const auto box = bigBoxFactory("b");
  const Vane::Type& type = box->fwkType();
  std::string text = type.name();
  text += " : ";
  text += type.base()->name();
  for (const Vane::Attribute& attribute : type.base()->attributes()) {
    text += std::string(" ") + Vane::attributeKindName(attribute.kind) + " " + attribute.name + "[" +
            attribute.keyType + "] " + attribute.valueType + ";";
  }
  EXPECT_EQ(text, "Demo::BigBox : Demo::Box children port[Vane::U32] Port; "
                  "orderedChildren lamp[Vane::String] Lamp; map text[Vane::U32] Vane::String; "
                  "orderedMap row[Vane::U32] bool; map mark[Vane::U32] bool; pointer status[] Status;");
  EXPECT_STREQ(type.attribute("size")->valueType, "int");
  EXPECT_STREQ(type.attribute("name")->valueType, "Vane::Name"); // of the base's base
  EXPECT_EQ(type.attribute("none"), nullptr);
  EXPECT_TRUE(type.isA(Box::vaneType()));
  EXPECT_TRUE(type.isA(Vane::PtrInterface::vaneType()));
  EXPECT_FALSE(Box::vaneType().isA(type));
  EXPECT_FALSE(type.isA(Status::vaneType()));
  EXPECT_EQ(Vane::Type::find("Demo::BigBox"), &type);
  EXPECT_EQ(Vane::Type::find("Demo::NeverUsed"), &NeverUsed::vaneType());
  EXPECT_EQ(Vane::Type::find("Demo::Nothing"), nullptr);
}

TEST(VaneType, OperationsAreCalledByName) {
  const auto box = bigBoxFactory("b");
  const Vane::Type& type = box->fwkType();
  EXPECT_EQ(std::any_cast<int>(type.operation("doAdd").invoke(box, {200, Vane::String("abc")})), 203);
  EXPECT_EQ(std::any_cast<int>(type.operation("doGrow").invoke(box)), 10);
  box->markIs(1, true);
  EXPECT_TRUE(std::any_cast<bool>(type.operation("doAsk").invoke(box)));
  EXPECT_FALSE(type.operation("doReset").invoke(box).has_value());
  EXPECT_EQ(box->markCount(), 0u);
  EXPECT_EQ(thrown([&] { type.operation("doNothing"); }), "Demo::BigBox has no operation \"doNothing\"");
  EXPECT_EQ(thrown([&] { type.operation("doAdd").invoke(box, {1}); }), "doAdd takes 2 arguments, not 1");
  EXPECT_EQ(thrown([&] {
              type.operation("doAdd").invoke(box, {256, Vane::String("")});
            }),
            "doAdd: argument 1 is of another type"); // does not fit into 8 bits
  EXPECT_EQ(thrown([&] {
              type.operation("doAdd").invoke(box, {1, 2});
            }),
            "doAdd: argument 2 is of another type");
  EXPECT_EQ(thrown([&] { type.operation("doGrow").invoke(boxFactory("other")); }),
            "doGrow is an operation of Demo::BigBox, not of Demo::Box");
  EXPECT_EQ(Box::vaneType().operations().size(), 3u);
  EXPECT_EQ(PlainBox::vaneType().operations().size(), 0u); // those of its base are found there
  EXPECT_STREQ(PlainBox::vaneType().operation("doAsk").name(), "doAsk");
}

} // namespace
