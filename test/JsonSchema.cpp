#include "test/JsonSchema.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <stdexcept>

namespace test {

namespace {

using nlohmann::json;

const std::set<std::string> knownWords{"$schema",
                                       "$id",
                                       "$defs",
                                       "$ref",
                                       "title",
                                       "description",
                                       "type",
                                       "properties",
                                       "required",
                                       "items",
                                       "prefixItems",
                                       "minItems",
                                       "maxItems",
                                       "enum",
                                       "const",
                                       "minimum",
                                       "oneOf",
                                       "allOf",
                                       "additionalProperties",
                                       "propertyNames"};

bool isOfType(const json& value, const std::string& type) {
  return type == "object"    ? value.is_object()
         : type == "array"   ? value.is_array()
         : type == "string"  ? value.is_string()
         : type == "boolean" ? value.is_boolean()
         : type == "null"    ? value.is_null()
         : type == "integer" ? value.is_number_integer()
         : type == "number"  ? value.is_number()
                             : false;
}

std::string checkType(const json& type, const json& value, const std::string& path) {
  const json types = type.is_array() ? type : json::array({type});
  const bool fits = std::any_of(types.begin(), types.end(),
                                [&](const json& one) { return isOfType(value, one.get<std::string>()); });
  return fits ? "" : std::string(path).append(": is not ").append(type.dump());
}

} // namespace

JsonSchema JsonSchema::ofCommand(const std::string& command) {
  const std::string path = std::string(XPACL_SOURCE_DIR) + "/docs/schema/" + command + ".schema.json";
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error(path + " is missing");
  }
  return JsonSchema(json::parse(file));
}

JsonSchema::JsonSchema(json schema) : schema_(std::move(schema)) {
  checkWords(schema_, "");
}

void JsonSchema::checkWords(const json& schema, const std::string& path) const {
  for (const auto& [word, value] : schema.items()) {
    if (knownWords.count(word) == 0) {
      throw std::runtime_error(std::string(path).append("/").append(word).append(" is not understood"));
    }
    if (word == "properties" || word == "$defs") {
      for (const auto& [name, part] : value.items()) {
        checkWords(part, std::string(path).append("/").append(name));
      }
    } else if (word == "oneOf" || word == "allOf" || word == "prefixItems") {
      for (const json& part : value) {
        checkWords(part, std::string(path).append("/").append(word));
      }
    } else if (word == "items" || word == "additionalProperties" || word == "propertyNames") {
      checkWords(value, std::string(path).append("/").append(word));
    } else if (word == "$ref") {
      resolved(schema);
    }
  }
}

const json& JsonSchema::resolved(const json& schema) const {
  const std::string name = schema.at("$ref").get<std::string>();
  const std::string defs = "#/$defs/";
  if (name.rfind(defs, 0) != 0 || !schema_.contains("$defs") ||
      !schema_["$defs"].contains(name.substr(defs.size()))) {
    throw std::runtime_error(name + " is not there");
  }
  return schema_["$defs"][name.substr(defs.size())];
}

std::string JsonSchema::check(const json& value) const {
  return check(schema_, value, "", false);
}

std::string JsonSchema::check(const json& schema, const json& value, const std::string& path,
                              bool partial) const {
  const auto wrong = [&](const std::string& what) { return std::string(path).append(": ").append(what); };
  if (schema.contains("$ref")) {
    const std::string found = check(resolved(schema), value, path, partial);
    if (!found.empty()) {
      return found;
    }
  }
  if (schema.contains("type")) {
    const std::string found = checkType(schema["type"], value, path);
    if (!found.empty()) {
      return found;
    }
  }
  if (schema.contains("const") && value != schema["const"]) {
    return wrong("is not " + schema["const"].dump());
  }
  if (schema.contains("enum") &&
      std::find(schema["enum"].begin(), schema["enum"].end(), value) == schema["enum"].end()) {
    return wrong(value.dump() + " is none of " + schema["enum"].dump());
  }
  if (schema.contains("minimum") && value.is_number() && value < schema["minimum"]) {
    return wrong("is below " + schema["minimum"].dump());
  }
  if (schema.contains("allOf")) {
    for (const json& part : schema["allOf"]) {
      const std::string found = check(part, value, path, true);
      if (!found.empty()) {
        return found;
      }
    }
    if (value.is_object() && !partial) {
      for (const auto& [name, member] : value.items()) {
        if (!describes(schema, name)) {
          return wrong(name + " is not described");
        }
      }
    }
  }
  if (schema.contains("oneOf")) {
    std::string reasons;
    std::size_t fits = 0;
    for (const json& part : schema["oneOf"]) {
      const std::string found = check(part, value, path, partial);
      fits += found.empty() ? 1 : 0;
      reasons.append(found.empty() ? "" : "\n  ").append(found);
    }
    if (fits != 1) {
      return wrong(std::to_string(fits) + " alternatives fit" + reasons);
    }
  }
  return value.is_object()  ? checkObject(schema, value, path, partial)
         : value.is_array() ? checkArray(schema, value, path)
                            : "";
}

std::string JsonSchema::checkObject(const json& schema, const json& value, const std::string& path,
                                    bool partial) const {
  for (const json& name : schema.value("required", json::array())) {
    if (!value.contains(name.get<std::string>())) {
      return std::string(path).append("/").append(name.get<std::string>()).append(": is missing");
    }
  }
  if (!schema.contains("properties") && !schema.contains("additionalProperties")) {
    return "";
  }
  const json properties = schema.value("properties", json::object());
  for (const auto& [name, member] : value.items()) {
    const std::string place = std::string(path).append("/").append(name);
    std::string found;
    if (schema.contains("propertyNames")) {
      found = check(schema["propertyNames"], name, place, false);
    }
    if (found.empty() && properties.contains(name)) {
      found = check(properties[name], member, place, false);
    } else if (found.empty() && schema.contains("additionalProperties")) {
      found = check(schema["additionalProperties"], member, place, false);
    } else if (found.empty() && !partial) {
      found = place + ": is not described";
    }
    if (!found.empty()) {
      return found;
    }
  }
  return "";
}

std::string JsonSchema::checkArray(const json& schema, const json& value, const std::string& path) const {
  if (value.size() < schema.value("minItems", std::size_t{0}) ||
      value.size() > schema.value("maxItems", SIZE_MAX)) {
    return path + ": has " + std::to_string(value.size()) + " elements";
  }
  const json first = schema.value("prefixItems", json::array());
  for (std::size_t i = 0; i < value.size(); ++i) {
    const std::string place = std::string(path).append("/").append(std::to_string(i));
    std::string found;
    if (i < first.size()) {
      found = check(first[i], value[i], place, false);
    } else if (schema.contains("items")) {
      found = check(schema["items"], value[i], place, false);
    }
    if (!found.empty()) {
      return found;
    }
  }
  return "";
}

bool JsonSchema::describes(const json& schema, const std::string& member) const {
  if (schema.contains("$ref") && describes(resolved(schema), member)) {
    return true;
  }
  if (schema.contains("properties") && schema["properties"].contains(member)) {
    return true;
  }
  const json parts = schema.value("allOf", json::array());
  return std::any_of(parts.begin(), parts.end(), [&](const json& part) { return describes(part, member); });
}

} // namespace test
