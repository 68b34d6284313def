#include "test/BrowserUnderTest.h"

#include "test/TempFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace test {

namespace {

using nlohmann::json;

constexpr int patienceMs = 60000; // for one answer
// The browser's ends of the pipes, fixed by it.
constexpr int browserReads = 3;
constexpr int browserWrites = 4;

std::string inPath(const std::string& program) {
  std::istringstream path(std::getenv("PATH") == nullptr ? "" : std::getenv("PATH"));
  for (std::string folder; std::getline(path, folder, ':');) {
    const std::string file = folder + "/" + program;
    if (::access(file.c_str(), X_OK) == 0) {
      return file;
    }
  }
  return "";
}

std::string fromBase64(const std::string& text) {
  static constexpr const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string octets;
  uint32_t bits = 0;
  unsigned have = 0;
  for (const char c : text) {
    const char* const digit = c == '\0' ? nullptr : std::strchr(digits, c);
    if (digit == nullptr) {
      continue;
    }
    bits = bits << 6 | static_cast<uint32_t>(digit - digits);
    have += 6;
    if (have >= 8) {
      have -= 8;
      octets += static_cast<char>(bits >> have & 0xFF);
    }
  }
  return octets;
}

} // namespace

std::string BrowserUnderTest::program() {
  if (const char* const named = std::getenv("XPACL_CHROMIUM")) {
    return named;
  }
  for (const char* const name : {"chromium-headless-shell", "chromium"}) {
    const std::string found = inPath(name);
    if (!found.empty()) {
      return found;
    }
  }
  return "";
}

BrowserUnderTest::BrowserUnderTest() {
  std::array<int, 2> down{};
  std::array<int, 2> up{};
  if (::pipe2(down.data(), O_CLOEXEC) != 0 || ::pipe2(up.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipes");
  }
  // Whatever numbers the pipes got, these are out of the way of 3 and 4.
  const int reads = ::fcntl(down[0], F_DUPFD_CLOEXEC, 10);
  const int writes = ::fcntl(up[1], F_DUPFD_CLOEXEC, 10);
  profile_ = newTempFolder("xpacl_browser").string();
  const std::string name = program();
  const std::string profile = "--user-data-dir=" + profile_;
  const std::array<const char*, 12> arguments{name.c_str(),
                                              "--headless",
                                              "--remote-debugging-pipe",
                                              "--no-sandbox",
                                              "--no-first-run",
                                              "--disable-gpu",
                                              "--disable-dev-shm-usage",
                                              "--disable-background-networking",
                                              "--hide-scrollbars",
                                              "--force-device-scale-factor=1",
                                              profile.c_str(),
                                              nullptr};
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(reads, browserReads);
    ::dup2(writes, browserWrites);
    const int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, STDOUT_FILENO);
    ::dup2(null, STDERR_FILENO);
    ::execv(name.c_str(), const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  for (const int end : {down[0], up[1], reads, writes}) {
    ::close(end);
  }
  to_ = down[1];
  from_ = up[0];
  call("Browser.getVersion");
}

BrowserUnderTest::~BrowserUnderTest() {
  ::close(to_);
  ::close(from_);
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  std::error_code ignored;
  // The browser's helpers may still be writing.
  for (int i = 0; i < 20 && std::filesystem::exists(profile_, ignored); ++i) {
    std::filesystem::remove_all(profile_, ignored);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

json BrowserUnderTest::receive() {
  std::size_t end = received_.find('\0');
  while (end == std::string::npos) {
    pollfd waiting{from_, POLLIN, 0};
    std::array<char, 65536> octets{};
    const ssize_t got =
        ::poll(&waiting, 1, patienceMs) == 1 ? ::read(from_, octets.data(), octets.size()) : -1;
    if (got <= 0) {
      throw std::runtime_error(program() + " does not answer");
    }
    const std::size_t searched = received_.size();
    received_.append(octets.data(), static_cast<std::size_t>(got));
    end = received_.find('\0', searched);
  }
  json message = json::parse(received_.substr(0, end));
  received_.erase(0, end + 1);
  return message;
}

json BrowserUnderTest::call(const std::string& method, const json& parameters) {
  json message{{"id", ++lastId_}, {"method", method}, {"params", parameters}};
  if (!session_.empty()) {
    message["sessionId"] = session_;
  }
  const std::string text = message.dump() + '\0';
  for (std::size_t at = 0; at < text.size();) {
    const ssize_t put = ::write(to_, text.data() + at, text.size() - at);
    if (put <= 0) {
      throw std::runtime_error(program() + " does not listen");
    }
    at += static_cast<std::size_t>(put);
  }
  for (;;) {
    json answer = receive();
    if (answer.contains("id") && answer["id"] == lastId_) {
      if (answer.contains("error")) {
        throw std::runtime_error(method + ": " + answer["error"].dump());
      }
      return answer["result"];
    }
    noticed(answer);
  }
}

void BrowserUnderTest::noticed(const json& event) {
  const std::string method = event.value("method", "");
  if (method == "Runtime.exceptionThrown") {
    const json& details = event["params"]["exceptionDetails"];
    complaints_.push_back("exception: " +
                          details.value("exception", json::object()).value("description", details.dump()));
  } else if (method == "Log.entryAdded" && event["params"]["entry"]["level"] == "error") {
    complaints_.push_back("console: " + event["params"]["entry"]["text"].get<std::string>());
  } else if (method == "Network.requestWillBeSent" && event["params"]["request"]["url"] != url_) {
    complaints_.push_back("request: " + event["params"]["request"]["url"].get<std::string>());
  }
}

void BrowserUnderTest::open(const std::string& url, unsigned width, unsigned height) {
  session_.clear();
  if (!target_.empty()) {
    call("Target.closeTarget", {{"targetId", target_}});
  }
  complaints_.clear();
  url_ = url;
  target_ = call("Target.createTarget", {{"url", "about:blank"}})["targetId"];
  session_ = call("Target.attachToTarget", {{"targetId", target_}, {"flatten", true}})["sessionId"];
  for (const char* const domain : {"Page", "Runtime", "Log", "Network", "Accessibility"}) {
    call(std::string(domain) + ".enable");
  }
  call("Emulation.setDeviceMetricsOverride",
       {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
  call("Page.navigate", {{"url", url}});
  for (int i = 0; i < 600; ++i) {
    if (value("document.documentElement && document.documentElement.dataset.drawn || ''") == "yes" &&
        value("location.href").get<std::string>().rfind(url, 0) == 0) {
      return;
    }
    if (!complaints_.empty()) {
      throw std::runtime_error(complaints_.front());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  throw std::runtime_error(url + " is not drawn");
}

void BrowserUnderTest::darkIs(bool dark) {
  call("Emulation.setEmulatedMedia",
       {{"features", json::array({{{"name", "prefers-color-scheme"}, {"value", dark ? "dark" : "light"}}})}});
  settle();
}

json BrowserUnderTest::value(const std::string& expression) {
  const json answer =
      call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}, {"awaitPromise", true}});
  if (answer.contains("exceptionDetails")) {
    throw std::runtime_error(expression + ": " + answer["exceptionDetails"].dump());
  }
  return answer["result"].value("value", json());
}

void BrowserUnderTest::key(const std::string& name, bool control) {
  json parameters{{"type", name == "Enter" ? "keyDown" : "rawKeyDown"},
                  {"key", name},
                  {"code", name},
                  {"modifiers", control ? 2 : 0}};
  if (name == "Enter") {
    parameters["text"] = "\r";
    parameters["windowsVirtualKeyCode"] = 13;
  } else if (name == "Tab") {
    parameters["windowsVirtualKeyCode"] = 9;
  }
  call("Input.dispatchKeyEvent", parameters);
  call("Input.dispatchKeyEvent", {{"type", "keyUp"}, {"key", name}, {"code", name}});
}

void BrowserUnderTest::mouseTo(double x, double y) {
  call("Input.dispatchMouseEvent", {{"type", "mouseMoved"}, {"x", x}, {"y", y}});
}

// What follows from an event is drawn with the next frame.
void BrowserUnderTest::settle() {
  value("new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(done, "
        "10))))");
}

void BrowserUnderTest::screenshot(const std::string& path, bool whole) {
  const json answer = call("Page.captureScreenshot", {{"format", "png"}, {"captureBeyondViewport", whole}});
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << fromBase64(answer["data"]);
}

std::vector<std::string> BrowserUnderTest::nameless(const std::vector<std::string>& roles) {
  std::vector<std::string> found;
  const json tree = call("Accessibility.getFullAXTree");
  for (const json& node : tree.at("nodes")) {
    const std::string role = node.value("role", json::object()).value("value", "");
    if (node.value("ignored", false) || std::find(roles.begin(), roles.end(), role) == roles.end()) {
      continue;
    }
    if (node.value("name", json::object()).value("value", "").empty()) {
      found.push_back(role);
    }
  }
  return found;
}

} // namespace test
