#pragma once

#include <nlohmann/json.hpp>

#include <string>

// A validator for the part of JSON Schema (2020-12) that docs/schema/ uses: type, properties, required,
// additionalProperties, propertyNames, items, prefixItems, minItems, maxItems, enum, const, minimum, oneOf,
// allOf and $ref into $defs. Any other word that says something about values is an error in the schema.
//
// Stricter than the standard in one point: a member that the schema does not describe is an error too, so
// that what commands print cannot grow without the schema.

namespace test {

class JsonSchema {
public:
  // Reads docs/schema/<command>.schema.json. Throws std::runtime_error when it cannot be read or uses other
  // words.
  static JsonSchema ofCommand(const std::string& command);
  explicit JsonSchema(nlohmann::json schema);

  // The first thing that is wrong, with its JSON pointer: "/tables/ingressV4/rows: is not integer"; empty
  // when the value is valid.
  std::string check(const nlohmann::json& value) const;

  const nlohmann::json& text() const { return schema_; }

private:
  std::string check(const nlohmann::json& schema, const nlohmann::json& value, const std::string& path,
                    bool partial) const;
  std::string checkObject(const nlohmann::json& schema, const nlohmann::json& value, const std::string& path,
                          bool partial) const;
  std::string checkArray(const nlohmann::json& schema, const nlohmann::json& value,
                         const std::string& path) const;
  void checkWords(const nlohmann::json& schema, const std::string& path) const;
  const nlohmann::json& resolved(const nlohmann::json& schema) const;
  // Names of the members that a schema describes, those of its parts included.
  bool describes(const nlohmann::json& schema, const std::string& member) const;

  nlohmann::json schema_;
};

} // namespace test
