#include "tool/ReportPage.h"

#include "tool/ReportSources.h"

#include <stdexcept>
#include <string_view>

namespace tool {

namespace {

// The part of `page` in front of `mark`; takes both away.
std::string_view upTo(std::string_view& page, std::string_view mark) {
  const std::size_t at = page.find(mark);
  if (at == std::string_view::npos) {
    throw std::logic_error("the page has no place for " + std::string(mark));
  }
  const std::string_view before = page.substr(0, at);
  page.remove_prefix(at + mark.size());
  return before;
}

} // namespace

std::string jsonInScript(const std::string& json) {
  std::string text;
  text.reserve(json.size());
  // In JSON these stand within strings only, where an escape says the same.
  for (const char c : json) {
    switch (c) {
    case '<':
      text += "\\u003c";
      break;
    case '>':
      text += "\\u003e";
      break;
    case '&':
      text += "\\u0026";
      break;
    default:
      text += c;
    }
  }
  return text;
}

std::string reportPage(const std::string& json) {
  std::string_view rest = reportHtml;
  std::string page(upTo(rest, "/*STYLE*/"));
  page += reportCss;
  page += upTo(rest, "/*DATA*/");
  page += jsonInScript(json);
  page += upTo(rest, "/*SCRIPT*/");
  page += reportJs;
  page += rest;
  return page;
}

} // namespace tool
