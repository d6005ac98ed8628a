// The checks for people: words become questions, replies become a table.
#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "base/vystring.h"
#include "client/host_run.h"
#include "client/people.h"
#include "client/probe.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

using Words = std::vector<std::string>;

Words WordsAfterName(const Invocation& call) {
    return {call.options.words.begin() + 1, call.options.words.end()};
}

// Follows a probe for each of its names, one after another.
class ProbeTask : public HostTask {
  public:
    using Maker = std::function<std::unique_ptr<Probe>(const std::string& name)>;

    // Reads each answer as that of `command` asked with the params of the name.
    ProbeTask(const ChosenHost& host, const Words& names, Maker make, std::string command,
              std::function<Words(const std::string& name)> params)
        : host_(host),
          names_(names),
          make_(std::move(make)),
          command_(std::move(command)),
          params_(std::move(params)) {}

    std::optional<Question> Next() override {
        while (index_ < names_.size()) {
            if (!probe_) probe_ = make_(names_[index_]);
            if (auto question = probe_->Next()) return question;
            Report({});
        }
        return {};
    }

    void Take(const Question&, Outcome outcome) override {
        seconds_ += outcome.seconds;
        probe_->SetSameHost(outcome.sameHost);
        if (IsReply(outcome.failure)) return probe_->Take(outcome.answer);
        Report(std::move(outcome));
        index_ = names_.size();
    }

  private:
    void Report(Outcome outcome) {
        if (outcome.message.empty()) {
            outcome.answer = probe_->answer;
            outcome.failure = outcome.answer.code == "200" ? Failure::kNone : Failure::kAgentCode;
        }
        outcome.seconds = seconds_;
        Question question = {command_, params_(names_[index_])};
        reports.push_back(MakeReport(host_, question, std::move(outcome)));
        probe_.reset();
        seconds_ = 0;
        ++index_;
    }

    const ChosenHost& host_;
    Words names_;
    Maker make_;
    std::string command_;
    std::function<Words(const std::string& name)> params_;
    size_t index_ = 0;
    std::unique_ptr<Probe> probe_;
    double seconds_ = 0;
};

std::vector<Question> EachOf(const Words& words, const std::string& command,
                             const std::function<Words(const std::string&)>& params) {
    std::vector<Question> questions;
    for (const std::string& word : words) questions.push_back({command, params(word)});
    return questions;
}

}  // namespace

int AskDisk(Invocation& call) {
    Words paths = WordsAfterName(call);
    if (paths.empty()) paths = {"/"};
    return AskQuestions(
        call, EachOf(paths, "TEST-UNC", [](const std::string& path) { return Words{path}; }));
}

int AskSize(Invocation& call) {
    Words paths = WordsAfterName(call);
    auto params = [](const std::string& path) { return Words{path}; };
    auto probe = [](const std::string& path) { return std::make_unique<SizeProbe>(path); };
    return AskTasks(call, "TEST-FolderSize", [&](const ChosenHost& host) {
        return std::make_unique<ProbeTask>(host, paths, probe, "TEST-FolderSize", params);
    });
}

int AskProcess(Invocation& call) {
    Words names = WordsAfterName(call);
    const std::string& own = call.environment.commandLine;
    auto params = [](const std::string& name) { return Words{"0", name}; };
    auto probe = [&own](const std::string& name) {
        return std::make_unique<ProcessProbe>(name, own);
    };
    return AskTasks(call, "TEST-Process", [&](const ChosenHost& host) {
        return std::make_unique<ProbeTask>(host, names, probe, "TEST-Process", params);
    });
}

int AskFiles(Invocation& call) {
    Words words = WordsAfterName(call);
    std::string mask = words.size() > 1 ? words[1] : "*";
    return AskQuestions(
        call, {{"TEST-CountFiles", {words[0], mask, "0", "0", "0", "0", "0", "0", "0", "0", "1"}}});
}

int AskAge(Invocation& call) {
    return AskQuestions(
        call, EachOf(WordsAfterName(call), "TEST-FileExists", [](const std::string& file) {
            return Words{file, "0", "0", "0", "0", "0", "1"};
        }));
}

int AskHash(Invocation& call) {
    static const std::map<std::string, std::string> kAlgorithms = {
        {"crc32", "0"}, {"md5", "1"}, {"sha256", "2"}, {"sha512", "3"}};
    Words words = WordsAfterName(call);
    auto algorithm = kAlgorithms.find(words.size() > 1 ? words[1] : "sha256");
    if (algorithm == kAlgorithms.end()) {
        return Fail(call.console,
                    "no such algorithm: " + words[1] + " (there are crc32, md5, sha256 and sha512)",
                    kWrongUsage);
    }
    return AskQuestions(call, {{"TEST-FileHash", {words[0], algorithm->second, "0"}}});
}

int AskCpu(Invocation& call) { return AskQuestions(call, {{"TEST-CPU", {}}}); }

int AskTcp(Invocation& call) {
    constexpr int64_t kReplyMs = 500;  // kept of the time limit for the reply
    Words words = WordsAfterName(call);
    int64_t limit = std::max<int64_t>(1, call.options.target.timeout.count() - kReplyMs);
    // The data, unlike other parameters, may be an empty line.
    return AskQuestions(call, {{"TEST-TCP", {words[0], words[1], std::to_string(limit), "", "0"}}});
}

int ShowHosts(Invocation& call) {
    Choice choice;
    std::string error;
    if (!ChooseHosts(call, choice, error)) return Fail(call.console, error, kWrongUsage);
    int status = kReplyOk;
    for (const ChosenHost& host : choice.hosts) {
        call.console.out << ListLine(host.host) << '\n';
        if (host.fault.empty()) continue;
        status = kReplyOther;
        Note(call.console, host.host.name + ": " + host.fault);
    }
    return Finish(call.console, status);
}

}  // namespace zot::client
