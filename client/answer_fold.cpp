#include "client/answer_fold.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>

#include "client/host_names.h"
#include "client/report_values.h"
#include "client/text.h"

namespace zot::client {
namespace {

struct Cell {
    std::string name;   // of the field, with the number of its row if there are several
    std::string label;  // for people
    std::string text;
    Value value;
};

// What one host, or several hosts alike, answered.
struct Answered {
    std::string status;
    std::vector<Cell> cells;
    std::vector<std::string> hosts;

    std::string Key() const {
        std::string key = status;
        for (const Cell& cell : cells) key += "\n" + cell.name + "=" + PlainText(cell.value);
        return key;
    }
    const Cell* Find(const std::string& name) const {
        for (const Cell& cell : cells) {
            if (cell.name == name) return &cell;
        }
        return nullptr;
    }
};

void AddCells(const Invocation& call, const HostReport& report, size_t& row, Answered& answer) {
    if (report.failure != Failure::kNone) answer.status = FailureWord(report.failure);
    if (report.failure == Failure::kAgentCode) {
        answer.cells.push_back({"error", "", Visible(report.message), report.message});
    }
    const auto& chosen = call.options.fields;
    for (const Record& record : report.records) {
        ++row;
        std::string number = row > 1 ? "#" + std::to_string(row) : "";
        auto add = [&](const Field& field) {
            std::string label = field.label.empty() ? field.name : Visible(field.label);
            // Flags in the form that `set` takes.
            bool flag = std::holds_alternative<bool>(field.value);
            std::string text = flag ? PlainText(field.value) : HumanText(field);
            answer.cells.push_back({field.name + number, label, text, field.value});
        };
        for (const std::string& name : chosen) add(ReportField(report, record, name));
        for (const Field& field : record) {
            if (chosen.empty() && field.inTable) add(field);
        }
    }
}

std::vector<Answered> Group(const Invocation& call, const std::vector<HostReport>& reports) {
    std::vector<std::pair<const ChosenHost*, Answered>> hosts;
    size_t row = 0;
    for (const HostReport& report : reports) {
        if (hosts.empty() || hosts.back().first != report.host) {
            hosts.push_back({report.host, {"ok", {}, {report.host->host.name}}});
            row = 0;
        }
        AddCells(call, report, row, hosts.back().second);
    }
    std::vector<Answered> groups;
    std::map<std::string, size_t> known;
    for (auto& [host, answer] : hosts) {
        auto [place, isNew] = known.emplace(answer.Key(), groups.size());
        if (isNew) {
            groups.push_back(std::move(answer));
        } else {
            groups[place->second].hosts.push_back(answer.hosts[0]);
        }
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Answered& a, const Answered& b) {
        bool aGood = a.status == "ok", bGood = b.status == "ok";
        return aGood != bGood ? aGood : a.hosts.size() > b.hosts.size();
    });
    return groups;
}

// The names of the fields that are not the same in all answers.
std::set<std::string> Differing(const std::vector<Answered>& groups) {
    std::set<std::string> names;
    for (const Answered& group : groups) {
        if (group.status != "ok") continue;
        for (const Cell& cell : group.cells) {
            const Cell* first = groups[0].Find(cell.name);
            if (!first || first->value != cell.value) names.insert(cell.name);
        }
        for (const Cell& cell : groups[0].cells) {
            if (!group.Find(cell.name)) names.insert(cell.name);
        }
    }
    return names;
}

void PrintLine(const Answered& group, const Answered& first, size_t width, std::ostream& out) {
    std::string hosts = FoldNames(group.hosts) + " (" + std::to_string(group.hosts.size()) + ")";
    if (hosts.size() < width) hosts.resize(width, ' ');
    out << hosts;
    std::string differs;
    for (const Cell& cell : group.cells) {
        out << "  " << cell.label << (cell.label.empty() ? "" : "=") << cell.text;
        const Cell* other = first.Find(cell.name);
        if (other && other->value == cell.value) continue;
        differs += (differs.empty() ? "" : ", ") + cell.label;
    }
    if (group.status != "ok") {
        out << "  " << group.status;
    } else if (!differs.empty()) {
        out << "  <- differs: " << differs;
    }
    out << '\n';
}

void PrintJsonGroups(const std::vector<Answered>& groups, Output output, std::ostream& out) {
    auto array = nlohmann::ordered_json::array();
    for (const Answered& group : groups) {
        nlohmann::ordered_json object;
        object["hosts"] = group.hosts;
        object["count"] = group.hosts.size();
        object["status"] = group.status;
        for (const Cell& cell : group.cells) object[ValidUtf8(cell.name)] = JsonValue(cell.value);
        if (output == Output::kNdjson) out << object.dump() << '\n';
        array.push_back(std::move(object));
    }
    if (output == Output::kJson) out << array.dump(2) << '\n';
}

}  // namespace

void PrintFold(const Invocation& call, const std::vector<HostReport>& reports, Output output) {
    std::vector<Answered> groups = Group(call, reports);
    if (groups.empty()) return;
    if (call.options.diff) {
        const std::set<std::string> differing = Differing(groups);
        for (Answered& group : groups) {
            std::erase_if(group.cells, [&](const Cell& cell) {
                return cell.name != "error" && differing.count(cell.name) == 0;
            });
        }
    }
    if (output == Output::kJson || output == Output::kNdjson) {
        return PrintJsonGroups(groups, output, call.console.out);
    }
    constexpr size_t kMaxWidth = 40;
    size_t width = 0;
    for (const Answered& group : groups) {
        width = std::max(
            width, FoldNames(group.hosts).size() + 3 + std::to_string(group.hosts.size()).size());
    }
    width = std::min(width, kMaxWidth);
    for (const Answered& group : groups) PrintLine(group, groups[0], width, call.console.out);
}

}  // namespace zot::client
