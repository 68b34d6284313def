#pragma once

// The files of tool/report/, built into the program.

namespace tool {

extern const char* const reportHtml; // with the places of the others marked /*STYLE*/, /*DATA*/, /*SCRIPT*/
extern const char* const reportCss;
extern const char* const reportJs;

} // namespace tool
