#include "Vane/Entity.h"

#include "Vane/Assert.h"

#include <map>
#include <string>

namespace Vane {

namespace {

std::map<std::string, EntityMaker>& makers() {
  static std::map<std::string, EntityMaker> instance;
  return instance;
}

} // namespace

EntityRegistration::EntityRegistration(const char* typeName, EntityMaker maker) {
  makers().emplace(typeName, maker);
}

Entity::~Entity() = default;

const Type& Entity::vaneType() {
  static const Type& type =
      Type::define("Vane::Entity", typeid(Entity), &PtrInterface::vaneType(), [](Type& record) {
        record.attributeIs({"name", AttributeKind::constant, "", "Vane::Name"});
      });
  return type;
}

Name Entity::fullName() const {
  return parent_ == nullptr ? name_ : parent_->fullName() + Name("/") + name_;
}

void Entity::saveConstructParams() const {
  if (parent_ != nullptr && hasBackupSupport()) {
    parent_->backups_.insertOrAssign(name_, fwkType().name());
  }
}

void Entity::entBackupDel() const {
  if (parent_ != nullptr) {
    parent_->backupDel(name_);
  }
}

Ptr<Entity> Entity::reconstruct(const Name& name, const Ptr<Dir>& dir) {
  if (Ptr<Entity> held = dir->entity(name)) {
    return held;
  }
  const Name* typeName = dir->backups_.find(name);
  const auto maker = typeName == nullptr ? makers().end() : makers().find(typeName->charPtr());
  if (maker == makers().end()) {
    return nullptr;
  }
  Ptr<Entity> entity = maker->second(name);
  dir->entityIs(entity);
  return entity;
}

const Type& Dir::vaneType() {
  static const Type& type = Type::define("Vane::Dir", typeid(Dir), &Entity::vaneType(), [](Type& record) {
    record.attributeIs({"entity", AttributeKind::orderedMap, "Vane::Name", "Vane::Ptr<Vane::Entity>"});
  });
  return type;
}

Dir::~Dir() {
  for (const auto& member : entities_) {
    member.value()->parent_ = nullptr;
  }
}

void Dir::entityIs(const Ptr<Entity>& entity) {
  if (entity->parent_ == this) {
    return;
  }
  VANE_ASSERT(entity->parent_ == nullptr);
  if (!entities_.insert(entity->name(), entity)) {
    throwNameInUseException(format("the name \"%s\" is in use in directory \"%s\"", entity->name().charPtr(),
                                   fullName().charPtr()));
  }
  entity->parent_ = this;
  entity->handleParent();
}

void Dir::entityDel(const Name& name) {
  if (const Ptr<Entity> held = entity(name)) {
    entities_.erase(name);
    held->parent_ = nullptr;
  }
}

Ptr<Dir> dirFactory(const Name& name) {
  return Access::make<Dir>(name);
}

void throwReinstantiation(const char* name, const String& given, const String& current) {
  throwNameInUseException(
      String("Reinstantiating the pointer interface where constructor parameter attribute _") + String(name) +
      String(" has a different value of ") + given + String(" than the current value of ") + current +
      String(" not allowed"));
}

} // namespace Vane
