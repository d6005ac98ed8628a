#include "exporter/probe_report.h"

#include <algorithm>
#include <string_view>

#include "client/text.h"

namespace zot::exporter {

using client::Concat;
using client::Failure;
using client::FailureWord;
using client::FormatSeconds;

std::string FirstMessage(const ProbeReport& report) {
    auto failed =
        std::find_if(report.checks.begin(), report.checks.end(),
                     [](const CheckReport& check) { return check.failure != Failure::kNone; });
    return failed == report.checks.end() ? "" : client::Visible(failed->message);
}

std::string InWords(const ProbeReport& report) {
    std::string text = Concat({report.host, ": ", FailureWord(report.failure), " after ",
                               FormatSeconds(report.seconds), "\n"});
    for (const CheckReport& check : report.checks) {
        text += Concat({"  ", check.name, ": ", FailureWord(check.failure), " after ",
                        FormatSeconds(check.seconds)});
        if (!check.message.empty()) text += Concat({", ", client::Visible(check.message)});
        text += "\n";
    }
    return Concat({text, "\n", report.metrics});
}

}  // namespace zot::exporter
