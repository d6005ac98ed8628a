#include "client/report_printer.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>

#include "client/answer_fold.h"
#include "client/local_file.h"
#include "client/report_values.h"
#include "client/text.h"
#include "client/text_table.h"

namespace zot::client {
namespace {

bool Contains(const std::vector<std::string>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Reports without a record are shown too.
std::vector<const Record*> RecordsOf(const HostReport& report) {
    static const Record kNone;
    std::vector<const Record*> records;
    for (const Record& record : report.records) records.push_back(&record);
    if (records.empty() && report.failure != Failure::kNone) records.push_back(&kNone);
    return records;
}

std::string CsvCell(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string cell = "\"";
    for (char c : text) cell.append(c == '"' ? 2 : 1, c);
    return cell + "\"";
}

// The columns in the order in which they first appear in the records.
std::vector<std::string> FieldsOf(const std::vector<HostReport>& reports, bool tableOnly) {
    std::vector<std::string> names;
    std::set<std::string> known;
    for (const HostReport& report : reports) {
        for (const Record& record : report.records) {
            for (const Field& field : record) {
                bool wanted = field.inTable || !tableOnly;
                if (wanted && known.insert(field.name).second) names.push_back(field.name);
            }
        }
    }
    return names;
}

std::string CountText(const std::map<std::string, size_t>& counts, std::string_view before,
                      std::string_view between) {
    std::string text;
    for (const auto& [word, count] : counts) {
        if (!text.empty()) text += ", ";
        text += before.empty() ? std::to_string(count) + std::string(between) + word
                               : word + std::string(between) + std::to_string(count);
    }
    return text;
}

}  // namespace

ReportPrinter::ReportPrinter(const Invocation& call, bool many, std::vector<std::string> columns)
    : call_(call), many_(many), columns_(std::move(columns)), output_(call.options.output) {
    if (output_ == Output::kDefault) output_ = Output::kTable;
}

void ReportPrinter::Arrived(const HostReport& report) {
    if (output_ != Output::kNdjson || call_.options.fold || call_.options.diff) return;
    for (const Record* record : RecordsOf(report)) {
        const std::string json = JsonRecord(report, *record, call_.options.fields).dump();
        call_.console.out << WithoutControls(json) << '\n';
    }
    call_.console.out.flush();
}

int ReportPrinter::Finish(const std::vector<HostReport>& reports) {
    if (call_.options.fold || call_.options.diff || (many_ && IsTooWide(reports))) {
        PrintFold(call_, reports, output_);
    } else if (output_ == Output::kTable) {
        PrintTableOf(reports);
    } else if (output_ == Output::kJson) {
        PrintJson(reports);
    } else if (output_ == Output::kCsv) {
        PrintCsv(reports);
    } else if (output_ == Output::kRaw) {
        PrintRaw(reports);
    }
    bool forPeople = output_ == Output::kTable || output_ == Output::kRaw;
    if (!many_ && forPeople) PrintFailures(reports);
    if (many_ && output_ == Output::kTable) PrintSummary(reports);
    int status = WriteFailed(reports) ? StatusOf(reports) : int{kNoReply};
    return client::Finish(call_.console, status);
}

std::vector<std::string> ReportPrinter::Columns(const std::vector<HostReport>& reports) const {
    if (!call_.options.fields.empty()) return call_.options.fields;
    std::vector<std::string> columns;
    if (many_) columns = {"host", "status"};
    std::vector<std::string> fields = columns_.empty() ? FieldsOf(reports, true) : columns_;
    columns.insert(columns.end(), fields.begin(), fields.end());
    return columns;
}

// For a table: the settings have forty columns.
bool ReportPrinter::IsTooWide(const std::vector<HostReport>& reports) const {
    constexpr size_t kMostColumns = 12;
    return output_ == Output::kTable && Columns(reports).size() > kMostColumns;
}

void ReportPrinter::PrintTableOf(const std::vector<HostReport>& reports) {
    constexpr const char *kRed = "\x1b[31m", *kGreen = "\x1b[32m";
    const char* noColor = call_.environment.noColor;
    const bool colours = call_.console.terminal && (!noColor || *noColor == '\0');
    const std::vector<std::string> columns = Columns(reports);
    const bool notes = many_ && call_.options.fields.empty() &&
                       std::any_of(reports.begin(), reports.end(), [](const HostReport& report) {
                           return report.failure != Failure::kNone;
                       });
    std::map<std::string, std::string> headings;
    std::vector<std::vector<Cell>> rows;
    for (const HostReport& report : reports) {
        if (!many_ && report.failure != Failure::kNone && call_.options.fields.empty()) continue;
        for (const Record* record : RecordsOf(report)) {
            auto& row = rows.emplace_back();
            for (const std::string& name : columns) {
                Field field = ReportField(report, *record, name);
                headings.emplace(name, "");
                if (!field.label.empty()) headings[name] = Heading(field);
                Cell cell = {HumanText(field), IsNumeric(field.value)};
                bool isStatus = name == "status" && colours;
                if (isStatus) cell.colour = report.failure == Failure::kNone ? kGreen : kRed;
                if (name == "seconds") cell.text = FormatDecimal(report.seconds * 1000, 0);
                row.push_back(std::move(cell));
            }
            if (notes) row.push_back({ShortReason(report)});
        }
    }
    std::vector<std::string> top;
    for (const std::string& name : columns) {
        std::string heading = headings[name].empty() ? Heading({name, {}}) : headings[name];
        top.push_back(name == "seconds" ? "MS" : heading);
    }
    if (notes) top.emplace_back("NOTE");
    if (rows.size() == 1 && IsTooWide(reports)) {
        std::vector<std::vector<Cell>> lines;
        for (size_t i = 0; i < top.size(); ++i) {
            rows[0][i].right = false;
            lines.push_back({{top[i]}, rows[0][i]});
        }
        return PrintTable({"FIELD", "VALUE"}, lines, call_.console.out);
    }
    if (!rows.empty() && !top.empty()) PrintTable(top, rows, call_.console.out);
}

void ReportPrinter::PrintJson(const std::vector<HostReport>& reports) {
    auto array = nlohmann::ordered_json::array();
    for (const HostReport& report : reports) {
        for (const Record* record : RecordsOf(report)) {
            array.push_back(JsonRecord(report, *record, call_.options.fields));
        }
    }
    call_.console.out << WithoutControls(array.dump(2)) << '\n';
}

void ReportPrinter::PrintCsv(const std::vector<HostReport>& reports) {
    std::vector<std::string> columns = call_.options.fields;
    if (columns.empty()) {
        columns = {"host", "status", "code", "seconds"};
        for (const std::string& name : FieldsOf(reports, false)) columns.push_back(name);
        columns.emplace_back("error");
    }
    std::ostream& out = call_.console.out;
    auto print = [&](auto&& cellOf) {
        for (size_t i = 0; i < columns.size(); ++i) {
            out << (i > 0 ? "," : "") << Shown(call_.console, CsvCell(cellOf(columns[i])));
        }
        out << '\n';
    };
    print([](const std::string& name) { return name; });
    for (const HostReport& report : reports) {
        for (const Record* record : RecordsOf(report)) {
            print([&](const std::string& name) {
                return PlainText(ReportField(report, *record, name).value);
            });
        }
    }
}

void ReportPrinter::PrintRaw(const std::vector<HostReport>& reports) {
    std::ostream& out = call_.console.out;
    for (const HostReport& report : reports) {
        std::string before = many_ ? report.host->host.name + ": " : "";
        if (!IsReply(report.failure)) {
            if (many_) out << before << FailureWord(report.failure) << '\n';
            continue;
        }
        out << before << report.answer.code << '\n';
        for (const std::string& line : report.answer.lines) {
            out << before << Shown(call_.console, line) << '\n';
        }
    }
}

void ReportPrinter::PrintFailures(const std::vector<HostReport>& reports) {
    for (const HostReport& report : reports) {
        bool told = output_ == Output::kRaw && IsReply(report.failure);
        if (report.failure == Failure::kNone || told) continue;
        // After a 200 the record has what came of a script that failed.
        bool about =
            IsReply(report.failure) && report.answer.code != "200" && !report.records.empty();
        std::string subject = about ? PlainText(report.records[0][0].value) : "";
        Note(call_.console, Concat({subject, subject.empty() ? "" : ": ", report.message}));
    }
}

void ReportPrinter::PrintSummary(const std::vector<HostReport>& reports) {
    // By host: one failure among several answers counts as the host's.
    std::map<const ChosenHost*, Failure> hosts;
    std::map<std::string, size_t> words, versions;
    for (const HostReport& report : reports) {
        Failure& failure = hosts.emplace(report.host, Failure::kNone).first->second;
        if (report.failure != Failure::kNone) failure = report.failure;
        for (const Record& record : report.records) {
            std::string version = Text(record, "version");
            if (!version.empty()) ++versions[Visible(version)];
        }
    }
    for (const auto& [host, failure] : hosts) ++words[std::string(FailureWord(failure))];
    size_t good = words["ok"];
    words.erase("ok");
    std::string text = Count(static_cast<double>(hosts.size()), "host", "hosts") + ": " +
                       std::to_string(good) + " ok";
    if (!words.empty()) text += ", " + CountText(words, "", " ");
    if (!versions.empty()) text += "; versions " + CountText(versions, "v", " x");
    double seconds = std::chrono::duration<double>(Deadline::Clock::now() - begin_).count();
    call_.console.err << text + "; " + FormatSeconds(seconds) + "\n";
}

bool ReportPrinter::WriteFailed(const std::vector<HostReport>& reports) {
    const std::string& file = call_.options.failedFile;
    if (file.empty()) return true;
    std::string list, error;
    const ChosenHost* last = nullptr;
    for (const HostReport& report : reports) {
        if (report.failure == Failure::kNone || report.host == last) continue;
        last = report.host;
        list += ListLine(report.host->host) + "\n";
    }
    if (!ReplaceFile(file, list, error)) {
        Note(call_.console, error);
        return false;
    }
    if (last) call_.console.err << "again: zotq --hosts " << file << " ...\n";
    return true;
}

bool CheckFields(const std::vector<std::string>& fields, const std::vector<std::string>& known,
                 std::string& error) {
    if (known.empty()) return true;
    for (const std::string& field : fields) {
        bool common =
            std::find(std::begin(kEnvelope), std::end(kEnvelope), field) != std::end(kEnvelope);
        if (common || Contains(known, field)) continue;
        error =
            "no field with the name " + field + "; there are: host, status, code, seconds, error";
        for (const std::string& name : known) error += ", " + name;
        return false;
    }
    return true;
}

}  // namespace zot::client
