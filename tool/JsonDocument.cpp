#include "tool/JsonDocument.h"

#include <nlohmann/json.hpp>

#include <iostream>

namespace tool {

std::string jsonSchemaName(const std::string& command) {
  return "xpacl/" + command + "/" + std::to_string(jsonVersion);
}

Json jsonDocument(const std::string& command, Json body) {
  Json document{{"schema", jsonSchemaName(command)}};
  for (auto& [name, value] : body.items()) {
    document[name] = std::move(value);
  }
  return document;
}

void printJson(const std::string& command, Json body) {
  std::cout << dump(jsonDocument(command, std::move(body))) << '\n';
}

} // namespace tool
