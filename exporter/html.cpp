#include "exporter/html.h"

#include <utility>

#include "base/ascii.h"
#include "client/text.h"

namespace zot::exporter {

std::string Html(std::string_view text) {
    std::string escaped;
    for (char c : client::Visible(text, true)) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string UrlValue(std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string value;
    for (char c : text) {
        if (IsAlnum(c) || c == '-' || c == '.' || c == '_') {
            value += c;
            continue;
        }
        auto byte = static_cast<unsigned char>(c);
        value += '%';
        value += kDigits[byte >> 4];
        value += kDigits[byte & 15];
    }
    return value;
}

std::string HtmlPage(std::string_view title, std::string_view body) {
    constexpr std::string_view kFront =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
    constexpr std::string_view kMiddle =
        "</title>\n<link rel=\"stylesheet\" href=\"style.css\">\n</head>\n<body>\n";
    return client::Concat({kFront, Html(title), kMiddle, body, "</body>\n</html>\n"});
}

HttpReply HtmlReply(std::string page) {
    return {200,
            std::move(page),
            "text/html; charset=utf-8",
            {{"Content-Security-Policy",
              "default-src 'none'; style-src 'self'; form-action 'self'; base-uri 'none'; "
              "frame-ancestors 'none'"},
             {"X-Content-Type-Options", "nosniff"},
             {"Referrer-Policy", "no-referrer"},
             {"Cache-Control", "no-store"}}};
}

// On a narrow screen each row becomes a card, and its cells carry their headings.
const std::string_view kStyleSheet = R"(:root {
  color-scheme: light dark;
  --text: #1b1f24; --soft: #59636e; --ground: #fff; --line: #d1d9e0; --band: #f6f8fa;
  --good: #116329; --bad: #b3261e; --link: #0550ae;
}
@media (prefers-color-scheme: dark) {
  :root {
    --text: #e6edf3; --soft: #9198a1; --ground: #0d1117; --line: #3d444d; --band: #151b23;
    --good: #57ab5a; --bad: #ff7b72; --link: #79c0ff;
  }
}
body {
  margin: 0 auto; padding: 1rem; max-width: 72rem;
  font: 15px/1.45 system-ui, sans-serif; color: var(--text); background: var(--ground);
}
h1 { font-size: 1.4rem; margin: 0 0 .3rem; }
h2 { font-size: 1.1rem; margin: 1.4rem 0 .4rem; }
a { color: var(--link); }
p { margin: .3rem 0; }
.soft { color: var(--soft); }
.ok { color: var(--good); font-weight: 600; }
.failed { color: var(--bad); font-weight: 600; }
form { display: flex; flex-wrap: wrap; gap: .5rem; margin: .8rem 0; }
input, select, button {
  font: inherit; padding: .3rem .5rem; color: inherit; background: var(--band);
  border: 1px solid var(--line); border-radius: 4px;
}
input { flex: 1 1 14rem; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: .35rem .6rem; border-bottom: 1px solid var(--line); }
th { background: var(--band); white-space: nowrap; }
td.number, th.number { text-align: right; font-variant-numeric: tabular-nums; }
td { white-space: nowrap; }
td:last-child { white-space: normal; overflow-wrap: anywhere; }
pre { background: var(--band); padding: .7rem; overflow-x: auto; font-size: 13px; }
@media (max-width: 40rem) {
  table.rows thead { display: none; }
  table.rows tr {
    display: block; margin: 0 0 .8rem; padding: .3rem .6rem;
    border: 1px solid var(--line); border-radius: 4px;
  }
  table.rows td, table.rows td.number {
    display: flex; justify-content: flex-end; gap: .6rem; padding: .2rem 0; border: 0;
    text-align: right;
  }
  table.rows td:empty { display: none; }
  table.rows td::before {
    content: attr(data-label); flex: none; margin-right: auto; color: var(--soft); font-weight: 400;
  }
}
)";

}  // namespace zot::exporter
