#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/ConfigReader.h"

#include <string>
#include <vector>

// Configurations from one form into another. What the other form has no words for is an error, never left
// out; and what is written is read again and compared, so that nothing is changed on the way unnoticed.

namespace tool {

struct Converted {
  std::string text;
  std::vector<std::string> losses; // why it cannot be done; the text is of no use then
  std::vector<std::string> notes;  // what is different without judging any packet differently
};

// `target`: cli or openconfig.
Converted convert(const agent::Config& config, agent::InputFormat target);

// Where two configurations differ in what they do to packets, what they log, or where lists are applied;
// empty when they do not. Lists are compared line by line, and packet by packet where their lines differ.
std::string difference(const agent::Config& before, const agent::Config& after);

} // namespace tool
