// Pages for people: what they have in common.
#pragma once

#include <string>
#include <string_view>

#include "exporter/http_exchange.h"

namespace zot::exporter {

// The text as it may stand in a page, in quotes too: control characters made visible.
std::string Html(std::string_view text);
// The text as a value in a URL.
std::string UrlValue(std::string_view text);

// A whole page with this title, which is a text, and this body.
std::string HtmlPage(std::string_view title, std::string_view body);
// The reply with it: no script runs in it, and nothing comes from elsewhere.
HttpReply HtmlReply(std::string page);

extern const std::string_view kStyleSheet;

}  // namespace zot::exporter
