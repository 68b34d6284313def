#pragma once

#include "Vane/Ptr.h"
#include "Vane/String.h"
#include "Vane/Types.h"

#include <any>
#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

// Run-time type records: a class's name, base, attributes, and operations that can be called by name
// (by a show command, say). Every class declared with VANE_ENTITY has one record in the process.

namespace Vane {
// The kinds of attribute that Vane/Entity.h declares.
enum class AttributeKind { constant, scalar, pointer, map, orderedMap, children, orderedChildren };
VANE_API const char* attributeKindName(AttributeKind kind); // "scalar" and so on

struct Attribute { // as it was declared
  const char* name;
  AttributeKind kind;
  const char* keyType;   // as declared; empty for attributes without a key
  const char* valueType; // as declared
};

// A member function that is callable by name.
class VANE_API Operation {
public:
  using Call = std::function<std::any(PtrInterface&, const std::vector<std::any>&)>;

  Operation(const char* name, const Type& type, std::size_t numArguments, Call call)
      : name_(name), type_(&type), numArguments_(numArguments), call_(std::move(call)) {}
  const char* name() const { return name_; }
  std::size_t numArguments() const { return numArguments_; }

  // Calls the operation on `object`; empty result for void. Integer arguments are converted when
  // they fit. Raises Exception when the object is not of the operation's type, the number of
  // arguments is wrong, or one of them is of another type.
  std::any invoke(PtrInterface& object, const std::vector<std::any>& arguments = {}) const;
  template <typename T>
  std::any invoke(const Ptr<T>& object, const std::vector<std::any>& arguments = {}) const {
    return invoke(static_cast<PtrInterface&>(*object), arguments);
  }

private:
  const char* name_;
  const Type* type_;
  std::size_t numArguments_;
  Call call_;
};

class VANE_API Type { // one for each class, for as long as the process lives
public:
  using Fill = void (*)(Type&);

  // The record of a C++ class, made and filled on first use. Copies of one class in several libraries
  // share it.
  static const Type& define(const char* name, const std::type_info& info, const Type* base, Fill fill);
  // The record of a class that was used or has a factory; null when there is none of that name.
  static const Type* find(const String& name);

  const char* name() const { return name_; }
  const Type* base() const { return base_; }
  bool isA(const Type& other) const { // itself, or a base
    return other.depth_ < ancestors_.size() && ancestors_[other.depth_] == &other;
  }

  // Those of this class alone, in the order of declaration.
  const std::vector<Attribute>& attributes() const { return attributes_; }
  const std::vector<Operation>& operations() const { return operations_; }
  // Of this class or its bases; null, or Exception for the operation, when there is none.
  const Attribute* attribute(const String& name) const;
  const Operation& operation(const String& name) const;

  // Filling a record.
  void attributeIs(const Attribute& attribute);
  void operationIs(Operation operation);

private:
  Type(const char* name, const Type* base);

  const char* name_;
  const Type* base_;
  std::size_t depth_;
  std::vector<const Type*> ancestors_; // by depth, this class last
  std::vector<Attribute> attributes_;
  std::vector<Operation> operations_;
};

// Makes a class known to Type::find before its first use.
struct VANE_API TypeRegistration {
  TypeRegistration(const char* name, const Type& (*type)());
};

[[noreturn]] VANE_API void throwWrongArgument(const char* operation, std::size_t index);

// The argument as a T: the same type, or an integer that fits.
template <typename T>
bool argumentAs(const std::any& argument, T* value) {
  if (const T* same = std::any_cast<T>(&argument)) {
    *value = *same;
    return true;
  }
  if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    const auto fits = [&]<typename G>(std::type_identity<G>) {
      const G* given = std::any_cast<G>(&argument);
      if (given == nullptr || !std::in_range<T>(*given)) {
        return false;
      }
      *value = static_cast<T>(*given); // NOLINT(bugprone-signed-char-misuse): it fits
      return true;
    };
    return fits(std::type_identity<int>{}) || fits(std::type_identity<unsigned>{}) ||
           fits(std::type_identity<long>{}) || fits(std::type_identity<unsigned long>{}) ||
           fits(std::type_identity<long long>{}) || fits(std::type_identity<unsigned long long>{}) ||
           fits(std::type_identity<short>{}) || fits(std::type_identity<unsigned short>{}) ||
           fits(std::type_identity<signed char>{}) || fits(std::type_identity<unsigned char>{});
  }
  return false;
}

template <typename Class, typename Result, typename... Args, typename Function>
void addOperationAs(Type& type, const char* name, Function member) {
  const auto call = [name, member](PtrInterface& object,
                                   [[maybe_unused]] const std::vector<std::any>& given) -> std::any {
    std::tuple<std::remove_cvref_t<Args>...> values;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      ((argumentAs(given[I], &std::get<I>(values)) ? void() : throwWrongArgument(name, I)), ...);
    }
    (std::index_sequence_for<Args...>{});
    Class& self = static_cast<Class&>(object);
    return std::apply(
        [&](auto&... args) -> std::any {
          if constexpr (std::is_void_v<Result>) {
            (self.*member)(args...);
            return {};
          } else {
            return (self.*member)(args...);
          }
        },
        values);
  };
  type.operationIs(Operation(name, type, sizeof...(Args), call));
}
template <typename Class, typename Result, typename... Args>
void addOperation(Type& type, const char* name, Result (Class::*member)(Args...)) {
  addOperationAs<Class, Result, Args...>(type, name, member);
}
template <typename Class, typename Result, typename... Args>
void addOperation(Type& type, const char* name, Result (Class::*member)(Args...) const) {
  addOperationAs<Class, Result, Args...>(type, name, member);
}

} // namespace Vane
