#pragma once

#include <string>

namespace tool {

// The report as one HTML document that needs no other file: style, script and data stand in it. `json` is the
// data as JSON text in UTF-8.
std::string reportPage(const std::string& json);

// JSON text as it may stand within a script element: an equal document, without the characters that could
// end the element or begin markup. Octets of UTF-8 stay.
std::string jsonInScript(const std::string& json);

} // namespace tool
