// Manual pages, sample configuration and completions against the tables of the program. A new key,
// command or name fails here until everything about it is written.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <string>

#include "client/check.h"
#include "client/options.h"
#include "client/subcommands.h"
#include "commands/agent_info.h"
#include "commands/command_table.h"
#include "commands/remote_settings.h"
#include "config/config_file.h"
#include "config/config_keys.h"
#include "expr/condition.h"
#include "expr/operator_table.h"
#include "tests/docs/pages.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using test::Found;
using test::Matches;
using test::Names;
using test::Section;
using test::SourceFile;

Names KeyNames() {
    Names names;
    for (const ConfigKey& key : ConfigKeys()) names.insert(std::string(key.name));
    return names;
}

Names RemoteNames() {
    Names names;
    for (const WireSetting& setting : WireSettings()) names.insert(std::string(setting.name));
    return names;
}

// The commands that are documented as refused on this system.
Names RefusedNames(const std::string& page) { return Found(page, "^\\.It\n\\.Ic ([^ ]+)$"); }

// Loads a configuration file of this text. A load exports TMPDIR, and other tests want theirs.
AgentSettings Load(const test::TempDir& dir, const std::string& text, VyString& errorText) {
    AgentSettings settings;
    dir.Write("zot.cfg", text).copy(settings.configPath, sizeof settings.configPath - 1);
    LoadConfig(settings, errorText);
    unsetenv("TMPDIR");
    return settings;
}

const char* KindName(ConfigKind kind) {
    switch (kind) {
        case ConfigKind::kFlag:
            return "flag";
        case ConfigKind::kNumber:
        case ConfigKind::kPort:
            return "number";
        default:
            return "text";
    }
}

TEST(Docs, ConfigurationPageHasEveryKeyWithKindAndDefault) {
    std::map<std::string, std::string> expected;
    test::TempDir dir;
    VyString ignoredError;
    const AgentSettings empty = Load(dir, "", ignoredError);
    for (const ConfigKey& key : ConfigKeys()) {
        // An empty file leaves the defaults, except for the directory, which is then resolved.
        std::string value = key.flag != nullptr    ? std::to_string(empty.*key.flag)
                            : key.text == nullptr  ? std::to_string(empty.*key.number)
                            : key.name == "tmpdir" ? key.defaultText
                                                   : std::string((empty.*key.text).View());
        expected[std::string(key.name)] =
            std::string(KindName(key.kind)) + " " + (value.empty() ? "empty" : value);
    }
    std::map<std::string, std::string> documented;
    const std::string page = SourceFile("docs/man/zot.cfg.5");
    for (const auto& match : Matches(page, R"(^\.It Cm ([^ ]+) Pq ([a-z]+), default (.+)$)")) {
        documented[match[1]] = match[2] + " " + match[3];
    }
    EXPECT_EQ(documented, expected);
}

TEST(Docs, SampleHasEveryKeyOnceAndLoadsWithoutWarning) {
    std::string sample = SourceFile("packaging/zot.cfg.sample.in");
    EXPECT_EQ(Found(sample, "^([a-z]+)=.*$"), KeyNames());

    test::TempDir dir;
    dir.Write("zot", "");
    for (const auto& path : Matches(sample, "@ZOT_[A-Z]+@")) {
        sample.replace(sample.find(path[0]), path[0].size(), dir.Path());
    }
    sample.insert(sample.find("\npassword=") + 10, "secret");
    VyString errorText;
    const AgentSettings settings = Load(dir, sample, errorText);
    EXPECT_EQ(errorText.View(), "");
    EXPECT_EQ(settings.filterActive, 1);
}

TEST(Docs, PagesAndPortHaveTheVersionOfTheProject) {
    const Names once{kAgentVersion};
    EXPECT_EQ(Found(SourceFile("packaging/freebsd/port/Makefile"), "^DISTVERSION=\t(.+)$"), once);
    EXPECT_EQ(Found(SourceFile("docs/guide.md"), "zot_([0-9.]+)-[0-9]+_"), once);
    const Names shown = Found(SourceFile("docs/man/zotq.1"), "  ok +([0-9.]+) ");
    EXPECT_EQ(shown, (Names{kAgentVersion, kAgentVersion}));
    EXPECT_NE(SourceFile("CHANGELOG.md").find("\n## " + *once.begin() + "\n"), std::string::npos);
}

TEST(Docs, CommandPageHasEveryCommand) {
    const std::string page = SourceFile("docs/man/zot-commands.7");
    Names documented = Found(page, R"(^\.Ss ([^ ]+)$)");
    const Names refused = RefusedNames(page);
    documented.insert(refused.begin(), refused.end());
    Names known;
    for (const Command& command : CommandTable()) {
        known.insert(std::string(command.name));
        if (refused.count(std::string(command.name)) == 0) continue;
        Reply reply;
        command.check("", AgentSettings(), reply);
        EXPECT_EQ(reply.Code(), "500") << command.name;
    }
    EXPECT_EQ(documented, known);
}

TEST(Docs, CommandPageNamesOnlyKeysThatExist) {
    const Names keys = KeyNames();
    const std::string page = SourceFile("docs/man/zot-commands.7");
    auto named = Found(page, "^(Key|script)\n\\.Cm ([a-z]+)", 2);
    EXPECT_GT(named.size(), 15U);
    for (const std::string& key : named) EXPECT_EQ(keys.count(key), 1U) << key;
}

TEST(Docs, CommandPageHasEveryRemoteSettingWithItsKey) {
    const std::string page = SourceFile("docs/man/zot-commands.7");
    const std::string table = Section(page, ".Ss SetSettings", ".Ss ReloadCfg");
    EXPECT_EQ(Found(table, R"(^\.It Cm (.+)$)"), RemoteNames());
    const Names keys = KeyNames();
    for (const std::string& key : Found(table, "^\\.It Cm .+\n\\.Cm ([a-z]+)")) {
        EXPECT_EQ(keys.count(key), 1U) << key;
    }
}

TEST(Docs, CommandPageHasEveryLineOfGetSettings) {
    Reply reply;
    GetSettings(AgentSettings(), ConnectionCounters(), reply);
    const std::string page = SourceFile("docs/man/zot-commands.7");
    Names documented;
    const std::string info = Section(page, ".Ss GetInfo", ".Ss SetSettings");
    for (const auto& line : Matches(info, R"(^\.(It )?Va (.+)$)")) {
        documented.merge(Found(line[2] + " ,", "([A-Z][A-Za-z ]*[A-Za-z]) ,"));
    }
    EXPECT_EQ(Found(std::string(reply.Text().View()), "^([A-Z][A-Za-z ]*)="), documented);
}

// The words of a text, without what mdoc or punctuation adds to them.
std::string BareWords(const std::string& text) {
    std::string words;
    for (const auto& match : Matches(text, "[A-Za-z0-9%/*@=.-]+")) {
        static const Names kMacros = {".Ar", ".Cm", ".Fl", ".Pq", ".Ql", ".Pa", ".Xr", "Ns",
                                      "Ar",  "Ql",  "Pa",  "Op",  "Fl",  "Cm",  ".Op"};
        if (kMacros.count(match[0]) != 0) continue;
        for (char c : match[0]) {
            bool letter =
                (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
            if (letter) words += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
        }
    }
    return words;
}

// What the page says about an item: its paragraph.
std::string ItemText(const std::string& page, const std::string& item) {
    size_t begin = page.find("\n.It " + item + "\n");
    EXPECT_NE(begin, std::string::npos) << item;
    if (begin == std::string::npos) return {};
    begin += item.size() + 6;
    size_t end = std::min(page.find("\n.It ", begin), page.find("\n.El", begin));
    return page.substr(begin, end - begin);
}

TEST(Docs, ClientPageSaysWhatTheHelpSays) {
    const std::string page = SourceFile("docs/man/zotq.1");
    for (const client::OptionWords& option : client::kOptionWords) {
        std::string item = "Fl " + std::string(option.flags.substr(1));
        if (size_t comma = item.find(",-"); comma != std::string::npos) {
            item.replace(comma, 2, " , Fl ");
        }
        if (!option.argument.empty()) item += " Ar " + std::string(option.argument);
        // Options of set and of upgrade may share a name, each with its own words.
        std::string wanted = BareWords(std::string(option.help));
        bool told = BareWords(ItemText(page, item)).starts_with(wanted);
        size_t second = page.rfind("\n.It " + item + "\n");
        if (second != std::string::npos) {
            told = told || BareWords(ItemText(page.substr(second), item)).starts_with(wanted);
        }
        EXPECT_TRUE(told) << option.flags << ": " << option.help;
    }
    for (const client::Subcommand& row : client::kSubcommands) {
        std::string item = "\n.It Cm " + std::string(row.name);
        size_t begin = page.find(item + (row.arguments.empty() ? "\n" : " "));
        ASSERT_NE(begin, std::string::npos) << row.name;
        begin = page.find('\n', begin + 1);
        std::string text = page.substr(begin, page.find("\n.It ", begin) - begin);
        EXPECT_TRUE(BareWords(text).starts_with(BareWords(std::string(row.help)))) << row.name;
    }
}

TEST(Docs, CompletionsHaveEveryOptionAndSubcommand) {
    const std::string bash = SourceFile("packaging/completion/zotq.bash");
    const std::string zsh = SourceFile("packaging/completion/_zotq");
    std::set<std::string> options, offered;
    for (const client::OptionWords& option : client::kOptionWords) {
        for (const auto& flag : Matches(std::string(option.flags), "--?[A-Za-z-]+")) {
            options.insert(flag[0]);
        }
    }
    for (const auto& name : Found(Section(bash, "_zotq_options='", "'"), "(-[^ \n]+)")) {
        offered.insert(name);
    }
    EXPECT_EQ(offered, options);
    offered.clear();
    for (const auto& name : Found(zsh, "[{',](--?[A-Za-z-]+)[[,=}]")) offered.insert(name);
    for (const auto& name : Found(zsh, ",(--[a-z-]+)=?\\}")) offered.insert(name);
    EXPECT_EQ(offered, options);

    Names subcommands, checks;
    for (const client::Subcommand& row : client::kSubcommands) subcommands.emplace(row.name);
    for (const client::Check& check : client::kChecks) checks.emplace(check.name);
    EXPECT_EQ(Found(Section(bash, "_zotq_subcommands='", "'"), "([a-z]+)"), subcommands);
    EXPECT_EQ(Found(Section(bash, "_zotq_checks='", "'"), "([a-z]+)"), checks);
    EXPECT_EQ(Found(Section(zsh, "\nsubcommands=(", "\n)"), "'([a-z]+):"), subcommands);
    EXPECT_EQ(Found(Section(zsh, "\nchecks=(", "\n)"), "'([a-z]+):"), checks);
}

TEST(Docs, CompletionsHaveEveryCommandAndSetting) {
    Names commands;
    for (const Command& command : CommandTable()) commands.insert(std::string(command.name));
    // A transfer is more than a request: the client has its own word for it.
    commands.erase("UpgradeCode");
    for (const std::string& name : RefusedNames(SourceFile("docs/man/zot-commands.7"))) {
        commands.erase(name);
    }
    const std::string words = "((TEST-|ACT-|Get|Set|Reload)[A-Za-z0-9]+|QUIT)";
    const std::string bash = SourceFile("packaging/completion/zotq.bash");
    EXPECT_EQ(Found(Section(bash, "_zotq_commands='", "'"), words), commands);
    EXPECT_EQ(Found(Section(bash, "_zotq_names='", "'"), "^(.+)=$"), RemoteNames());
    const std::string zsh = SourceFile("packaging/completion/_zotq");
    EXPECT_EQ(Found(Section(zsh, "\ncommands=(", "\n)"), "'" + words + ":"), commands);
    EXPECT_EQ(Found(Section(zsh, "\nnames=(", "\n)"), "('[^']+'|[A-Za-z/]+)").size(),
              RemoteNames().size());
    for (const std::string& name : RemoteNames()) {
        EXPECT_NE(zsh.find(name), std::string::npos) << name;
    }
}

TEST(Docs, ExpressionPageHasEveryOperator) {
    const std::string page = SourceFile("docs/man/zot-expr.7");
    Names documented;
    for (const auto& line : Matches(page, R"(^\.(It )?Ic (.+)$)")) {
        // A parenthesis is protected against being taken for punctuation.
        documented.merge(Found(line[2], R"((\\&)?([^ ,]+))", 2));
    }
    for (const OperatorEntry& row : ConditionOperatorTable) {
        EXPECT_GT(documented.count(std::string(row.keyword)), 0U) << row.keyword;
    }
}

TEST(Docs, ExamplesOfConditionsDoWhatThePageSays) {
    struct Example {
        const char* matches;
        const char* differs;
    };
    const Example lines[] = {
        {"load 1 of 95", "load 1 of 85"},
        {"backup done FAILED", "backup done OK"},
        {"free: 350 MB of 2000 MB", "free: 750 MB of 2000 MB"},
        {"GET,/shop,12,503", "GET,/health,12,503"},
    };
    const std::string page =
        Section(SourceFile("docs/man/zot-expr.7"), ".Ss Examples of conditions", ".Sh DIAGNOSTICS");
    auto examples = Matches(page, R"(^\.Dl (.+)$)");
    ASSERT_EQ(examples.size(), std::size(lines));
    for (size_t i = 0; i < examples.size(); ++i) {
        const std::string text = examples[i][1];
        std::string_view rest = text;
        ExpressionParser parser(ConditionOperatorTable);
        ASSERT_EQ(ParseExpression(parser, rest, false), 1) << text;
        ConditionProgram program(parser.output);
        VyString errorText;
        EXPECT_TRUE(program.Evaluate(lines[i].matches, errorText)) << text << errorText.View();
        EXPECT_FALSE(program.Evaluate(lines[i].differs, errorText)) << text;
        EXPECT_EQ(errorText.View(), "") << text;
    }
}

}  // namespace
}  // namespace zot
