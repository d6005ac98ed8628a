#include "exporter/fleet_page.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "client/text.h"
#include "commands/agent_info.h"
#include "exporter/html.h"

namespace zot::exporter {
namespace {

using client::Concat;
using client::Failure;
using client::FormatSeconds;

// More rows than anybody reads; a filter finds the others.
constexpr size_t kMaxRows = 2000;
constexpr std::string_view kOk = "ok", kFailed = "failed", kUnknown = "unknown";

struct Row {
    const client::Host* host = nullptr;
    LastProbes::Report report;  // null when the host was not probed yet
    std::string_view state = kUnknown;
    std::string groups;
    double age = 0;
};

struct Column {
    std::string_view key;
    std::string_view heading;
    bool number;
    bool (*before)(const Row& a, const Row& b);
};

std::string_view Version(const Row& row) {
    return row.report ? std::string_view(row.report->version) : "";
}
std::string_view System(const Row& row) {
    return row.report ? std::string_view(row.report->system) : "";
}
double Duration(const Row& row) { return row.report ? row.report->seconds : -1; }
std::string Reason(const Row& row) {
    if (row.state != kFailed) return {};
    return Concat({client::FailureWord(row.report->failure), ": ", FirstMessage(*row.report)});
}
std::string Age(double seconds) {
    return seconds < 1 ? "just now" : FormatSeconds(seconds) + " ago";
}
// What needs somebody comes first.
int Urgency(const Row& row) { return row.state == kFailed ? 0 : row.state == kUnknown ? 1 : 2; }

constexpr Column kColumns[] = {
    {"host", "Host", false, nullptr},  // the inventory's order
    {"state", "State", false, [](const Row& a, const Row& b) { return Urgency(a) < Urgency(b); }},
    {"version", "Version", false,
     [](const Row& a, const Row& b) { return Version(a) < Version(b); }},
    {"system", "System", false, [](const Row& a, const Row& b) { return System(a) < System(b); }},
    {"age", "Last probe", true, [](const Row& a, const Row& b) { return a.age > b.age; }},
    {"duration", "Took", true,
     [](const Row& a, const Row& b) { return Duration(a) > Duration(b); }},
};

bool Contains(std::string_view text, std::string_view part) {
    auto same = [](char a, char b) { return LowerAscii(a) == LowerAscii(b); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

bool IsWanted(const Row& row, const FleetQuery& query) {
    if (!query.state.empty() && query.state != row.state) return false;
    if (query.text.empty()) return true;
    const std::string reason = Reason(row);
    for (std::string_view text : {std::string_view(row.host->name), std::string_view(row.groups),
                                  Version(row), System(row), std::string_view(reason)}) {
        if (Contains(text, query.text)) return true;
    }
    return false;
}

std::vector<Row> AllRows(const Fleet& fleet,
                         const std::map<std::string, LastProbes::Report>& probes, time_t now) {
    std::vector<Row> rows;
    for (const client::Host& host : fleet.inventory.Hosts()) {
        Row& row = rows.emplace_back();
        row.host = &host;
        for (const std::string& group : host.groups) {
            row.groups.append(row.groups.empty() ? "" : ", ").append(group);
        }
        auto found = probes.find(host.name);
        if (found == probes.end()) continue;
        row.report = found->second;
        row.state = row.report->failure == Failure::kNone ? kOk : kFailed;
        row.age = std::max(0.0, difftime(now, row.report->begun));
    }
    return rows;
}

std::string Cell(std::string_view label, std::string_view html, std::string_view style = "") {
    return Concat({"<td data-label=\"", label, "\"",
                   style.empty() ? "" : Concat({" class=\"", style, "\""}), ">", html, "</td>"});
}

std::string RowAsHtml(const Row& row) {
    const client::Host& host = *row.host;
    std::string link = Concat({"<a href=\"host?name=", UrlValue(host.name), "\">", Html(host.name),
                               "</a>", row.groups.empty() ? "" : " <span class=\"soft\">",
                               Html(row.groups), row.groups.empty() ? "" : "</span>"});
    std::string age = row.report ? Age(row.age) : "never";
    std::string took = row.report ? FormatSeconds(row.report->seconds) : "";
    return Concat({"<tr>", Cell("Host", link), Cell("State", row.state, row.state),
                   Cell("Version", Html(Version(row))), Cell("System", Html(System(row))),
                   Cell("Last probe", age, "number"), Cell("Took", took, "number"),
                   Cell("Reason", Html(Reason(row))), "</tr>\n"});
}

struct Choice {
    std::string_view value;
    std::string_view words;
};
constexpr Choice kStates[] = {
    {"", "all"}, {kFailed, "failed"}, {kUnknown, "not probed yet"}, {kOk, "ok"}};

std::string Form(const FleetQuery& query) {
    std::string form =
        Concat({"<form method=\"get\" action=\".\">\n<input type=\"search\" name=\"q\" value=\"",
                Html(query.text),
                "\" placeholder=\"host, group, version, system or reason\" aria-label=\"Filter\">\n"
                "<select name=\"state\" aria-label=\"State\">"});
    for (const Choice& choice : kStates) {
        form +=
            Concat({"<option value=\"", choice.value, "\"",
                    choice.value == query.state ? " selected>" : ">", choice.words, "</option>"});
    }
    return form + Concat({"</select>\n<input type=\"hidden\" name=\"sort\" value=\"", query.sort,
                          "\">\n<button>Show</button>\n</form>\n"});
}

std::string Heading(const FleetQuery& query) {
    std::string row = "<thead><tr>";
    for (const Column& column : kColumns) {
        row += Concat({column.number ? "<th class=\"number\"" : "<th",
                       column.key == query.sort ? " aria-sort=\"ascending\">" : ">",
                       "<a href=\"?sort=", column.key, "&amp;state=", query.state,
                       "&amp;q=", UrlValue(query.text), "\">", column.heading, "</a></th>"});
    }
    return row + "<th>Reason</th></tr></thead>\n";
}

std::string Summary(const std::vector<Row>& rows) {
    size_t counts[3] = {};
    for (const Row& row : rows) ++counts[Urgency(row)];
    return Concat({"<p>", client::Count(static_cast<double>(rows.size()), "host", "hosts"),
                   ": <span class=\"failed\">", std::to_string(counts[0]),
                   " failed</span>, <span class=\"ok\">", std::to_string(counts[2]), " ok</span>, ",
                   std::to_string(counts[1]), " not probed yet</p>\n"});
}

std::string ChecksAsHtml(const ProbeReport& report) {
    std::string html =
        "<table class=\"rows\">\n<thead><tr><th>Check</th><th>State</th><th class=\"number\">Took"
        "</th><th>Reason</th></tr></thead>\n<tbody>\n";
    for (const CheckReport& check : report.checks) {
        bool good = check.failure == Failure::kNone;
        html += Concat({"<tr>", Cell("Check", Html(check.name)),
                        Cell("State", client::FailureWord(check.failure), good ? kOk : kFailed),
                        Cell("Took", FormatSeconds(check.seconds), "number"),
                        Cell("Reason", Html(check.message)), "</tr>\n"});
    }
    return html + "</tbody>\n</table>\n";
}

}  // namespace

FleetQuery ReadFleetQuery(const Pairs& pairs) {
    FleetQuery query;
    for (const auto& [name, value] : pairs) {
        if (name == "q") {
            query.text = value;
        } else if (name == "state") {
            for (const Choice& choice : kStates) {
                if (choice.value == value) query.state = value;
            }
        } else if (name == "sort") {
            for (const Column& column : kColumns) {
                if (column.key == value) query.sort = value;
            }
        }
    }
    return query;
}

std::string FleetAsHtml(const Fleet& fleet, const std::map<std::string, LastProbes::Report>& probes,
                        const FleetQuery& query, time_t now) {
    std::vector<Row> rows = AllRows(fleet, probes, now);
    std::string body = Concat({"<h1>Fleet</h1>\n", Summary(rows), Form(query)});
    std::erase_if(rows, [&](const Row& row) { return !IsWanted(row, query); });
    for (const Column& column : kColumns) {
        if (column.key == query.sort && column.before) {
            std::stable_sort(rows.begin(), rows.end(), column.before);
        }
    }
    body += Concat({"<table class=\"rows\">\n", Heading(query), "<tbody>\n"});
    for (size_t i = 0; i < std::min(rows.size(), kMaxRows); ++i) body += RowAsHtml(rows[i]);
    body += "</tbody>\n</table>\n";
    if (rows.empty()) body += "<p>No host is like that.</p>\n";
    if (rows.size() > kMaxRows) {
        body += Concat({"<p>", std::to_string(rows.size() - kMaxRows),
                        " more are not shown: filter them.</p>\n"});
    }
    body += Concat({"<p class=\"soft\">zot-exporter ", kAgentVersion,
                    ": <a href=\"metrics\">metrics</a>, <a href=\"targets\">targets</a>, "
                    "<a href=\"config\">configuration</a></p>\n"});
    return HtmlPage("Fleet", body);
}

std::string HostAsHtml(const client::Host& host, const ExporterConfig& config,
                       const ProbeReport* report, time_t now) {
    std::string name = Html(host.name);
    std::string body = Concat({"<p><a href=\"./\">Fleet</a></p>\n<h1>", name, "</h1>\n<p>",
                               Html(host.address), " port ", std::to_string(host.port), "</p>\n"});
    if (report) {
        bool good = report->failure == Failure::kNone;
        body += Concat(
            {"<h2>Last probe</h2>\n<p><span class=\"", good ? kOk : kFailed, "\">",
             client::FailureWord(report->failure), "</span> after ", FormatSeconds(report->seconds),
             ", ", Age(std::max(0.0, difftime(now, report->begun))), "</p>\n",
             ChecksAsHtml(*report), "<h2>Metrics</h2>\n<pre>", Html(report->metrics), "</pre>\n"});
    } else {
        body += "<p>Nobody has probed this host yet.</p>\n";
    }
    body += "<h2>Probe it now</h2>\n<p>";
    for (const Module& module : config.modules) {
        body += Concat({"<a href=\"probe?target=", UrlValue(host.name), "&amp;module=",
                        UrlValue(module.name), "&amp;debug=true\">", Html(module.name), "</a>\n"});
    }
    return HtmlPage(host.name, body + "</p>\n");
}

}  // namespace zot::exporter
