#include "agent/config/ConfigReader.h"

#include "agent/config/ClassBenchReader.h"
#include "agent/config/CliReader.h"
#include "agent/config/OpenConfigReader.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

namespace agent {

namespace {

constexpr std::array<const char*, 4> formatNames = {"auto", "cli", "classbench", "openconfig"};

// The whole file, or why it cannot be had.
struct FileText {
  std::string text;
  std::string error;
};

FileText fileText(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored))
    return {{}, "this is a directory; name a file in it"};
  errno = 0;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (file == nullptr)
    return {{}, "cannot be opened: " + std::generic_category().message(errno)};
  FileText result;
  std::array<char, 65536> buffer;
  while (const size_t count = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
    if (result.text.size() + count > maxConfigOctets)
      return {{},
              "is larger than " + std::to_string(maxConfigOctets >> 20) + " MB, which is no configuration"};
    result.text.append(buffer.data(), count);
  }
  if (std::ferror(file.get()) != 0)
    return {{}, "cannot be read: " + std::generic_category().message(errno)};
  return result;
}

// A text has no octet 0; answers whether it is one.
bool checkText(std::string_view text, Diagnostics& diagnostics) {
  const size_t zero = text.find('\0');
  if (zero == std::string_view::npos)
    return true;
  unsigned line = 1;
  size_t lineStart = 0;
  for (size_t i = 0; i < zero; ++i)
    if (text[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  diagnostics.error(
      line, static_cast<unsigned>(zero - lineStart + 1),
      "'\\x00': this octet does not stand in text; the file is binary or in UTF-16, save it as text in "
      "UTF-8");
  return false;
}

InputFormat formatOf(std::string_view text) {
  if (looksLikeOpenConfig(text))
    return InputFormat::openconfig;
  return looksLikeClassBench(text) ? InputFormat::classbench : InputFormat::cli;
}

void applyOverrides(const std::vector<std::string>& overrides, Diagnostics& diagnostics, Config& config) {
  for (const std::string& text : overrides) {
    const size_t equals = text.find('=');
    const auto table = tableFromName(text.substr(0, equals));
    const auto rows = equals == std::string::npos
                          ? std::nullopt
                          : decimal(std::string_view(text).substr(equals + 1), maxTableRows);
    if (table && rows)
      config.tcamRows[*table] = *rows;
    else
      diagnostics.errorAt("--tcam", quotedWord(text) +
                                        ": a table and its number of rows are needed, like "
                                        "ingressV4=4096; the tables are ingressV4, ingressV6, egressV4, "
                                        "egressV6 and ingressMac, with 0 to 32768 rows");
  }
}

} // namespace

const char* inputFormatName(InputFormat format) {
  return formatNames[static_cast<size_t>(format)];
}

std::optional<InputFormat> inputFormatFromName(std::string_view name) {
  for (size_t i = 0; i < formatNames.size(); ++i)
    if (name == formatNames[i])
      return static_cast<InputFormat>(i);
  return std::nullopt;
}

Config readConfig(const std::string& path, const ReadOptions& options) {
  const FileText file = fileText(path);
  if (file.error.empty())
    return readConfigText(file.text, path, options);
  Config config;
  config.readable = false;
  Diagnostic& diagnostic = config.diagnostics.emplace_back();
  diagnostic.loc.file = path;
  diagnostic.message = file.error;
  return config;
}

Config readConfigText(std::string_view text, const std::string& fileName, const ReadOptions& options) {
  Config config;
  Diagnostics diagnostics(fileName, options.strict);
  if (text.starts_with("\xEF\xBB\xBF")) // a byte order mark, which editors leave
    text.remove_prefix(3);
  config.readable = checkText(text, diagnostics);
  if (config.readable) {
    const InputFormat format = options.format == InputFormat::automatic ? formatOf(text) : options.format;
    if (format == InputFormat::classbench)
      readClassBench(text, diagnostics, config);
    else if (format == InputFormat::openconfig)
      readOpenConfig(text, options, diagnostics, config);
    else if (text.empty())
      diagnostics.warn(1, 1, "the file is empty, nothing is configured");
    else
      CliReader(text, options, diagnostics).read(config);
  }
  applyOverrides(options.tcam, diagnostics, config);
  config.diagnostics = diagnostics.takeAll();
  return config;
}

} // namespace agent
