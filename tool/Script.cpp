#include "tool/Script.h"

#include "packet/Capture.h"
#include "packet/HeaderTrace.h"
#include "packet/Words.h"
#include "tool/Command.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>

namespace tool {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t maxNumber = uint64_t{1} << 62;
constexpr uint64_t maxStatus = 0x7FFFFFFF;

struct Word {
  std::string text;
  unsigned column = 0; // 1-based, octets
};

// What is wrong in a line.
struct Mistake {
  unsigned column = 0;
  std::string message;
};

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

// The words of a line; `end` becomes the place behind the last one. What `echo` prints is no words.
std::vector<Word> wordsOf(std::string_view line, std::size_t& end) {
  std::vector<Word> words;
  std::size_t at = 0;
  end = 0;
  while (true) {
    while (at < line.size() && isBlank(line[at])) {
      ++at;
    }
    if (at == line.size() || line[at] == '#') {
      return words;
    }
    Word word{"", static_cast<unsigned>(at + 1)};
    bool quoted = false;
    for (; at < line.size() && (quoted || !isBlank(line[at])); ++at) {
      if (line[at] == '"') {
        quoted = !quoted;
      } else {
        word.text += line[at];
      }
    }
    if (quoted) {
      throw Mistake{word.column, "the double quote is not closed; write a second one"};
    }
    words.push_back(std::move(word));
    end = at;
    if (words.size() == 1 && words.front().text == "echo") {
      end = line.find_last_not_of(" \t\r") + 1;
      return words;
    }
  }
}

// What is known of the script as a whole while its lines are read.
struct Context {
  fs::path folder;
  bool loaded = false;           // some line before is a load
  bool judged = false;           // some line before is a replay or an update
  std::set<std::string> written; // captures that earlier steps make

  std::string path(const std::string& file) const {
    return file.empty() || fs::path(file).is_absolute() ? file : (folder / file).string();
  }
};

class LineParser {
public:
  LineParser(Context& context, std::string_view line) : context_(context), line_(line) {
    words_ = wordsOf(line, end_);
  }

  bool empty() const { return words_.empty(); }
  unsigned column() const { return words_.front().column; }
  std::string text() const { return std::string(line_.substr(column() - 1, end_ - column() + 1)); }

  void parse(Step& step) {
    for (const Form& form : forms()) {
      if (words_.front().text == form.word) {
        usage_ = form.usage;
        checkOrder(form);
        (this->*form.parse)(step);
        return;
      }
    }
    std::string known;
    for (const Form& form : forms()) {
      known += (known.empty() ? "" : ", ") + std::string(form.word);
    }
    throw Mistake{column(),
                  "there is no step '" + packet::clipped(words_.front().text) + "'; the steps are " + known};
  }

private:
  enum class Needs { nothing, load };
  struct Form {
    const char* word;
    const char* usage;
    Needs needs;
    void (LineParser::*parse)(Step& step);
  };

  static const std::vector<Form>& forms() {
    static const std::vector<Form> all{
        {"load", "load FILE", Needs::nothing, &LineParser::parseLoad},
        {"update", "update FILE --pcap FILE [--in PORT] [--out PORT] [--vlan VLAN] [--every] [--json]",
         Needs::load, &LineParser::parseUpdate},
        {"replay",
         "replay --pcap FILE [--in PORT] (or --headers FILE, or --in PORT=FILE for each capture) [--out "
         "PORT] "
         "[--vlan VLAN] [--write FILE] [--brief] [--json]",
         Needs::load, &LineParser::parseReplay},
        {"trace", "trace PACKET (or --pcap FILE --packet N) [--in PORT] [--out PORT] [--vlan VLAN] [--json]",
         Needs::load, &LineParser::parseTrace},
        {"show", "show WHAT, as behind xpacl show CONFIG", Needs::load, &LineParser::parseShow},
        {"block", "block IF", Needs::load, &LineParser::parseBlock},
        {"unblock", "unblock IF", Needs::load, &LineParser::parseBlock},
        {"chip", "chip add N or chip remove N", Needs::load, &LineParser::parseChip},
        {"pair", "pair add IF VLAN or pair delete IF VLAN", Needs::load, &LineParser::parsePair},
        {"fault", "fault call N status S", Needs::load, &LineParser::parseFault},
        {"expect",
         "expect permit N deny N, expect blocked N, expect hits ACL LINE N or expect rows TABLE N [chip N]",
         Needs::load, &LineParser::parseExpect},
        {"echo", "echo TEXT", Needs::nothing, &LineParser::parseEcho}};
    return all;
  }

  [[noreturn]] void fail(unsigned column, const std::string& what) const {
    throw Mistake{column, what + "; write " + usage_};
  }

  void checkOrder(const Form& form) const {
    if (form.needs == Needs::load && !context_.loaded) {
      throw Mistake{column(), "nothing is loaded yet; write load FILE before it"};
    }
  }

  const Word& word(const char* what) {
    if (at_ == words_.size()) {
      fail(static_cast<unsigned>(end_ + 1), std::string("here ") + what + " is missing");
    }
    return words_[at_++];
  }

  uint64_t number(const char* what, uint64_t max = maxNumber) {
    const Word& found = word(what);
    uint64_t value = 0;
    if (!packet::parseDecimal(found.text, max, value)) {
      fail(found.column, "'" + packet::clipped(found.text) + "' is not " + what);
    }
    return value;
  }

  // One of the words; its number.
  std::size_t choice(const std::vector<std::string>& choices) {
    std::string what;
    for (std::size_t i = 0; i < choices.size(); ++i) {
      what += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
    }
    const Word& found = word(what.c_str());
    const auto same = std::find(choices.begin(), choices.end(), found.text);
    if (same == choices.end()) {
      fail(found.column, "'" + packet::clipped(found.text) + "' is not " + what);
    }
    return static_cast<std::size_t>(same - choices.begin());
  }

  void end() const {
    if (at_ != words_.size()) {
      fail(words_[at_].column, "'" + packet::clipped(words_[at_].text) + "' is one word too many");
    }
  }

  // The words from here on as the options of a command. An error stands at the first word that its message
  // names, or at the step.
  template <typename Options, typename Add>
  void options(Options& options, const Add& add) {
    LooseCommand loose;
    add(loose.command(), options);
    loose.command().flag("--json", options.json);
    std::vector<std::string> rest;
    for (std::size_t i = at_; i < words_.size(); ++i) {
      rest.push_back(words_[i].text);
    }
    try {
      loose.parse(rest);
    } catch (const UsageError& error) {
      std::string what = error.what();
      std::replace(what.begin(), what.end(), '\n', ' ');
      const auto named = std::find_if(words_.begin() + static_cast<std::ptrdiff_t>(at_), words_.end(),
                                      [&](const Word& word) { return what.find(word.text) != what.npos; });
      fail(named == words_.end() ? column() : named->column, what);
    }
  }

  unsigned columnOf(const std::string& part) const {
    const auto found = std::find_if(words_.begin() + 1, words_.end(), [&](const Word& word) {
      return word.text == part || word.text.ends_with("=" + part);
    });
    return found == words_.end() ? column() : found->column;
  }

  // Makes the name of a capture one that can be opened from here, and opens it, unless an earlier step of the
  // script is going to write it.
  template <typename Reader, typename Error>
  void input(std::string& file) const {
    if (file.empty()) {
      return;
    }
    const unsigned column = columnOf(file);
    file = context_.path(file);
    if (context_.written.count(file) == 0) {
      try {
        Reader reader(file);
      } catch (const Error& error) {
        throw Mistake{column, error.what()};
      }
    }
  }
  void capture(std::string& file) const { input<packet::CaptureReader, packet::CaptureError>(file); }

  void parseLoad(Step& step) {
    context_.loaded = true;
    const Word& file = word("the configuration");
    end();
    step.act = LoadStep{context_.path(file.text), file.column};
  }

  void parseUpdate(Step& step) {
    context_.judged = true;
    UpdateStep update;
    options(update.options, [](Command command, UpdateOptions& options) {
      command.option("FILE", options.to).required();
      addUpdateOptions(command, options);
    });
    update.fileColumn = columnOf(update.options.to);
    update.options.to = context_.path(update.options.to);
    capture(update.options.pcap);
    step.act = std::move(update);
  }

  void parseReplay(Step& step) {
    context_.judged = true;
    ReplayStep replay;
    options(replay.options, addReplayOptions);
    try {
      checkReplayOptions(replay.options);
    } catch (const Exit& exit) {
      throw Mistake{column(), exit.what()};
    }
    capture(replay.options.pcap);
    input<packet::HeaderTraceReader, packet::HeaderTraceError>(replay.options.headers);
    for (std::string& in : replay.options.in) {
      ReplayInput one = replayInput(in);
      if (!one.file.empty()) {
        capture(one.file);
        in = one.port + "=" + one.file;
      }
    }
    replay.options.write = context_.path(replay.options.write);
    context_.written.insert(replay.options.write);
    step.act = std::move(replay);
  }

  void parseTrace(Step& step) {
    TraceStep trace;
    options(trace.options, addTraceOptions);
    capture(trace.options.pcap);
    if (trace.options.pcap.empty()) {
      try {
        packetOf(trace.options);
      } catch (const Exit& exit) {
        throw Mistake{trace.options.words.empty() ? column() : columnOf(trace.options.words.front()),
                      exit.what()};
      }
    }
    step.act = std::move(trace);
  }

  void parseShow(Step& step) {
    ShowStep show;
    options(show.options, addShowOptions);
    capture(show.options.pcap);
    step.act = std::move(show);
  }

  void parseBlock(Step& step) {
    const Word& interface = word("an interface");
    end();
    step.act = BlockStep{interface.text, words_.front().text == "block"};
  }

  void parseChip(Step& step) {
    const bool add = choice({"add", "remove"}) == 0;
    const uint64_t chip = number("the number of a chip");
    end();
    step.act = ChipStep{chip, add};
  }

  void parsePair(Step& step) {
    const bool add = choice({"add", "delete"}) == 0;
    const Word& port = word("a port");
    const uint64_t vlan = number("the number of a VLAN");
    end();
    step.act = PairStep{port.text, vlan, add};
  }

  void parseFault(Step& step) {
    choice({"call"});
    const unsigned column = at_ < words_.size() ? words_[at_].column : 0;
    const uint64_t call = number("the number of a call");
    if (call == 0) {
      fail(column, "calls are counted from 1");
    }
    choice({"status"});
    const auto status = static_cast<int>(number("a status", maxStatus));
    end();
    step.act = FaultStep{call, status};
  }

  void parseExpect(Step& step) {
    switch (choice({"permit", "deny", "blocked", "hits", "rows"})) {
    case 2:
      needJudged();
      step.act = BlockedExpected{number("a number of packets")};
      break;
    case 3:
      needJudged();
      parseHits(step);
      break;
    case 4:
      parseRows(step);
      break;
    default:
      needJudged();
      parseVerdicts(step);
    }
    end();
  }

  void needJudged() const {
    if (!context_.judged) {
      throw Mistake{column(), "no packet was judged yet; write a replay step before it"};
    }
  }

  void parseVerdicts(Step& step) {
    VerdictsExpected expected;
    const bool permitFirst = words_[at_ - 1].text == "permit";
    (permitFirst ? expected.permit : expected.deny) = number("a number of packets");
    if (at_ < words_.size()) {
      choice({permitFirst ? "deny" : "permit"});
      (permitFirst ? expected.deny : expected.permit) = number("a number of packets");
    }
    step.act = expected;
  }

  void parseHits(Step& step) {
    HitsExpected expected;
    expected.list = word("the name of an access list").text;
    expected.line = number("the number of a line");
    expected.hits = number("a number of hits");
    if (at_ < words_.size()) {
      expected.direction = choice({"in", "out"}) == 0 ? agent::Direction::in : agent::Direction::out;
    }
    step.act = expected;
  }

  void parseRows(Step& step) {
    RowsExpected expected;
    std::vector<std::string> tables;
    for (const agent::Table table : {agent::Table::ingressV4, agent::Table::ingressV6, agent::Table::egressV4,
                                     agent::Table::egressV6, agent::Table::ingressMac}) {
      tables.emplace_back(agent::tableName(table));
    }
    expected.table = static_cast<agent::Table>(choice(tables));
    expected.rows = number("a number of rows");
    if (at_ < words_.size()) {
      choice({"chip"});
      expected.chip = number("the number of a chip");
    }
    step.act = expected;
  }

  // The rest of the line as it stands, quotes and all.
  void parseEcho(Step& step) {
    const std::size_t begin = std::min(line_.size(), column() + std::string_view("echo").size());
    step.act = EchoStep{begin < end_ ? std::string(line_.substr(begin, end_ - begin)) : std::string()};
  }

  Context& context_;
  std::string_view line_;
  std::vector<Word> words_;
  std::size_t end_ = 0; // behind the last word
  std::size_t at_ = 1;  // the next word
  std::string usage_;
};

} // namespace

Script readScript(const std::string& path) {
  Script script;
  const auto error = [&](unsigned line, unsigned column, const std::string& message) {
    script.errors.push_back({agent::Severity::error,
                             {
                                 path,
                                 line,
                                 column,
                             },
                             message,
                             ""});
  };
  std::error_code ignored;
  const bool isFolder = fs::is_directory(path, ignored);
  std::ifstream stream(path, std::ios::binary);
  if (!stream || isFolder) {
    error(0, 0, isFolder ? "is a directory; give a script" : packet::systemError());
    return script;
  }
  Context context;
  context.folder = fs::path(path).parent_path();
  unsigned number = 0;
  for (std::string line; std::getline(stream, line);) {
    ++number;
    try {
      LineParser parser(context, line);
      if (!parser.empty()) {
        Step step{{path, number, parser.column()}, parser.text(), EchoStep{}};
        parser.parse(step);
        script.steps.push_back(std::move(step));
      }
    } catch (const Mistake& mistake) {
      error(number, mistake.column, mistake.message);
    }
  }
  if (script.steps.empty() && script.errors.empty()) {
    error(0, 0, "the script has no steps; begin with load FILE");
  }
  return script;
}

} // namespace tool
