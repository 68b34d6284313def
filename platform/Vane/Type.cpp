#include "Vane/Type.h"

#include "Vane/Exception.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Vane {

namespace {

struct Registry {
  std::recursive_mutex mutex;
  std::map<std::string, std::unique_ptr<Type>> byClass; // by the C++ class's own unique name
  std::map<std::string, const Type& (*)()> pending;     // classes with a factory, not used yet
};

Registry& registry() {
  static Registry instance;
  return instance;
}

} // namespace

const char* attributeKindName(AttributeKind kind) {
  switch (kind) {
  case AttributeKind::constant:
    return "constant";
  case AttributeKind::scalar:
    return "scalar";
  case AttributeKind::pointer:
    return "pointer";
  case AttributeKind::map:
    return "map";
  case AttributeKind::orderedMap:
    return "orderedMap";
  case AttributeKind::children:
    return "children";
  case AttributeKind::orderedChildren:
    return "orderedChildren";
  }
  return "unknown";
}

Type::Type(const char* name, const Type* base)
    : name_(name), base_(base), depth_(base == nullptr ? 0 : base->depth_ + 1) {
  if (base != nullptr) {
    ancestors_ = base->ancestors_;
  }
  ancestors_.push_back(this);
}

const Type& Type::define(const char* name, const std::type_info& info, const Type* base, Fill fill) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  std::unique_ptr<Type>& held = all.byClass[info.name()];
  if (held == nullptr) {
    held.reset(new Type(name, base));
    fill(*held);
  }
  return *held;
}

void Type::attributeIs(const Attribute& attribute) {
  attributes_.push_back(attribute);
}

void Type::operationIs(Operation operation) {
  operations_.push_back(std::move(operation));
}

const Type* Type::find(const String& name) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  for (const auto& [key, type] : all.byClass) {
    if (name == type->name()) {
      return type.get();
    }
  }
  const auto pending = all.pending.find(name.charPtr());
  return pending == all.pending.end() ? nullptr : &pending->second();
}

TypeRegistration::TypeRegistration(const char* name, const Type& (*type)()) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  all.pending.emplace(name, type);
}

const Attribute* Type::attribute(const String& name) const {
  for (const Type* type = this; type != nullptr; type = type->base_) {
    for (const Attribute& attribute : type->attributes_) {
      if (name == attribute.name) {
        return &attribute;
      }
    }
  }
  return nullptr;
}

const Operation& Type::operation(const String& name) const {
  for (const Type* type = this; type != nullptr; type = type->base_) {
    for (const Operation& operation : type->operations_) {
      if (name == operation.name()) {
        return operation;
      }
    }
  }
  throw Exception(std::string(name_) + " has no operation \"" + name.charPtr() + "\"");
}

std::any Operation::invoke(PtrInterface& object, const std::vector<std::any>& arguments) const {
  if (!object.fwkType().isA(*type_)) {
    throw Exception(std::string(name_) + " is an operation of " + type_->name() + ", not of " +
                    object.fwkType().name());
  }
  if (arguments.size() != numArguments_) {
    throw Exception(std::string(name_) + " takes " + std::to_string(numArguments_) + " arguments, not " +
                    std::to_string(arguments.size()));
  }
  return call_(object, arguments);
}

void throwWrongArgument(const char* operation, std::size_t index) {
  throw Exception(std::string(operation) + ": argument " + std::to_string(index + 1) + " is of another type");
}

} // namespace Vane
