#pragma once

#include "Vane/Collections.h"
#include "Vane/Exception.h"
#include "Vane/Macros.h"
#include "Vane/Notification.h"
#include "Vane/Ptr.h"
#include "Vane/SmallSet.h"
#include "Vane/String.h"
#include "Vane/Type.h"
#include "Vane/Value.h"

#include <cstddef>
#include <string>
#include <tuple>
#include <utility>

// Declaring a shared object, one line for each attribute:
//
//   class AclIdMapping : public Vane::PtrInterface {
//   public:
//     VANE_ENTITY(XpAcl, AclIdMapping, Vane::PtrInterface,
//                 CONST(Vane::U32, chip),
//                 SCALAR(bool, initialized, Initialized, false),
//                 MAP(HwAclIndexKey, AclId, keyToAclIdMapping, KeyToAclIdMapping))
//     explicit AclIdMapping(Vane::U32 chip) : chip_(chip) {}
//   };
//   VANE_FACTORY(AclIdMapping, aclIdMappingFactory)
//
// The kinds of attribute (foo: its name, Foo: the name behind `on`), and what they generate:
//
//   CONST(Type, foo)             foo(), fixed by the constructor, which initialises foo_
//   SCALAR(Type, foo, Foo, def)  foo(), fooIs(v), fooNotify(); onFoo()
//   PTR(Type, foo, Foo)          foo(), fooIs(ptr), fooDel(), fooNotify(); onFoo()
//   MAP(Key, Value, foo, Foo)    foo(key) (the default Value when absent), fooIs(key, value),
//                                fooDel(key), fooDelAll(), fooNotify(key), fooHas(key), fooCount(),
//                                fooFind(key) (the value in place, or null; until the next write), fooAll()
//                                (for range-for; members have key() and value()), fooIteratorConst(),
//                                fooNotify() (asks every notifiee to examine the whole collection);
//                                onFoo(key), onFoovaneImmediate()
//   SET(Key, foo, Foo)           MAP with the value bool
//   SMALL_SET(Key, foo, Foo)     SET of mostly one member, with keys of up to six bytes (Vane/SmallSet.h)
//   ORDERED_MAP(...)             MAP in ascending order of keys; also fooFirst(), fooDel(iterator)
//   CHILDREN(Key, Child, foo, Foo)    fooIs(key, args...) makes Child(key, args...) or answers the
//                                existing one, foo(key) (the child, or null), and what MAP has;
//                                members have key() and ptr()
//   ORDERED_CHILDREN(...)        CHILDREN in ascending order of keys
//
// A write that changes nothing notifies nobody, and a removal notifies only when the key was there.
// fooDelAll() is fooDel of each member: one notification for each, delivered when all are gone.
//
// Keys and values of any value type; onFoo takes the key by constant reference.

namespace Vane {

// ------------------------------------------------------------------------- named objects, directories

class Dir;

// An object with a name that may live in a directory.
class VANE_API Entity : public PtrInterface {
public:
  class VANE_API NotifieeConst : public PtrInterface::NotifieeConst { // base of those that watch entities
  public:
    NotifieeConst() { vaneWatchedTypeIs(Entity::vaneType()); }
  };

  explicit Entity(const Name& name = Name()) : name_(name) {}
  ~Entity() override;

  const Name& name() const { return name_; }
  // The directory that holds the entity; null outside a directory. The directory owns its entities,
  // not the other way round.
  Dir* parent() const { return parent_; }
  Name fullName() const; // with the names of the directories, separated by "/"

  // Called when the entity has been put into its directory.
  virtual void handleParent() {}

  // Whether the entity may be restored from a backup copy.
  virtual bool hasBackupSupport() const { return true; }
  // Keeps in the directory what is needed to make the entity again: type and name. Nothing happens
  // outside a directory or without backup support.
  void saveConstructParams() const;
  // Drops that copy.
  void entBackupDel() const;
  // Answers the entity of that name in `dir`, or makes it again from its copy with the factory of its
  // type (VANE_ENTITY_FACTORY); null when there is no copy or no such factory.
  static Ptr<Entity> reconstruct(const Name& name, const Ptr<Dir>& dir);

  static const Type& vaneType();
  const Type& fwkType() const override { return vaneType(); }

private:
  friend class Dir;

  Name name_;
  Dir* parent_ = nullptr;
};

// Owns entities by name.
class VANE_API Dir : public Entity {
public:
  using Entity::Entity; // of a name
  ~Dir() override;

  Ptr<Entity> entity(const Name& name) const { return entities_.valueOrDefault(name); } // null: no such name
  // Raises NameInUseException when another entity has the name; asserts that the entity is in no
  // other directory.
  void entityIs(const Ptr<Entity>& entity);
  // A backup copy of the entity stays.
  void entityDel(const Name& name);
  std::size_t entityCount() const { return entities_.size(); }
  Walk<RbTreeMap<Name, Ptr<Entity>>::Iterator> entityAll() const { return entities_.all(); }

  bool backupHas(const Name& name) const { return backups_.has(name); } // whether there is a copy
  void backupDel(const Name& name) { backups_.erase(name); }

  static const Type& vaneType();
  const Type& fwkType() const override { return vaneType(); }

private:
  friend class Entity;

  RbTreeMap<Name, Ptr<Entity>> entities_;
  RbTreeMap<Name, Name> backups_; // name of the entity to name of its type
};
VANE_API Ptr<Dir> dirFactory(const Name& name); // a directory without entities

// How to make an entity of a type from its name alone.
using EntityMaker = Ptr<Entity> (*)(const Name& name);
struct VANE_API EntityRegistration { // makes a type known by its name
  EntityRegistration(const char* typeName, EntityMaker maker);
};

// Makes a T and puts it into a directory.
template <typename T>
Ptr<T> newEntityInDir(const Name& name, const Ptr<Dir>& dir) {
  Ptr<T> entity = Access::make<T>(name);
  dir->entityIs(entity);
  return entity;
}

// -------------------------------------------------------------------------- constructor parameters

// One parameter of an existing child, for comparison with a new argument.
template <typename T>
struct ConstructorParam {
  const char* name;
  T current;
};
template <typename T>
ConstructorParam<T> constructorParam(const char* name, const T& current) {
  return {name, current};
}

[[noreturn]] VANE_API void throwReinstantiation(const char* name, const String& given, const String& current);

// Raises NameInUseException when the argument differs from the parameter's current value.
template <typename T, typename Given>
void constructorParamCheck(const ConstructorParam<T>& param, const Given& given) {
  const T same = static_cast<T>(given);
  if (!(param.current == same)) {
    throwReinstantiation(param.name, strepOf(same), strepOf(param.current));
  }
}

template <typename Child, typename... Args>
void constructorParamsCheck([[maybe_unused]] const Child& child, [[maybe_unused]] const Args&... args) {
  if constexpr (requires { child.vaneConstructorParams(); }) {
    const auto params = child.vaneConstructorParams();
    static_assert(std::tuple_size_v<decltype(params)> == sizeof...(Args),
                  "VANE_CONSTRUCTOR_PARAMS names every argument behind the key");
    const auto given = std::tie(args...);
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      (constructorParamCheck(std::get<I>(params), std::get<I>(given)), ...);
    }
    (std::index_sequence_for<Args...>{});
  } else {
    static_assert(sizeof...(Args) == 0, "a child with arguments declares VANE_CONSTRUCTOR_PARAMS");
  }
}

// Makes the child of an instantiating collection, or answers the existing one. `inserted` tells which.
template <typename Map, typename... Args>
typename Map::Value childOf(const PtrInterface& owner, Map& children, const typename Map::Key& key,
                            bool* inserted, const Args&... args) {
  using Child = typename Map::Value::Pointee;
  bool made = false;
  const auto [held, isNew] = children.findOrMake(key, [&] {
    typename Map::Value child = Access::make<Child>(key, args...);
    if (!owner.hasNotificationActive()) {
      child->hasNotificationActiveIs(false);
    }
    made = true;
    return child;
  });
  *inserted = isNew;
  typename Map::Value child = *held;
  if (!made) {
    constructorParamsCheck(*child, args...);
  }
  return child;
}

// Adds the operations that VANE_OPERATIONS of this very class names.
template <typename Class, typename Base>
void addOperations([[maybe_unused]] Type& type) {
  if constexpr (requires { Class::vaneAddOperations(type); }) {
    if constexpr (requires { Base::vaneAddOperations(type); }) {
      if (&Class::vaneAddOperations != &Base::vaneAddOperations) {
        Class::vaneAddOperations(type);
      }
    } else {
      Class::vaneAddOperations(type);
    }
  }
}

} // namespace Vane

// clang-format off

// The factory of a class: FACTORY(constructor arguments...) answers a Vane::Ptr<CLS> to a finished
// object. Stands behind the class, in its namespace. The program that sees it also knows the class by name.
#define VANE_FACTORY(CLS, FACTORY)                                                                 \
  VANE_FACTORY_DECLARED(CLS, FACTORY)                                                              \
  inline VANE_REGISTERED(CLS)

// The same for a class derived from Vane::Entity whose constructor takes the name alone; such
// entities can be made again from their backup copy.
#define VANE_ENTITY_FACTORY(CLS, FACTORY)                                                          \
  VANE_FACTORY(CLS, FACTORY)                                                                       \
  inline VANE_MADE_BY_NAME(CLS)

// The first half of either, for headers that many files include. The second half, VANE_REGISTERED(CLS) and for
// entities VANE_MADE_BY_NAME(CLS), then stands in one source file of a library that is always loaded whole, in
// the class's namespace: the record of the type, which no other file may need, is compiled there once.
#define VANE_FACTORY_DECLARED(CLS, FACTORY)                                                        \
  template <typename... Args>                                                                      \
  ::Vane::Ptr<CLS> FACTORY(Args&&... args) {                                                       \
    return ::Vane::Access::make<CLS>(std::forward<Args>(args)...);                                 \
  }
#define VANE_REGISTERED(CLS)                                                                       \
  const ::Vane::TypeRegistration vaneRegistrationOf##CLS{CLS::vaneTypeName, &CLS::vaneType};
#define VANE_MADE_BY_NAME(CLS)                                                                     \
  const ::Vane::EntityRegistration vaneMakerOf##CLS{                                               \
      CLS::vaneTypeName,                                                                           \
      [](const ::Vane::Name& name) -> ::Vane::Ptr<::Vane::Entity> {                                \
        return ::Vane::Access::make<CLS>(name);                                                    \
      }};

// Names the parameters of a child of an instantiating collection, behind the key and in the order
// of the constructor: VANE_CONSTRUCTOR_PARAMS((portVifStatus), (systemStatus)). Each has an accessor
// of that name. Asking for an existing child with another argument raises NameInUseException.
#define VANE_CONSTRUCTOR_PARAMS(...)                                                               \
  auto vaneConstructorParams() const {                                                             \
    return std::make_tuple(VANE_FOR_EACH_COMMA(VANE_CONSTRUCTOR_PARAM, __VA_ARGS__));              \
  }
#define VANE_CONSTRUCTOR_PARAM(param) VANE_CONSTRUCTOR_PARAM_I param
#define VANE_CONSTRUCTOR_PARAM_I(name) ::Vane::constructorParam(#name, name())

// Member functions that are callable by name through the type record; arguments are value types,
// strings or numbers. VANE_OPERATIONS(doShowThis, doShowThat)
#define VANE_OPERATIONS(...)                                                                       \
  static void vaneAddOperations(::Vane::Type& type) {                                              \
    VANE_FOR_EACH(VANE_OPERATION_ADD, __VA_ARGS__)                                                 \
  }
#define VANE_OPERATION_ADD(name) ::Vane::addOperation(type, #name, &VaneSelf::name);
#define VANE_OPERATION(name) VANE_OPERATIONS(name)

#define VANE_ENTITY(NS, CLS, BASE, ...)                                                            \
  VANE_TYPE_PART(NS, CLS, BASE, __VA_ARGS__)                                                       \
  VANE_FOR_EACH(VANE_ATTRIBUTE, __VA_ARGS__)

#define VANE_TYPE_PART(NS, CLS, BASE, ...)                                                         \
  friend struct ::Vane::Access;                                                                    \
  using VaneSelf = CLS;                                                                            \
  static constexpr const char* vaneTypeName = #NS "::" #CLS;                                       \
  class NotifieeConst : public BASE::NotifieeConst {                                               \
  public:                                                                                          \
    NotifieeConst() { this->vaneWatchedTypeIs(CLS::vaneType()); }                                  \
    ::Vane::Ptr<CLS const> notifier() const {                                                      \
      return static_cast<CLS const*>(this->vaneNotifier());                                        \
    }                                                                                              \
    void notifierIs(const ::Vane::Ptr<CLS const>& watched) { this->vaneNotifierIs(watched); }      \
    VANE_FOR_EACH(VANE_NOTIFIEE, __VA_ARGS__)                                                      \
  };                                                                                               \
  static const ::Vane::Type& vaneType() {                                                          \
    static const ::Vane::Type& record =                                                            \
        ::Vane::Type::define(vaneTypeName, typeid(CLS), &BASE::vaneType(),                         \
                             [](::Vane::Type& type) {                                              \
                               VANE_FOR_EACH(VANE_RECORD, __VA_ARGS__)                             \
                               ::Vane::addOperations<CLS, BASE>(type);                             \
                             });                                                                   \
    return record;                                                                                 \
  }                                                                                                \
  const ::Vane::Type& fwkType() const override { return vaneType(); }                              \
  /* Makes a named entity in a directory; for classes derived from Vane::Entity. */                \
  template <typename Made = CLS>                                                                   \
  static ::Vane::Ptr<Made> newEntityForDir(const ::Vane::Name& name,                               \
                                           const ::Vane::Ptr<::Vane::Dir>& dir) {                  \
    return ::Vane::newEntityInDir<Made>(name, dir);                                                \
  }                                                                                                \
  /* Tells every child of the instantiating collections. */                                        \
  void vaneChildrenActiveIs([[maybe_unused]] bool active) {                                        \
    VANE_FOR_EACH(VANE_CHILD, __VA_ARGS__)                                                         \
  }

// Each attribute line is pasted to the name of one of these families.
#define VANE_ATTRIBUTE(line) VANE_ATTRIBUTE_##line
#define VANE_NOTIFIEE(line) VANE_NOTIFIEE_##line
#define VANE_RECORD(line) VANE_RECORD_##line
#define VANE_CHILD(line) VANE_CHILD_##line

#define VANE_RECORD_ADD(name, kind, key, value)                                                    \
  type.attributeIs({name, ::Vane::AttributeKind::kind, key, value});
#define VANE_NOTIFIEE_PLAIN(Foo) virtual void on##Foo() {}
#define VANE_NOTIFIEE_KEYED(Key, Foo)                                                              \
  virtual void on##Foo(const Key&) {}                                                              \
  virtual void on##Foo##vaneImmediate() {}

#define VANE_ATTRIBUTE_CONST(T, foo)                                                               \
  ::Vane::Param<T> foo() const { return foo##_; }                                                  \
private:                                                                                           \
  T foo##_;                                                                                        \
public:
#define VANE_NOTIFIEE_CONST(T, foo)
#define VANE_RECORD_CONST(T, foo) VANE_RECORD_ADD(#foo, constant, "", #T)
#define VANE_CHILD_CONST(T, foo)

// In front of what most files that see an entity never call: compiled only where it is called. Without it each
// file would compile every operation of every collection that it includes, which takes seconds.
#define VANE_WHEN_USED template <typename VaneUse = void>

#define VANE_ATTRIBUTE_SCALAR(T, foo, Foo, ...)                                                    \
  ::Vane::Param<T> foo() const { return foo##_; }                                                  \
  VANE_WHEN_USED                                                                                   \
  void foo##Is(::Vane::Param<T> value) {                                                           \
    if (!(foo##_ == value)) {                                                                      \
      foo##_ = value;                                                                              \
      foo##Notify();                                                                               \
    }                                                                                              \
  }                                                                                                \
  VANE_WHEN_USED                                                                                   \
  void foo##Notify() const { ::Vane::notifyPlain<&NotifieeConst::on##Foo>(*this); }                \
private:                                                                                           \
  T foo##_{static_cast<T>(__VA_ARGS__)};                                                           \
public:
#define VANE_NOTIFIEE_SCALAR(T, foo, Foo, ...) VANE_NOTIFIEE_PLAIN(Foo)
#define VANE_RECORD_SCALAR(T, foo, Foo, ...) VANE_RECORD_ADD(#foo, scalar, "", #T)
#define VANE_CHILD_SCALAR(T, foo, Foo, ...)

#define VANE_ATTRIBUTE_PTR(T, foo, Foo)                                                            \
  ::Vane::Ptr<T> foo() const { return foo##_; }                                                    \
  VANE_WHEN_USED                                                                                   \
  void foo##Is(const ::Vane::Ptr<T>& pointer) {                                                    \
    if (!(foo##_ == pointer)) {                                                                    \
      foo##_ = pointer;                                                                            \
      foo##Notify();                                                                               \
    }                                                                                              \
  }                                                                                                \
  VANE_WHEN_USED                                                                                   \
  void foo##Del() { foo##Is(nullptr); }                                                            \
  VANE_WHEN_USED                                                                                   \
  void foo##Notify() const { ::Vane::notifyPlain<&NotifieeConst::on##Foo>(*this); }                \
private:                                                                                           \
  ::Vane::Ptr<T> foo##_;                                                                           \
public:
#define VANE_NOTIFIEE_PTR(T, foo, Foo) VANE_NOTIFIEE_PLAIN(Foo)
#define VANE_RECORD_PTR(T, foo, Foo) VANE_RECORD_ADD(#foo, pointer, "", #T)
#define VANE_CHILD_PTR(T, foo, Foo)

// What every keyed collection has, whatever Map it is kept in.
#define VANE_KEYED(Map, Key, foo, Foo)                                                             \
  VANE_WHEN_USED                                                                                   \
  bool foo##Has(const Key& key) const { return foo##_.has(key); }                                  \
  VANE_WHEN_USED                                                                                   \
  std::size_t foo##Count() const { return foo##_.size(); }                                         \
  VANE_WHEN_USED                                                                                   \
  typename Map::Iterator foo##IteratorConst() const { return foo##_.iteratorConst(); }             \
  VANE_WHEN_USED                                                                                   \
  ::Vane::Walk<typename Map::Iterator> foo##All() const { return foo##_.all(); }                   \
  VANE_WHEN_USED                                                                                   \
  void foo##Del(const Key& key) {                                                                  \
    if (!vaneHasNotifiees()) {                                                                     \
      foo##_.erase(key);                                                                           \
      return;                                                                                      \
    }                                                                                              \
    const Key removed = Key(key); /* the key given may be the member's own */                      \
    if (foo##_.erase(removed)) {                                                                   \
      foo##Notify(removed);                                                                        \
    }                                                                                              \
  }                                                                                                \
  VANE_WHEN_USED                                                                                   \
  void foo##DelAll() {                                                                             \
    ::Vane::NotificationScope scope;                                                               \
    for (const auto& member : foo##All()) {                                                        \
      foo##Del(member.key());                                                                      \
    }                                                                                              \
    scope.close();                                                                                 \
  }                                                                                                \
  VANE_WHEN_USED                                                                                   \
  void foo##Notify(const Key& key) const {                                                         \
    ::Vane::notifyKeyed<&NotifieeConst::on##Foo>(*this, key);                                      \
  }                                                                                                \
  VANE_WHEN_USED                                                                                   \
  void foo##Notify() const {                                                                       \
    ::Vane::notifyPlain<&NotifieeConst::on##Foo##vaneImmediate>(*this);                            \
  }                                                                                                \
private:                                                                                           \
  Map foo##_;                                                                                      \
public:

#define VANE_ATTRIBUTE_MAP(Key, Value, foo, Foo)                                                   \
  using Vane##Foo##Coll = ::Vane::HashMap2018<Key, Value>;                                         \
  VANE_MAP_OPERATIONS(Key, Value, foo, Foo)
#define VANE_NOTIFIEE_MAP(Key, Value, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_MAP(Key, Value, foo, Foo) VANE_RECORD_ADD(#foo, map, #Key, #Value)
#define VANE_CHILD_MAP(Key, Value, foo, Foo)

#define VANE_MAP_OPERATIONS(Key, Value, foo, Foo)                                                  \
  VANE_WHEN_USED                                                                                   \
  Value foo(const Key& key) const { return foo##_.valueOrDefault(key); }                           \
  VANE_WHEN_USED                                                                                   \
  const Value* foo##Find(const Key& key) const { return foo##_.find(key); }                        \
  VANE_WHEN_USED                                                                                   \
  void foo##Is(const Key& key, ::Vane::Param<Value> value) {                                       \
    if (foo##_.assign(key, value)) {                                                               \
      foo##Notify(key);                                                                            \
    }                                                                                              \
  }                                                                                                \
  VANE_KEYED(Vane##Foo##Coll, Key, foo, Foo)

#define VANE_ATTRIBUTE_SET(Key, foo, Foo) VANE_ATTRIBUTE_MAP(Key, bool, foo, Foo)
#define VANE_NOTIFIEE_SET(Key, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_SET(Key, foo, Foo) VANE_RECORD_ADD(#foo, map, #Key, "bool")
#define VANE_CHILD_SET(Key, foo, Foo)

#define VANE_ATTRIBUTE_SMALL_SET(Key, foo, Foo)                                                    \
  using Vane##Foo##Coll = ::Vane::SmallSet<Key>;                                                   \
  VANE_MAP_OPERATIONS(Key, bool, foo, Foo)
#define VANE_NOTIFIEE_SMALL_SET(Key, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_SMALL_SET(Key, foo, Foo) VANE_RECORD_ADD(#foo, map, #Key, "bool")
#define VANE_CHILD_SMALL_SET(Key, foo, Foo)

#define VANE_ORDERED_OPERATIONS(foo, Foo)                                                          \
  VANE_WHEN_USED                                                                                   \
  typename Vane##Foo##Coll::Iterator foo##First() const { return foo##_.first(); }                 \
  VANE_WHEN_USED                                                                                   \
  void foo##Del(const typename Vane##Foo##Coll::Iterator& at) { foo##Del(at.key()); }

#define VANE_ATTRIBUTE_ORDERED_MAP(Key, Value, foo, Foo)                                           \
  using Vane##Foo##Coll = ::Vane::RbTreeMap<Key, Value>;                                           \
  VANE_ORDERED_OPERATIONS(foo, Foo)                                                                \
  VANE_MAP_OPERATIONS(Key, Value, foo, Foo)
#define VANE_NOTIFIEE_ORDERED_MAP(Key, Value, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_ORDERED_MAP(Key, Value, foo, Foo) VANE_RECORD_ADD(#foo, orderedMap, #Key, #Value)
#define VANE_CHILD_ORDERED_MAP(Key, Value, foo, Foo)

#define VANE_CHILDREN_OPERATIONS(Key, Child, foo, Foo)                                             \
  VANE_WHEN_USED                                                                                   \
  ::Vane::Ptr<Child> foo(const Key& key) const { return foo##_.valueOrDefault(key); }              \
  template <typename... Args>                                                                      \
  ::Vane::Ptr<Child> foo##Is(const Key& key, const Args&... args) {                                \
    bool inserted = false;                                                                         \
    ::Vane::Ptr<Child> child = ::Vane::childOf(*this, foo##_, key, &inserted, args...);            \
    if (inserted) {                                                                                \
      foo##Notify(key);                                                                            \
    }                                                                                              \
    return child;                                                                                  \
  }                                                                                                \
  VANE_KEYED(Vane##Foo##Coll, Key, foo, Foo)
#define VANE_CHILDREN_ACTIVE(foo)                                                                  \
  for (const auto& member : foo##All()) {                                                          \
    member.ptr()->hasNotificationActiveIs(active);                                                 \
  }

#define VANE_ATTRIBUTE_CHILDREN(Key, Child, foo, Foo)                                              \
  using Vane##Foo##Coll = ::Vane::HashMap<Key, Child>;                                             \
  VANE_CHILDREN_OPERATIONS(Key, Child, foo, Foo)
#define VANE_NOTIFIEE_CHILDREN(Key, Child, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_CHILDREN(Key, Child, foo, Foo) VANE_RECORD_ADD(#foo, children, #Key, #Child)
#define VANE_CHILD_CHILDREN(Key, Child, foo, Foo) VANE_CHILDREN_ACTIVE(foo)

#define VANE_ATTRIBUTE_ORDERED_CHILDREN(Key, Child, foo, Foo)                                      \
  using Vane##Foo##Coll = ::Vane::RbTreeMap<Key, ::Vane::Ptr<Child>>;                              \
  VANE_ORDERED_OPERATIONS(foo, Foo)                                                                \
  VANE_CHILDREN_OPERATIONS(Key, Child, foo, Foo)
#define VANE_NOTIFIEE_ORDERED_CHILDREN(Key, Child, foo, Foo) VANE_NOTIFIEE_KEYED(Key, Foo)
#define VANE_RECORD_ORDERED_CHILDREN(Key, Child, foo, Foo)                                         \
  VANE_RECORD_ADD(#foo, orderedChildren, #Key, #Child)
#define VANE_CHILD_ORDERED_CHILDREN(Key, Child, foo, Foo) VANE_CHILDREN_ACTIVE(foo)

// clang-format on
