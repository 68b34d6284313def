#pragma once

#include "agent/config/ConfigReader.h"

#include <string>

// Configurations as short text, so that tests compare them whole.

namespace configtest {

// "3:17: error: message", one line each, without the file.
std::string diagnosticsText(const agent::Config& config);

// "ip extended NAME\n  10 permit tcp any any eq 80 log\n": the entries as they were understood. Further
// alternatives of one entry stand on lines that start with "     or".
std::string listsText(const agent::Config& config);

// "Ethernet1 = GigabitEthernet1/0/1 [v4 in A, mac in M] access 10 trunk 1-5,7 group 3 chip 1\n".
std::string interfacesText(const agent::Config& config);

// All of the above and the rest.
std::string summary(const agent::Config& config);
std::string summaryOf(const std::string& text, const agent::ReadOptions& options = {});

// Golden tables: every line is "INPUT => OUTPUT". Answers the table with each output replaced by what
// `output` makes of the input, so that it can be compared with itself. Empty lines stay.
std::string regenerated(const std::string& table, std::string (*output)(const std::string& input));

// What becomes of one line of an applied list: its alternatives, joined by " | ", then its diagnostics in
// brackets with their columns counted within the line.
std::string v4Entry(const std::string& line);
std::string v6Entry(const std::string& line);
std::string macEntry(const std::string& line);
std::string standardEntry(const std::string& line);

} // namespace configtest
