#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/Common.h"
#include "verify/LineEvaluator.h"

#include <cstddef>
#include <string>

// What the commands about whole sets of packets share.

namespace tool {

struct SetOptions : CommonOptions {
  std::size_t memory = 6144; // MiB that the sets of one family may take

  std::size_t memoryBytes() const { return memory << 20; }
};

// Those and the common ones.
void addSetOptions(Command command, SetOptions& options);

std::string memoryText(std::size_t bytes); // "12 MiB"
// A number of packets: exact up to a million, then "2^32" or "about 2^31.6".
std::string packetsText(double packets);

// The list that judges at an interface; null: none, or one without lines, which judges nothing.
const agent::AccessList* listAt(const agent::Config& config, const agent::Interface* intf,
                                agent::Direction direction, agent::Family family);

// The rule that a judgement by `list` names, or null.
const agent::Rule* ruleOf(const verify::Judgement& judgement, const agent::AccessList* list);
// Where the rule stands and what it says: "LIST file:12 permit ip any any", "LIST (implicit) deny",
// "no list".
std::string judgementText(const verify::Judgement& judgement, const agent::AccessList* list);

} // namespace tool
