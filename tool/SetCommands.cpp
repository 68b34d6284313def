#include "tool/SetCommands.h"

#include "tool/Command.h"

#include <cmath>
#include <cstdio>

namespace tool {

void addSetOptions(Command command, SetOptions& options) {
  command.option("--memory", options.memory, "MiB that sets of packets may take")
      .range(16, 1048576)
      .showDefault();
  addCommonOptions(command, options);
}

std::string memoryText(std::size_t bytes) {
  return std::to_string((bytes + (1u << 20) - 1) >> 20) + " MiB";
}

std::string packetsText(double packets) {
  constexpr double countable = 1e6;
  if (packets <= countable) {
    return std::to_string(static_cast<uint64_t>(packets));
  }
  const double power = std::log2(packets);
  char text[32];
  std::snprintf(text, sizeof text, "2^%.1f", power);
  std::string shown = text;
  if (shown.ends_with(".0")) {
    shown.resize(shown.size() - 2);
  }
  return power == std::floor(power) ? shown : "about " + shown;
}

const agent::AccessList* listAt(const agent::Config& config, const agent::Interface* intf,
                                agent::Direction direction, agent::Family family) {
  if (intf == nullptr) {
    return nullptr;
  }
  for (const agent::Binding& binding : intf->bindings) {
    if (binding.direction == direction && binding.family == family) {
      const agent::AccessList* const list = config.list(family, binding.list);
      return list == nullptr || list->rules.empty() ? nullptr : list;
    }
  }
  return nullptr;
}

const agent::Rule* ruleOf(const verify::Judgement& judgement, const agent::AccessList* list) {
  return judgement.decider == verify::Decider::line && list != nullptr ? &list->rules[judgement.index]
                                                                       : nullptr;
}

std::string judgementText(const verify::Judgement& judgement, const agent::AccessList* list) {
  if (const agent::Rule* const rule = ruleOf(judgement, list)) {
    return list->name + " " + rule->loc.file + ":" + std::to_string(rule->loc.line) + " " + rule->text;
  }
  if (list == nullptr || judgement.decider == verify::Decider::noList) {
    return "no list";
  }
  return list->name + (judgement.decider == verify::Decider::neighbourDiscovery
                           ? " (implicit) permit of neighbour discovery"
                           : " (implicit) deny");
}

} // namespace tool
