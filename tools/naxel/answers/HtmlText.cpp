#include "answers/HtmlText.h"

#include "input/Diagnostics.h"
#include "mox/Text.h"
#include "output/TextTable.h"

#include <algorithm>

namespace NaxelTool {

namespace {

constexpr std::string_view style = R"(
:root{color-scheme:light dark;--bg:#fff;--fg:#1c2330;--dim:#5b6575;--line:#d9dee6;--card:#f4f6f9;
--bar:#2f6fde;--ghost:#8294b3;--bad:#b42318;--good:#1a7f4b}
@media(prefers-color-scheme:dark){:root{--bg:#12161d;--fg:#e4e8ef;--dim:#9aa5b5;--line:#2c3542;
--card:#1a212b;--bar:#6aa3ff;--ghost:#5f7190;--bad:#ff8a7d;--good:#6fd6a0}}
*{box-sizing:border-box}
body{margin:0 auto;padding:1.5rem 1rem 4rem;max-width:1200px;background:var(--bg);color:var(--fg);
font:15px/1.45 system-ui,sans-serif}
h1{font-size:1.5rem;margin:0 0 .3rem;overflow-wrap:anywhere}h2{font-size:1.15rem;margin:2.2rem 0 .5rem}
h3{font-size:1rem;margin:1.5rem 0 .5rem}
p{margin:.3rem 0 .8rem;color:var(--dim);overflow-wrap:anywhere}
.cards{display:grid;grid-template-columns:repeat(auto-fit,minmax(150px,1fr));gap:.7rem;margin:1rem 0}
.card{background:var(--card);border:1px solid var(--line);border-radius:8px;padding:.7rem .9rem}
.card b{display:block;font-size:1.35rem;font-variant-numeric:tabular-nums}.card span{color:var(--dim)}
.bad{color:var(--bad)}.good{color:var(--good)}
.wide{overflow-x:auto;border:1px solid var(--line);border-radius:8px}.wide+.wide{margin-top:.8rem}
table{border-collapse:collapse;width:100%;font-size:.9rem}
th,td{padding:.35rem .7rem;text-align:left;vertical-align:top;border-bottom:1px solid var(--line)}
tr:last-child td{border-bottom:0}
th{color:var(--dim);font-weight:600;white-space:nowrap;background:var(--card)}
td{overflow-wrap:break-word;min-width:3rem;max-width:26rem}td:first-child{min-width:9rem}
.n{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
.b{min-width:9rem}.b div{height:.55rem;border-radius:3px;background:var(--bar);min-width:1px;margin:.25rem 0}
.b div+div{background:var(--ghost);height:.3rem}
small{display:block;color:var(--dim);overflow-wrap:anywhere}
@media(max-width:700px){.wide{overflow:visible;border:0}table,tbody,tr,td{display:block}th{display:none}
tr{border:1px solid var(--line);border-radius:8px;margin:.5rem 0;padding:.3rem 0}tr:first-child{display:none}
td,td.n,tr:last-child td{display:flex;justify-content:space-between;gap:1rem;max-width:none;border:0;
padding:.15rem .8rem;text-align:right;white-space:normal;overflow-wrap:anywhere}
td[data-l]:before{content:attr(data-l);color:var(--dim);text-align:left;flex:none}
td:first-child,tr:last-child td:first-child{display:block;text-align:left;font-weight:600}td:first-child:before{display:none}
td small{font-weight:400}td.t,tr:last-child td.t{display:block;text-align:left}td.t:before{display:block}td.b,td.m,tr:last-child td.b,tr:last-child td.m{display:block;text-align:left}
td.b:before{display:none}}
details{margin:.4rem 0}summary{cursor:pointer;color:var(--dim);padding:.3rem 0}
.map{display:block;width:100%;min-width:11rem;height:1.1rem}
.map rect{fill:var(--bar)}.map .e{fill:var(--ghost);opacity:.35}
ul{padding-left:1.2rem;margin:.3rem 0}li{overflow-wrap:anywhere}
)";

}  // namespace

std::string htmlText(std::string_view text) {
  std::string out;
  for (char const c : printable(text)) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string grouped(uint64_t number) {
  return number == ~uint64_t{0} ? "2^64 or more" : Mox::withCommas(number);
}

HtmlCell HtmlCell::text(std::string_view text, std::vector<std::string> const& below) {
  HtmlCell out = HtmlCell::text(text);
  for (std::string const& line : below)
    if (!line.empty()) out.html += "<small>" + htmlText(line) + "</small>";
  return out;
}

HtmlCell HtmlCell::bar(uint64_t part, uint64_t all, uint64_t other) {
  auto const one = [&](uint64_t value) {
    double const share =
        all ? std::min(100.0, 100.0 * static_cast<double>(value) / static_cast<double>(all)) : 0;
    return "<div style=\"width:" + fixed(share, 1) +
           (value ? "%\"></div>" : "%;min-width:0\"></div>");
  };
  return {"\x01" + one(part) + (other ? one(other) : ""), false};
}

void HtmlTable::writeRows(std::ostream& out, size_t from, size_t to) const {
  out << "<div class=wide><table><tr>";
  for (size_t i = 0; i < head.size(); ++i) {
    bool const isNumber = !rows.empty() && rows.front()[i].isNumber;
    out << (isNumber ? "<th class=n>" : "<th>") << htmlText(head[i]) << "</th>";
  }
  out << "</tr>\n";
  for (size_t r = from; r < to; ++r) {
    out << "<tr>";
    for (size_t i = 0; i < head.size(); ++i) {
      std::string_view html = rows[r][i].html;
      bool const isBar = html.starts_with('\x01');
      if (isBar) html.remove_prefix(1);
      out << (isBar                                ? "<td class=b"
              : rows[r][i].isNumber                ? "<td class=n"
              : html.starts_with("<svg class=map") ? "<td class=m"
              : i && html.ends_with("</small>")    ? "<td class=t"
                                                   : "<td");
      if (i && !isBar) out << " data-l=\"" << htmlText(head[i]) << '"';
      out << '>' << html << "</td>";
    }
    out << "</tr>\n";
  }
  out << "</table></div>\n";
}

void HtmlTable::write(std::ostream& out) const {
  size_t const first = std::min(open, rows.size());
  writeRows(out, 0, first);
  if (first < rows.size()) {
    out << "<details><summary>" << grouped(rows.size() - first) << " more</summary>\n";
    writeRows(out, first, rows.size());
    out << "</details>\n";
  }
  if (all > rows.size())
    out << "<p>" << grouped(all - rows.size()) << " more are not shown here.</p>\n";
}

void writeHtmlHead(std::ostream& out, std::string_view title) {
  out << "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>"
         "<meta name=viewport content=\"width=device-width,initial-scale=1\">\n<title>"
      << htmlText(title) << "</title>\n<style>" << style << "</style></head>\n<body>\n";
}

}  // namespace NaxelTool
