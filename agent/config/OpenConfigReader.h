#pragma once

#include "agent/config/ConfigReader.h"
#include "agent/config/Diagnostics.h"

#include <string_view>

namespace agent {

// Documents of the public OpenConfig models in JSON (RFC 7951): the acl-sets and the interfaces that have
// them, sets of prefixes and ports, and what decides which VLANs a port carries. A bare list of acl-sets, and
// one without the container around it, are read too. Everything is named with or without its module. What a
// row cannot compare is refused with its path; what belongs to other models is passed over.
void readOpenConfig(std::string_view text, const ReadOptions& options, Diagnostics& diagnostics,
                    Config& config);

// Whether a text is JSON by its first octet that is no blank.
bool looksLikeOpenConfig(std::string_view text);

} // namespace agent
