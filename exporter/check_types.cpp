#include "exporter/check_types.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "client/hash_digest.h"

namespace zot::exporter {
namespace {

using client::Number;
using client::Probe;
using client::Question;
using client::Record;
using client::Text;
using std::chrono::milliseconds;
using Asked = std::unique_ptr<Probe>;

constexpr MetricFamily kAgentInfo = {"zot_agent_info", "gauge",
                                     "The agent's version, and the host that it runs on."};
constexpr MetricFamily kAgentConnections = {"zot_agent_connections_total", "counter",
                                            "Connections since the agent's start."};
constexpr MetricFamily kAgentRefused = {"zot_agent_refused_connections_total", "counter",
                                        "Connections that the agent's filter refused."};
constexpr MetricFamily kAgentActive = {"zot_agent_active_connections", "gauge",
                                       "Connections that the agent now serves."};
constexpr MetricFamily kFilesystemSize = {"zot_filesystem_size_bytes", "gauge",
                                          "Size of the file system."};
constexpr MetricFamily kFilesystemFree = {"zot_filesystem_free_bytes", "gauge",
                                          "Free bytes of the file system."};
constexpr MetricFamily kFilesystemAvail = {"zot_filesystem_avail_bytes", "gauge",
                                           "Bytes of the file system that users can have."};
constexpr MetricFamily kFileSize = {"zot_file_size_bytes", "gauge", "Size of the file."};
constexpr MetricFamily kFileModified = {"zot_file_modified_timestamp_seconds", "gauge",
                                        "When the file was modified, since 1970."};
constexpr MetricFamily kFolderSize = {"zot_folder_size_bytes", "gauge",
                                      "Size of all files in the folder and below."};
constexpr MetricFamily kFiles = {"zot_files", "gauge", "Number of files in the folder."};
constexpr MetricFamily kProcesses = {"zot_processes", "gauge", "Number of processes."};
constexpr MetricFamily kCpu = {"zot_cpu_usage_ratio", "gauge",
                               "Use of the processors, from 0 to 1."};
constexpr MetricFamily kTcp = {"zot_tcp_duration_seconds", "gauge",
                               "How long the agent took to connect to the service."};
constexpr MetricFamily kHash = {"zot_file_unchanged", "gauge",
                                "1 when the file has the expected digest, else 0."};
constexpr MetricFamily kLogMatches = {"zot_log_matches_total", "counter",
                                      "Lines of the log with the pattern."};

// One question, whose reply is the answer.
class OneQuestion : public Probe {
  public:
    explicit OneQuestion(Question question) : question_(std::move(question)) {}
    std::optional<Question> Next() override { return std::exchange(question_, std::nullopt); }
    void Take(const client::Answer& reply) override { answer = reply; }

  private:
    std::optional<Question> question_;
};

Asked Ask(std::string command, std::vector<std::string> params) {
    return std::make_unique<OneQuestion>(Question{std::move(command), std::move(params)});
}

Asked AskInfo(const Check&, milliseconds) { return Ask("GetInfo", {}); }
Asked AskDisk(const Check& check, milliseconds) { return Ask("TEST-UNC", {check.values[0]}); }
Asked AskFile(const Check& check, milliseconds) {
    return Ask("TEST-FileExists", {check.values[0], "0", "0", "0", "0", "0", "1"});
}
Asked AskSize(const Check& check, milliseconds) {
    return std::make_unique<client::SizeProbe>(check.values[0]);
}
Asked AskFiles(const Check& check, milliseconds) {
    return Ask("TEST-CountFiles",
               {check.values[0], check.values[1], "0", "0", "0", "0", "0", "0", "0", "0", "1"});
}
Asked AskProcess(const Check& check, milliseconds) {
    return std::make_unique<client::ProcessProbe>(check.values[0], "");
}
Asked AskCpu(const Check&, milliseconds) { return Ask("TEST-CPU", {}); }
Asked AskTcp(const Check& check, milliseconds limit) {
    constexpr milliseconds kForTheReply{500};
    milliseconds wait = std::max(limit - kForTheReply, limit / 2);
    // The data, unlike other parameters, may be an empty line.
    return Ask("TEST-TCP", {check.values[0], check.values[1],
                            std::to_string(std::max<milliseconds::rep>(wait.count(), 1)), "", "0"});
}
Asked AskHash(const Check& check, milliseconds) {
    return Ask("TEST-FileHash", {check.values[0], client::HashAlgorithm(check.values[1]), "0"});
}

std::vector<Label> LabelsOf(const Check& check) {
    std::vector<Label> labels = {{"check", check.name}};
    for (size_t i = 0; i < check.values.size(); ++i) {
        std::string_view label = check.type->keys[i].label;
        if (!label.empty()) labels.emplace_back(label, check.values[i]);
    }
    return labels;
}

void AddField(const MetricFamily& family, const Check& check, std::string_view field,
              const Record& record, MetricText& metrics) {
    if (auto number = Number(record, field)) metrics.Add(family, LabelsOf(check), *number);
}

void ReportInfo(const Check&, const Record& record, MetricText& metrics) {
    const std::string host = Text(record, "host_name"), system = Text(record, "system"),
                      version = Text(record, "agent_version");
    metrics.Add(kAgentInfo,
                std::vector<Label>{{"hostname", host}, {"system", system}, {"version", version}},
                1);
    auto add = [&](const MetricFamily& family, std::string_view field) {
        if (auto number = Number(record, field)) metrics.Add(family, *number);
    };
    add(kAgentConnections, "opened_connections");
    add(kAgentRefused, "failed_connections");
    add(kAgentActive, "active_connections");
}

void ReportDisk(const Check& check, const Record& record, MetricText& metrics) {
    AddField(kFilesystemSize, check, "size_bytes", record, metrics);
    AddField(kFilesystemFree, check, "free_bytes", record, metrics);
    AddField(kFilesystemAvail, check, "available_bytes", record, metrics);
}

void ReportFile(const Check& check, const Record& record, MetricText& metrics) {
    AddField(kFileSize, check, "size_bytes", record, metrics);
    // -1 where the agent's time could not be understood.
    if (Number(record, "modified_timestamp_seconds").value_or(-1) >= 0) {
        AddField(kFileModified, check, "modified_timestamp_seconds", record, metrics);
    }
}

template <const MetricFamily& family, const char* field>
void ReportField(const Check& check, const Record& record, MetricText& metrics) {
    AddField(family, check, field, record, metrics);
}

void ReportCpu(const Check& check, const Record& record, MetricText& metrics) {
    if (auto percent = Number(record, "usage_percent")) {
        metrics.Add(kCpu, LabelsOf(check), *percent / 100);
    }
}

void ReportHash(const Check& check, const Record& record, MetricText& metrics) {
    bool same = Text(record, "digest") == client::NormalDigest(check.values[1]);
    metrics.Add(kHash, LabelsOf(check), same ? 1 : 0);
}

constexpr CheckKey kPath[] = {{"path", "path", ""}};
constexpr CheckKey kFolderAndMask[] = {{"path", "path", ""}, {"mask", "mask", "*"}};
constexpr CheckKey kProcess[] = {{"process", "name", ""}};
constexpr CheckKey kService[] = {{"host", "host", ""}, {"port", "port", "", KeyKind::kPort}};
constexpr CheckKey kPathAndDigest[] = {{"path", "path", ""}, {"digest", "", "", KeyKind::kDigest}};
constexpr CheckKey kPathAndPattern[] = {{"path", "path", ""}, {"pattern", "", ""}};

constexpr char kSizeBytes[] = "size_bytes";
constexpr char kCount[] = "count";
constexpr char kAnswerSeconds[] = "answer_seconds";
constexpr char kMatches[] = "matches";
static_assert(kMatchesField == kMatches);

constexpr CheckType kTypes[] = {
    {"info", "GetInfo", {}, AskInfo, ReportInfo, "version, system and connections of the agent"},
    {"disk", "TEST-UNC", kPath, AskDisk, ReportDisk, "space of the file system"},
    {"file", "TEST-FileExists", kPath, AskFile, ReportFile, "size and age of a file"},
    {"size", "TEST-FolderSize", kPath, AskSize, ReportField<kFolderSize, kSizeBytes>,
     "size of the files in a folder"},
    {"files", "TEST-CountFiles", kFolderAndMask, AskFiles, ReportField<kFiles, kCount>,
     "number of files in a folder"},
    {"process", "TEST-Process", kProcess, AskProcess, ReportField<kProcesses, kCount>,
     "number of processes"},
    {"cpu", "TEST-CPU", {}, AskCpu, ReportCpu, "use of the processors"},
    {"tcp", "TEST-TCP", kService, AskTcp, ReportField<kTcp, kAnswerSeconds>,
     "whether a service answers the agent"},
    {"hash", "TEST-FileHash", kPathAndDigest, AskHash, ReportHash, "whether a file is unchanged"},
    {"log", "TEST-TextLog", kPathAndPattern, nullptr, ReportField<kLogMatches, kMatches>,
     "number of lines of a log with a text"},
};

}  // namespace

std::span<const CheckType> CheckTypes() { return kTypes; }

const CheckType* FindCheckType(std::string_view word) {
    const auto* found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                     [word](const CheckType& type) { return type.word == word; });
    return found == std::end(kTypes) ? nullptr : found;
}

bool CountsLog(const Check& check) { return check.type->ask == nullptr; }

bool IsOfTheAgent(const Check& check) { return check.type->report == ReportInfo; }

}  // namespace zot::exporter
