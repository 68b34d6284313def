#pragma once

#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace agent {

// The member of a document that has what no public model has words for: the rows of the TCAM tables, and
// which port is on which chip. It says nothing about packets.
constexpr const char* hardwareMember = "xpacl:hardware";

struct OpenConfigOptions { // what to write
  // `state` containers beside every `config`, with the packets that an entry matched where it is known: the
  // list and the position of the rule in it.
  bool state = false;
  std::function<std::optional<uint64_t>(const AccessList& list, size_t rule)> matchedPackets;
};

// The configuration as a document of the OpenConfig models; reading it again judges every packet the same.
// Lines with several alternatives refer to sets of prefixes and ports, or become several entries. `losses`
// has what the models have no words for, each with its place and what to do; the document lacks it then and
// must not be used. `notes` has what was changed without changing a verdict: sequence numbers.
std::string toOpenConfig(const Config& config, std::vector<std::string>& losses,
                         std::vector<std::string>& notes, const OpenConfigOptions& options = {});

} // namespace agent
