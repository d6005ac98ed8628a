// The configuration as administrators write it, with every mistake that they can make.
#include "exporter/exporter_config.h"

#include <gtest/gtest.h>

#include "exporter/web_config.h"
#include "tests/support/temp_dir.h"

namespace zot::exporter {
namespace {

using Lines = std::vector<std::string>;

// What is wrong with a file of this text, without the file's name in front.
Lines MistakesIn(const test::TempDir& dir, const std::string& text, ExporterConfig* config) {
    ExporterConfig own;
    Lines mistakes;
    std::string path = dir.Write("e.yml", text);
    bool good = ReadConfig(path, config ? *config : own, mistakes);
    EXPECT_EQ(good, mistakes.empty());
    for (std::string& line : mistakes) {
        EXPECT_TRUE(line.starts_with(path + ":")) << line;
        line.erase(0, path.size() + 1);
    }
    return mistakes;
}

TEST(ExporterConfig, TellsEveryMistakeWithItsPlace) {
    const std::string front = "hosts: h\nmodules:\n  m:\n    checks:\n      - ";
    struct Case {
        std::string text;
        Lines mistakes;
    } cases[] = {
        {"", {" the configuration needs hosts", " the configuration needs modules"}},
        {"[1]",
         {"1:1: the configuration must be a mapping of keys to values",
          "1:1: the configuration needs hosts", "1:1: the configuration needs modules"}},
        {"hosts: h\nhosts: i\nmodules: {}\n",
         {"2:1: hosts is here twice", "3:10: there is no module"}},
        {"hosts: \"-\"\nmodules: {a b: {checks: []}}\n",
         {"1:8: hosts must be a folder or a file",
          "2:16: a module's name must be of letters, digits, '_', '-' and '.'",
          "2:25: checks must be a list with at least one check"}},
        {"hosts: h\ndefaults: {port: 0, timeout: 1d, x: 1}\nmodules: 3\n",
         {"2:18: port must be a number from 1 to 65535",
          "2:30: timeout must be a time like 500ms, 10s or 1m30s, to 24h",
          "2:34: defaults has no key x", "3:10: modules must be a mapping of keys to values",
          "3:10: there is no module"}},
        {front + "{name: a, type: disk, path: /, warn: 3}\n", {"5:40: a check has no key warn"}},
        {front + "{name: a, type: disk}\n", {"5:9: a check needs path"}},
        {front + "{name: 'a b', type: disk, path: \"x\\ny\"}\n",
         {"5:16: a check's name must be of letters, digits, '_', '-' and '.'",
          "5:41: path must be a text on one line"}},
        {front + "{name: a, type: script, path: /}\n",
         {"5:25: there is no type script; there are info, disk, file, size, files, process, cpu, "
          "tcp, hash, log"}},
        {front + "{name: a, type: hash, path: /x, digest: 12x}\n",
         {"5:49: digest must be a CRC-32 in decimal, or 32 (MD5), 64 (SHA-256) or 128 (SHA-512) "
          "hexadecimal digits"}},
        {front + "{name: a, type: log, path: /x, pattern: y}\n",
         {"5:25: log checks need the key state, a folder for their positions"}},
        {front +
             "{name: a, type: info}\n      - {name: a, type: cpu}\n      - {name: b, type: info}\n",
         {"6:16: the module has a check a already",
          "7:16: a check of this type must have one name everywhere, here a"}},
        {front + "{name: a, type: info}\n  n: {timeout: 2s, checks: [{name: a, type: cpu}]}\n",
         {"6:36: a is another check in another module"}},
    };
    test::TempDir dir;
    for (const Case& one : cases) {
        EXPECT_EQ(MistakesIn(dir, one.text, nullptr), one.mistakes) << one.text;
    }
    // In the words of the library.
    const Lines noYaml = MistakesIn(dir, "hosts: h\nmodules: {\n", nullptr);
    ASSERT_EQ(noYaml.size(), 1U);
    EXPECT_TRUE(noYaml[0].starts_with("3:1: ")) << noYaml[0];
}

TEST(ExporterConfig, ShowsWhatIsInForceAndReadsItBack) {
    test::TempDir dir;
    ExporterConfig config, again;
    const std::string text =
        "hosts: list\nstate: s\ndefaults: {timeout: 1m30s, password_file: p}\nmodules:\n"
        "  m:\n    timeout: 500ms\n    checks:\n"
        "      - {name: l, type: log, path: \"/a: b\", pattern: \"'#\"}\n"
        "      - {name: f, type: files, path: /x}\n";
    ASSERT_EQ(MistakesIn(dir, text, &config), Lines());
    const std::string shown = ConfigAsYaml(config);
    EXPECT_NE(shown.find("hosts: " + dir.Path() + "/list\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("timeout: 1m30s\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("mask: \"*\"\n"), std::string::npos) << shown;
    ASSERT_EQ(MistakesIn(dir, shown, &again), Lines());
    EXPECT_EQ(ConfigAsYaml(again), shown);
    EXPECT_EQ(again.modules[0].checks, config.modules[0].checks);
    EXPECT_EQ(again.FindModule("m")->timeout, std::chrono::milliseconds(500));
}

TEST(WebConfig, TellsEveryMistakeWithItsPlace) {
    const std::string tls = "tls_server_config:\n  cert_file: c\n  key_file: k\n";
    struct Case {
        std::string text;
        Lines mistakes;
    } cases[] = {
        {"", {}},
        {tls + "http_server_config: {http2: true}\n", {}},
        {"tls_server_config: {cert_file: c}\nusers: {}\n",
         {"1:20: tls_server_config needs key_file", "2:1: the web configuration has no key users"}},
        {tls + "  min_version: TLS11\n  client_auth_type: RequireAnyClientCert\n",
         {"5:21: client_auth_type must be NoClientCert, VerifyClientCertIfGiven or "
          "RequireAndVerifyClientCert",
          "4:16: min_version must be TLS12 or TLS13"}},
        {tls + "  client_ca_file: x\n",
         {"2:3: client_auth_type and client_ca_file need each other"}},
        {"http_server_config: {headers: {Server: x}}\n", {"1:32: headers has no key Server"}},
        {"basic_auth_users:\n  a: $2y$10$short\n",
         {"2:6: the password of a must be a bcrypt hash, as htpasswd -B makes it"}},
    };
    test::TempDir dir;
    for (const Case& one : cases) {
        WebConfig config;
        Lines mistakes;
        std::string path = dir.Write("web.yml", one.text);
        EXPECT_EQ(ReadWebConfig(path, config, mistakes), one.mistakes.empty());
        for (std::string& line : mistakes) line.erase(0, path.size() + 1);
        EXPECT_EQ(mistakes, one.mistakes) << one.text;
    }
}

}  // namespace
}  // namespace zot::exporter
