#include "test/BrowserUnderTest.h"
#include "test/ToolUnderTest.h"

#include <filesystem>
#include <memory>
#include <sstream>

// The page of `xpacl report` in a headless browser, used by hand, mouse and keyboard.

namespace {

using nlohmann::json;
using test::BrowserUnderTest;

class ReportPage : public test::ToolUnderTest {
protected:
  static void TearDownTestSuite() { browser_.reset(); }

  void SetUp() override {
    if (BrowserUnderTest::program().empty()) {
      GTEST_SKIP() << "there is no browser; ./dev page installs one, or name it in XPACL_CHROMIUM";
    }
    ToolUnderTest::SetUp();
    if (!browser_) {
      browser_ = std::make_unique<BrowserUnderTest>();
    }
  }

  // `arguments` begin with the configuration.
  BrowserUnderTest& open(const std::string& arguments, int status = 0) {
    const std::string page = (folder_ / "report.html").string();
    std::ostringstream command;
    command << "report " << arguments << " -o " << page;
    EXPECT_EQ(run(command.str()).status, status);
    browser_->open(std::string("file://").append(page));
    return *browser_;
  }
  BrowserUnderTest& openCampus() {
    std::ostringstream arguments;
    arguments << example("campus.conf") << " --pcap " << example("campus.pcap");
    return open(arguments.str());
  }

  static std::string artefact(const char* name) {
    return (std::filesystem::path(XPACL_ARTEFACTS) / name).string();
  }

  // The cell of the first map that stands at this row and column, in the window.
  static void pointAt(BrowserUnderTest& browser, unsigned line, unsigned column) {
    const json box = browser.value("(() => { const box = document.querySelector('.grid canvas')"
                                   ".getBoundingClientRect(); const cell = document.querySelector('.cursor')"
                                   ".getBoundingClientRect(); return [cell.x, box.y, cell.width + 1]; })()");
    const double size = box[2];
    browser.mouseTo(box[0].get<double>() + size * (column + 0.5), box[1].get<double>() + size * (line + 0.5));
  }
  static std::string panel(BrowserUnderTest& browser) {
    return browser.text(
        "[...document.querySelector('.panel').querySelectorAll('h3, p, tr')]"
        ".map((one) => one.tagName === 'TR' ? [...one.children].map((cell) => cell.textContent).join('|') : "
        "one.textContent.trim()).join('\\n')");
  }
  static std::string focused(BrowserUnderTest& browser) {
    return browser.text("document.activeElement.getAttribute('aria-label') || document.activeElement.id");
  }

  static std::unique_ptr<BrowserUnderTest> browser_;
};
std::unique_ptr<BrowserUnderTest> ReportPage::browser_;

TEST_F(ReportPage, ShowsEveryPartOfTheCampus) {
  BrowserUnderTest& browser = openCampus();
  EXPECT_EQ(browser.text("document.title"), "campus.conf: access lists in the TCAM");
  EXPECT_EQ(browser.text("document.querySelector('#verdict').textContent"),
            "✓ Fits. 128 rows in use on 1 chip.");
  EXPECT_EQ(
      browser.text("[...document.querySelectorAll('main h2')].map((one) => one.textContent).join(', ')"),
      "Tables, Rows, Packets, Lists, Costly lines, Sharing, Findings");
  EXPECT_EQ(browser.text("[...document.querySelectorAll('.figure')].map((one) => "
                         "[...one.children].map((part) => part.textContent).join(' | ')).join('\\n')"),
            "Fullest table | ingressV4 8.6 % | 88 of 1,023 rows\n"
            "Can be replaced hitlessly | 5 of 5 lists | the largest is WING-A-IN, 88 rows\n"
            "Costliest line | 6 rows | SERVERS-OUT, line 74\n"
            "Findings | 46 | in 3 lists\n"
            "Packets judged | 212 | 158 permitted, 54 denied");
  EXPECT_EQ(browser.text("[...document.querySelectorAll('.onemap')].map((one) => one.dataset.table + ': ' + "
                         "one.querySelector('[role=grid]').getAttribute('aria-label')).join('\\n')"),
            "ingressV4: Rows of ingressV4\n"
            "ingressV6: Rows of ingressV6\n"
            "egressV4: Rows of egressV4\n"
            "ingressMac: Rows of ingressMac");
  EXPECT_EQ(browser.text("[...document.querySelectorAll('#lists table tbody')][0].innerText"),
            " WING-A-IN\tipv4\tin\t35\t88\t1\t88\tup to 935 rows\t33\n"
            " SERVERS-OUT\tipv4\tout\t6\t15\t1\t15\tup to 4,077 rows\t0\n"
            " OWN-CAMPUS\tipv4\tout\t2\t3\t1\t3\tup to 4,077 rows\t0\n"
            " WING-A-IN6\tipv6\tin\t11\t15\t1\t15\tup to 240 rows\t8\n"
            " WING-A-L2\tmac\tin\t6\t7\t1\t7\tup to 4,088 rows\t5");
  EXPECT_EQ(browser.complaints(), std::vector<std::string>());
}

TEST_F(ReportPage, TellsAboutTheCellUnderTheMouse) {
  BrowserUnderTest& browser = openCampus();
  browser.value("document.querySelector('.grid').scrollIntoView()");
  pointAt(browser, 0, 4);
  EXPECT_EQ(panel(browser), "ingressV4, row 4\n"
                            "WING-A-IN under id 1, portIngress\n"
                            "campus.conf:30\n"
                            "deny ip 127.0.0.0 0.255.255.255 any log\n"
                            "deny, log · counter 9: 1 · 1 hit\n"
                            "Field|Value|Ignored bits\n"
                            "ACL id|0x0001|0x0100\n"
                            "flags|0x00|0xfe\n"
                            "source|127.0.0.0|0.255.255.255");
  // Away from the map, it tells about the cell that the keyboard would act on.
  browser.mouseTo(2, 2);
  EXPECT_EQ(panel(browser).substr(0, 16), "ingressV4, row 0");
}

TEST_F(ReportPage, IsUsedByKeyboard) {
  BrowserUnderTest& browser = openCampus();
  browser.value("document.querySelector('.cursor[tabindex=\"0\"]').focus()");
  std::ostringstream seen;
  seen << focused(browser) << "\n";
  const auto press = [&](const char* name, bool control = false) {
    browser.key(name, control);
    browser.settle();
    seen << (control ? "Control+" : "") << name << ": " << focused(browser) << "\n";
  };
  press("ArrowRight");
  press("ArrowRight");
  press("ArrowLeft");
  press("ArrowDown");
  press("ArrowDown");
  press("ArrowDown");
  press("End");
  press("End", true);
  press("Home", true);
  press("ArrowLeft");
  press("ArrowRight");
  press("Enter");
  EXPECT_EQ(
      seen.str(),
      "Row 0, WING-A-IN, campus.conf:27 permit udp host 0.0.0.0 eq bootpc host 255.255.255.255 eq bootps, "
      "permit, 2 hits\n"
      "ArrowRight: Row 1, WING-A-IN, campus.conf:28 permit udp object-group WING-A eq bootpc host 10.20.40.5 "
      "eq bootps, permit, 1 hit\n"
      "ArrowRight: Row 2, WING-A-IN, campus.conf:28 permit udp object-group WING-A eq bootpc host 10.20.40.5 "
      "eq bootps, permit, 0 hits\n"
      "ArrowLeft: Row 1, WING-A-IN, campus.conf:28 permit udp object-group WING-A eq bootpc host 10.20.40.5 "
      "eq bootps, permit, 1 hit\n"
      "ArrowDown: Row 49, WING-A-IN, campus.conf:47 permit tcp 10.20.10.0 0.0.0.15 10.20.40.0 0.0.0.255 eq "
      "22 "
      "log, permit and log, 10 hits\n"
      "ArrowDown: Rows 96 to 1007, free\n"
      "ArrowDown: Row 1009, free\n"
      "End: Row 1023, the default entry, deny, 0 hits\n"
      "Control+End: Row 1023, the default entry, deny, 0 hits\n"
      "Control+Home: Row 0, WING-A-IN, campus.conf:27 permit udp host 0.0.0.0 eq bootpc host 255.255.255.255 "
      "eq bootps, permit, 2 hits\n"
      "ArrowLeft: Row 0, WING-A-IN, campus.conf:27 permit udp host 0.0.0.0 eq bootpc host 255.255.255.255 "
      "eq bootps, permit, 2 hits\n"
      "ArrowRight: Row 1, WING-A-IN, campus.conf:28 permit udp object-group WING-A eq bootpc host 10.20.40.5 "
      "eq bootps, permit, 1 hit\n"
      "Enter: line-0-1\n");
  // One stop for the Tab key in each map.
  EXPECT_EQ(browser.text("[...document.querySelectorAll('.grid')].map((grid) => "
                         "grid.querySelectorAll('[tabindex=\"0\"]').length).join(' ')"),
            "1 1 1 1");
  EXPECT_EQ(browser.complaints(), std::vector<std::string>());
}

// What the text of the page and the fills of its maps stand out by, as the ratio of WCAG 2: 4.5 for text, 3
// for what is drawn.
const char* const contrasts = R"JS((() => {
  const css = getComputedStyle(document.documentElement);
  const light = (name) => {
    const hex = css.getPropertyValue(name).trim();
    const part = (at) => {
      const share = parseInt(hex.slice(at, at + 2), 16) / 255;
      return share <= 0.03928 ? share / 12.92 : Math.pow((share + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * part(1) + 0.7152 * part(3) + 0.0722 * part(5);
  };
  const ratio = (a, b) => (Math.max(light(a), light(b)) + 0.05) / (Math.min(light(a), light(b)) + 0.05);
  const lists = Array.from({length: 8}, (_, i) => '--list-' + i);
  const wanted = [];
  for (const ground of ['--page', '--card']) {
    for (const ink of ['--ink', '--soft', '--mark', '--good', '--bad', '--odd']) wanted.push([ink, ground, 4.5]);
    for (const fill of [...lists, '--other']) wanted.push([fill, ground, 3]);
  }
  for (const fill of lists) wanted.push(['--on-fill', fill, 4.5]);
  wanted.push(['--soft', '--free', 4.5]);
  return wanted.filter(([a, b, least]) => ratio(a, b) < least)
    .map(([a, b, least]) => a + ' on ' + b + ': ' + ratio(a, b).toFixed(2)).join(', ');
})())JS";

TEST_F(ReportPage, IsReadableInLightAndDark) {
  for (const bool dark : {false, true}) {
    BrowserUnderTest& browser = openCampus();
    browser.darkIs(dark);
    EXPECT_EQ(browser.text(contrasts), "") << (dark ? "dark" : "light");
    EXPECT_EQ(browser.text("getComputedStyle(document.body).backgroundColor"),
              dark ? "rgb(21, 24, 28)" : "rgb(251, 251, 250)");
    // The first cell, of the first list.
    EXPECT_EQ(browser.text("[...document.querySelector('.grid canvas').getContext('2d')"
                           ".getImageData(53, 1, 1, 1).data].slice(0, 3).join(' ')"),
              dark ? "127 171 234" : "47 102 179");
    browser.value("document.querySelector('#list-0').open = true");
    browser.value("document.querySelector('.cursor[tabindex=\"0\"]').focus()");
    browser.key("ArrowRight");
    const std::string picture = artefact(dark ? "report_dark.png" : "report_light.png");
    browser.screenshot(picture, true);
    EXPECT_GT(std::filesystem::file_size(picture), 50000U);
  }
}

TEST_F(ReportPage, NamesEverythingThatCanBeUsed) {
  BrowserUnderTest& browser = openCampus();
  browser.value("document.querySelectorAll('details').forEach((one) => { one.open = true; })");
  EXPECT_EQ(browser.nameless({"link", "button", "grid", "gridcell", "radio", "searchbox", "table", "heading",
                              "navigation", "region", "columnheader"}),
            std::vector<std::string>());
}

TEST_F(ReportPage, FollowsLinksToLinesAndFindings) {
  BrowserUnderTest& browser = openCampus();
  browser.value("document.querySelector('#findings a[href=\"#line-0-11\"]').click()");
  browser.settle();
  EXPECT_EQ(focused(browser), "line-0-11");
  EXPECT_EQ(browser.text("document.activeElement.querySelector('.rule').firstChild.textContent"),
            "deny ospf any any log");
  browser.value("document.activeElement.querySelector('a').click()");
  browser.settle();
  EXPECT_EQ(focused(browser), "finding-0-11");
}

TEST_F(ReportPage, ShowsTextOfConfigurationsAsText) {
  const std::string name = "</script><img/src=x/onerror=document.title=1>";
  const std::string conf = file("a.conf", "ip access-list extended " + name +
                                              "\n remark </script><!--\n permit tcp any any eq 80\n"
                                              "interface Ethernet1\n ip access-group " +
                                              name + " in\n");
  BrowserUnderTest& browser = open(conf);
  EXPECT_EQ(browser.text("document.querySelector('#lists tbody a').textContent"), name);
  EXPECT_EQ(browser.value("document.querySelectorAll('img').length"), 0);
  EXPECT_EQ(browser.text("document.title"), "a.conf: access lists in the TCAM");
  EXPECT_EQ(browser.complaints(), std::vector<std::string>());
}

TEST_F(ReportPage, SaysWhatDoesNotFit) {
  BrowserUnderTest& browser = open(example("campus.conf") + " --tcam ingressV4=64", 1);
  EXPECT_EQ(browser.text("[...document.querySelectorAll('#verdict, #reasons li, #nav li')]"
                         ".map((one) => one.textContent).join('\\n')"),
            "✗ Does not fit. Nothing would be written; this is why:\n"
            "table ingressV4 of chip 0 has 63 rows for lists, 88 are needed: 25 rows lack\n"
            "Tables\nRows\nLists\nCostly lines\nSharing\nFindings");
  EXPECT_EQ(browser.value("document.querySelectorAll('canvas.swatch').length > 0"), true);
  EXPECT_EQ(browser.value("document.querySelectorAll('.onemap').length"), 0);
  EXPECT_EQ(browser.complaints(), std::vector<std::string>());
}

// A full table of 4,096 rows, and a list of 10,000 lines beside it.
TEST_F(ReportPage, BearsFullTablesAndLongLists) {
  std::ostringstream conf;
  conf << "hardware tcam egressV4 16384\nip access-list extended FULL\n";
  for (unsigned i = 0; i < 4094; ++i) {
    conf << (i % 3 == 0 ? " deny" : " permit") << " tcp host 10.1." << i / 256 << "." << i % 256 << " any\n";
  }
  conf << "ip access-list extended LONG\n";
  for (unsigned i = 0; i < 10000; ++i) {
    conf << " permit udp host 10.2." << i / 256 << "." << i % 256 << " any\n";
  }
  conf << "interface Ethernet1\n ip access-group FULL in\n ip access-group LONG out\n";
  BrowserUnderTest& browser = open(file("full.conf", conf.str()) + " --no-lint");
  EXPECT_EQ(
      browser.text("[...document.querySelectorAll('#tables tbody tr')].slice(0, 3)"
                   ".map((one) => [...one.children].map((cell) => cell.textContent).join('|')).join('\\n')"),
      "ingressV4|4,095|4,095|0||100 %|✗ 1 list has no room\n"
      "ingressV6|4,095|0|4,095||0 %|no list\n"
      "egressV4|16,383|10,001|6,382||61 %|✗ 1 list has no room");
  browser.value("document.querySelector('#map').scrollIntoView()");
  browser.screenshot(artefact("report_full.png"));
  // The last line of the list is drawn when somebody goes there.
  browser.value("location.hash = 'line-1-9999'");
  browser.settle();
  EXPECT_EQ(focused(browser), "line-1-9999");
  EXPECT_EQ(browser.value("document.querySelectorAll('#list-1 tbody tr').length"), 202);
  EXPECT_EQ(
      browser.text("[...document.querySelectorAll('#list-1 .tools')].map((one) => one.innerText).join('|')"),
      "|9,799 lines before these\nShow 400 of them|");
  EXPECT_EQ(browser.complaints(), std::vector<std::string>());
}

} // namespace
