// The HTML a field writes, where it is used: in a browser. The fragments of every data type,
// with values and choice names that try to break out of their attribute or element, go into one
// page; headless Chromium loads it, and the page's own script reads the DOM back (controls,
// options, the selected option, input values) and looks for any sign that injected markup ran.
// Its verdict is written into the page, which Chromium dumps.
//
// Exit codes: 0 every check passed, 1 a check failed, 77 Chromium is not installed (skipped).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "zt/definitions/field.h"
#include "zt/platform.h"

namespace {

using zt::CZtField;
using zt::Variant;

// Names and values that try to leave the place they are written into.
const std::vector<std::string> kHostile = {
    "\"><script>window.__pwned=1</script>",
    "' onmouseover='window.__pwned=2' x='",
    "</select><img src=x onerror=\"window.__pwned=3\">",
    "A & B <i>",
};

// A JavaScript string literal that is also safe inside a <script> element.
std::string JsString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\' || c == '<' || c == '>' || c == '&' || c == '\'' || c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

struct Case {
  std::string html;      // the fragment
  std::string expected;  // a JavaScript object describing what the DOM must show
};

std::shared_ptr<zt::Connection> ValuesTable() {
  auto cn = std::make_shared<zt::Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=:memory:;");
  cn->Execute("CREATE TABLE [tblValues] ([nID] LONG, [tName] TEXT(80))");
  zt::PreparedStatement insert(*cn, "INSERT INTO [tblValues] VALUES (?, ?)");
  for (std::size_t i = 0; i < kHostile.size(); ++i) {
    insert.Bind(0, static_cast<std::int32_t>(i + 1));
    insert.Bind(1, kHostile[i]);
    insert.Execute();
  }
  return cn;
}

std::string ExpectedOptions(const std::vector<std::pair<std::string, std::string>>& options,
                            const std::string& selected) {
  std::string out = "{kind:\"select\",selected:" + JsString(selected) + ",options:[";
  for (const auto& [value, text] : options)
    out += "[" + JsString(value) + "," + JsString(text) + "],";
  return out + "]}";
}

std::vector<Case> Cases() {
  auto cn = ValuesTable();
  std::vector<Case> cases;
  // Choices ordered by name: the ones starting with '"', '\'', '<', 'A'.
  std::vector<std::pair<std::string, std::string>> choices = {
      {"1", kHostile[0]}, {"2", kHostile[1]}, {"3", kHostile[2]}, {"4", kHostile[3]}};
  for (std::int32_t type : {103, 104}) {
    CZtField f;
    f.FieldDataType(type);
    f.FieldValueTable("tblValues");
    f.FillSingleChoiceTable(cn);
    cases.push_back({f.GenerateHtmlCode(nullptr, cn, 2, true, false, nullptr, false),
                     ExpectedOptions(choices, "2")});
    // Without its select tag the caller supplies one.
    cases.push_back({"<select>" + f.GenerateHtmlCode(nullptr, cn, 3, false, false, nullptr, false) +
                         "</select>",
                     ExpectedOptions(choices, "3")});
    cases.push_back({f.GenerateHtmlCode(nullptr, cn, kHostile[0], true, true, nullptr, false),
                     "{kind:\"input\",value:" + JsString(kHostile[0]) + ",maxlength:\"255\"}"});
  }
  CZtField yes_no;
  yes_no.FieldDataType(1);
  cases.push_back({yes_no.GenerateHtmlCode(nullptr, nullptr, -1, true, false, nullptr, false),
                   ExpectedOptions({{"-1", "Yes"}, {"0", "No"}}, "-1")});
  cases.push_back({yes_no.GenerateHtmlCode(nullptr, nullptr, 0, true, false, nullptr, false),
                   ExpectedOptions({{"-1", "Yes"}, {"0", "No"}}, "0")});
  for (const std::string& value : kHostile) {
    CZtField memo;
    memo.FieldDataType(12);
    cases.push_back({memo.GenerateHtmlCode(nullptr, nullptr, value, true, false, nullptr, false),
                     "{kind:\"input\",value:" + JsString(value) + ",maxlength:null}"});
    CZtField text;
    text.FieldDataType(10);
    cases.push_back({text.GenerateHtmlCode(nullptr, nullptr, value, true, false, nullptr, false),
                     "{kind:\"input\",value:" + JsString(value) + ",maxlength:\"255\"}"});
  }
  return cases;
}

// The page's own checks; it writes "PASS" or the list of failures into #result.
const char* kCheckScript = R"JS(
function check() {
  var failures = [];
  if (window.__pwned !== undefined) failures.push("injected script ran: " + window.__pwned);
  if (document.scripts.length !== 1) failures.push("scripts in page: " + document.scripts.length);
  if (document.images.length !== 0) failures.push("images in page: " + document.images.length);
  var all = document.getElementsByTagName("*");
  for (var i = 0; i < all.length; i++)
    for (var a = 0; a < all[i].attributes.length; a++)
      if (/^on/.test(all[i].attributes[a].name) && all[i].attributes[a].name !== "onchange")
        failures.push("event attribute " + all[i].attributes[a].name);
  for (var n = 0; n < expected.length; n++) {
    var box = document.getElementById("case" + n), want = expected[n];
    var controls = box.querySelectorAll("select, input");
    if (box.children.length !== 1 || controls.length !== 1) {
      failures.push("case " + n + ": " + box.children.length + " elements, " + controls.length + " controls");
      continue;
    }
    var c = controls[0];
    if (c.tagName.toLowerCase() !== want.kind) { failures.push("case " + n + ": " + c.tagName); continue; }
    if (want.kind === "select") {
      var got = [];
      for (var o = 0; o < c.options.length; o++) got.push([c.options[o].value, c.options[o].text]);
      if (JSON.stringify(got) !== JSON.stringify(want.options))
        failures.push("case " + n + " options: " + JSON.stringify(got));
      var sel = c.querySelectorAll("option[selected]");
      if (sel.length !== 1 || sel[0].value !== want.selected || c.value !== want.selected)
        failures.push("case " + n + " selected: " + c.value);
    } else {
      if (c.value !== want.value) failures.push("case " + n + " value: " + JSON.stringify(c.value));
      if (c.getAttribute("maxlength") !== want.maxlength)
        failures.push("case " + n + " maxlength: " + c.getAttribute("maxlength"));
      if (c.name !== "fieldvalue" || c.id !== "fieldvalue") failures.push("case " + n + " name/id");
    }
  }
  document.getElementById("result").textContent = failures.length ? JSON.stringify(failures) : "PASS";
}
window.addEventListener("load", function () { setTimeout(check, 300); });
)JS";

std::string Page(const std::vector<Case>& cases) {
  std::string page =
      "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>fields</title>"
      "</head><body>\n";
  for (std::size_t i = 0; i < cases.size(); ++i)
    page += "<form><div id=\"case" + std::to_string(i) + "\">" + cases[i].html + "</div></form>\n";
  page += "<pre id=\"result\">PENDING</pre>\n<script>\nvar expected = [";
  for (const Case& c : cases) page += c.expected + ",\n";
  page += "];\n";
  page += kCheckScript;
  return page + "</script></body></html>\n";
}

std::string Chromium() {
  for (const char* name : {"chromium", "chromium-browser"}) {
    const std::string probe = std::string("command -v ") + name + " >/dev/null 2>&1";
    if (std::system(probe.c_str()) == 0) return name;
  }
  return {};
}

std::string Unescape(std::string s) {
  const std::pair<const char*, const char*> refs[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
  for (const auto& [from, to] : refs)
    for (std::size_t p; (p = s.find(from)) != std::string::npos;)
      s.replace(p, std::string(from).size(), to);
  return s;
}

}  // namespace

int main() {
  const std::string chromium = Chromium();
  if (chromium.empty()) {
    std::cout << "chromium is not installed; skipping the browser check\n";
    return 77;
  }
  const auto dir =
      std::filesystem::temp_directory_path() / ("zt_html_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const auto page = dir / "fields.html";
  {
    std::ofstream out(page, std::ios::binary);
    out << Page(Cases());
  }
  const std::string cmd = "timeout 90 " + chromium +
                          " --headless --no-sandbox --disable-gpu --no-first-run "
                          "--user-data-dir=" +
                          (dir / "profile").string() +
                          " --virtual-time-budget=5000 --dump-dom file://" + page.string() +
                          " 2>/dev/null";
  std::string dom;
  if (FILE* p = ::popen(cmd.c_str(), "r")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) dom.append(buf, n);
    ::pclose(p);
  }
  const std::string open = "<pre id=\"result\">";
  const auto from = dom.find(open);
  const auto to = dom.find("</pre>", from);
  const std::string result =
      from == std::string::npos || to == std::string::npos
          ? "no result in the page"
          : Unescape(dom.substr(from + open.size(), to - from - open.size()));
  if (result != "PASS") {
    std::cout << "browser check failed: " << result << "\npage kept at " << page << "\n";
    return 1;
  }
  std::filesystem::remove_all(dir);
  std::cout << "browser check passed\n";
  return 0;
}
