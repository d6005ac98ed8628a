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
    std::string text;   // the same
    Value value;
    std::string same{};  // what is compared: people want equal what reads equal
};

bool IsForPeople(Output output) { return output == Output::kDefault || output == Output::kTable; }

// What one host, or several hosts alike, answered.
struct Answered {
    std::string status;
    std::vector<Cell> cells;
    std::vector<std::string> hosts;

    std::string Key() const {
        std::string key = status;
        for (const Cell& cell : cells) key += "\n" + cell.name + "=" + cell.same;
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
    const bool forPeople = IsForPeople(call.options.output);
    if (report.failure != Failure::kNone) answer.status = FailureWord(report.failure);
    if (report.failure == Failure::kAgentCode) {
        answer.cells.push_back(
            {"error", "", Visible(report.message), report.message, report.message});
    }
    const auto& chosen = call.options.fields;
    for (const Record& record : report.records) {
        ++row;
        std::string number = row > 1 ? "#" + std::to_string(row) : "";
        auto add = [&](const Field& field) {
            // Flags in the form that `set` takes.
            bool flag = std::holds_alternative<bool>(field.value);
            std::string text = flag ? PlainText(field.value) : HumanText(field);
            std::string same = forPeople ? text : PlainText(field.value);
            answer.cells.push_back(
                {field.name + number, ShownName(field), text, field.value, std::move(same)});
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
            if (!first || first->same != cell.same) names.insert(cell.name);
        }
        for (const Cell& cell : groups[0].cells) {
            if (!group.Find(cell.name)) names.insert(cell.name);
        }
    }
    return names;
}

std::string HostsOf(const Answered& group) {
    return FoldNames(group.hosts) + " (" + std::to_string(group.hosts.size()) + ")";
}

// As many lines as it takes, the later ones below the first cell.
void PrintGroup(const Answered& group, const Answered& first, size_t width, std::ostream& out) {
    constexpr size_t kMargin = 100;
    const std::string indent(width, ' ');
    std::string line = HostsOf(group), differs;
    line.resize(std::max(width, line.size()), ' ');
    bool fresh = true;
    auto print = [&](const std::string& text) {
        if (!fresh && Width(line) + 2 + Width(text) > kMargin) {
            out << line << '\n';
            line = indent;
        }
        line += "  " + text;
        fresh = false;
    };
    for (const Cell& cell : group.cells) {
        print(cell.label + (cell.label.empty() ? "" : "=") + cell.text);
        const Cell* other = first.Find(cell.name);
        if (other && other->same == cell.same) continue;
        differs += (differs.empty() ? "" : ", ") + cell.label;
    }
    if (group.status != "ok") {
        print(group.status);
    } else if (!differs.empty()) {
        print("<- differs: " + differs);
    }
    out << line << '\n';
}

void PrintJsonGroups(const std::vector<Answered>& groups, Output output, std::ostream& out) {
    auto array = nlohmann::ordered_json::array();
    for (const Answered& group : groups) {
        nlohmann::ordered_json object;
        object["hosts"] = group.hosts;
        object["count"] = group.hosts.size();
        object["status"] = group.status;
        for (const Cell& cell : group.cells) object[ValidUtf8(cell.name)] = JsonValue(cell.value);
        if (output == Output::kNdjson) out << WithoutControls(object.dump()) << '\n';
        array.push_back(std::move(object));
    }
    if (output == Output::kJson) out << WithoutControls(array.dump(2)) << '\n';
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
    if (!IsForPeople(output)) return PrintJsonGroups(groups, output, call.console.out);
    bool same = call.options.diff && groups[0].status == "ok" && groups[0].cells.empty();
    if (same) groups[0].cells.push_back({"", "", "nothing differs", {}});
    constexpr size_t kMaxWidth = 40;
    size_t width = 0;
    for (const Answered& group : groups) width = std::max(width, HostsOf(group).size());
    width = std::min(width, kMaxWidth);
    for (const Answered& group : groups) PrintGroup(group, groups[0], width, call.console.out);
}

}  // namespace zot::client
