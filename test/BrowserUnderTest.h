#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <sys/types.h>
#include <vector>

// A headless Chromium, driven over a pair of pipes with the DevTools protocol: each message is a JSON text
// that ends with an octet of 0.

namespace test {

class BrowserUnderTest {
public:
  // The program: $XPACL_CHROMIUM, or the first of chromium-headless-shell and chromium that PATH has; empty
  // without one.
  static std::string program();

  // Starts the browser. Throws std::runtime_error when it does not come up.
  BrowserUnderTest();
  ~BrowserUnderTest();
  BrowserUnderTest(const BrowserUnderTest&) = delete;
  BrowserUnderTest& operator=(const BrowserUnderTest&) = delete;

  // Opens a page in a window of this size, in CSS pixels, and waits until it has drawn itself
  // (`document.documentElement.dataset.drawn`).
  void open(const std::string& url, unsigned width = 1280, unsigned height = 900);
  void darkIs(bool dark);

  // The value of a JavaScript expression; promises are awaited. Throws with the text of an exception.
  nlohmann::json value(const std::string& expression);
  std::string text(const std::string& expression) { return value(expression).get<std::string>(); }

  // "ArrowRight", "Enter", "Tab"; `control`: with the control key held.
  void key(const std::string& name, bool control = false);
  // CSS pixels of the window.
  void mouseTo(double x, double y);
  // Waits until what the last events caused is drawn.
  void settle();
  // The window as a PNG; `whole`: the whole page.
  void screenshot(const std::string& path, bool whole = false);
  // Roles and names as assistive technology sees them: the nodes of these roles that have no name.
  std::vector<std::string> nameless(const std::vector<std::string>& roles);

  // Uncaught exceptions and errors in the console since the page was opened, and requests other than for the
  // page itself.
  const std::vector<std::string>& complaints() const { return complaints_; }

private:
  nlohmann::json call(const std::string& method, const nlohmann::json& parameters = nlohmann::json::object());
  nlohmann::json receive();
  void noticed(const nlohmann::json& event);

  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
  std::string received_;
  std::string target_;
  std::string session_;
  std::string url_;
  std::string profile_;
  int lastId_ = 0;
  std::vector<std::string> complaints_;
};

} // namespace test
