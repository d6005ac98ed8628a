// The exporter as Prometheus and an administrator use it: the real one asks real agents.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "exporter/listen_address.h"
#include "tests/docs/pages.h"
#include "tests/support/agent_process.h"
#include "tests/support/exporter_process.h"
#include "tests/support/loopback.h"

namespace zot::test {
namespace {

const std::string kBase =
    "hosts: hosts\nstate: .\nmodules:\n"
    "  base: {timeout: 20s, checks: [{name: agent, type: info}, {name: root, type: disk, path: "
    "/}]}\n";

// The value of a sample; empty when there is none.
std::string Value(const std::string& metrics, const std::string& sample) {
    size_t at = ("\n" + metrics).find("\n" + sample + " ");
    if (at == std::string::npos) return "";
    at += sample.size() + 1;
    return metrics.substr(at, metrics.find('\n', at) - at);
}

// A line of the inventory for an agent, with its password in the folder.
std::string Line(const TempDir& dir, const std::string& name, int port,
                 const std::string& password) {
    return name + ":" + std::to_string(port) +
           " addr=127.0.0.1 password=" + dir.Write(name + ".password", password + "\n") + "\n";
}

// What has no HELP and TYPE of its own, or comes twice.
std::string FaultsOf(const std::string& metrics) {
    std::string faults;
    Names samples = Found(metrics, "^([a-z_]+(\\{[^}]*\\})?) [^ ]+$");
    for (const std::string& sample : samples) {
        if (samples.count(sample) != 1) faults += sample + " comes twice\n";
        std::string name = sample.substr(0, sample.find('{'));
        for (const char* line : {"# HELP ", "# TYPE "}) {
            if (Count(metrics, line + name + " ") != 1) faults += line + name + "\n";
        }
    }
    return samples.empty() ? "no samples\n" : faults;
}

TEST(Exporter, EveryKindOfCheckGivesItsMetrics) {
    TempDir dir;
    const std::string log = dir.Write("shop.log", "old error\n");
    dir.Write("digits", "123456789");
    std::string cpu = dir.Write("cpu", "#!/bin/sh\necho 12.5\n");
    std::filesystem::permissions(cpu, std::filesystem::perms::owner_all);
    AgentProcess agent({.settings = "cpuusagescript=" + cpu +
                                    "\nproclistscript=" ZOT_SOURCE_DIR
                                    "/scripts/zot_proclist.sh\n"});
    const std::string port = std::to_string(agent.Port());
    const std::string path = dir.Path();
    ExporterProcess exporter(
        Line(dir, "web1", agent.Port(), agent.Target().password),
        kBase +
            "  all:\n    timeout: 20s\n    checks:\n      - {name: agent, type: info}\n"
            "      - {name: log, type: log, path: " +
            log +
            ", pattern: error}\n"
            "      - {name: file, type: file, path: " +
            path +
            "/digits}\n"
            "      - {name: gone, type: file, path: " +
            path +
            "/gone}\n"
            "      - {name: size, type: size, path: " +
            path +
            "}\n"
            "      - {name: files, type: files, path: " +
            path +
            ", mask: 'dig*'}\n"
            "      - {name: me, type: process, process: " +
            agent.ConfigPath() +
            "}\n"
            "      - {name: cpu, type: cpu}\n"
            "      - {name: tcp, type: tcp, host: 127.0.0.1, port: " +
            port +
            "}\n"
            "      - {name: same, type: hash, path: " +
            path +
            "/digits, digest: 25F9E794323B453885F5181F1B624D0B}\n"
            "      - {name: other, type: hash, path: " +
            path + "/digits, digest: '1'}\n");
    const std::string first = exporter.Get("/probe?target=web1&module=base,all");
    EXPECT_TRUE(first.ends_with("\n200\n")) << first;
    EXPECT_EQ(FaultsOf(first), "");
    const std::string logLabels = "{check=\"log\",path=\"" + log + "\"}";
    const std::string file = "{check=\"file\",path=\"" + path + "/digits\"}";
    EXPECT_EQ(Value(first, "zot_log_matches_total" + logLabels), "0");
    EXPECT_EQ(Value(first, "probe_success"), "0");
    EXPECT_EQ(Value(first, "probe_failure_info{reason=\"agent_code\"}"), "1");
    EXPECT_EQ(Value(first, "zot_check_success{check=\"gone\"}"), "0");
    EXPECT_EQ(Value(first, "zot_check_success{check=\"agent\"}"), "1");
    EXPECT_EQ(Value(first, "zot_file_size_bytes" + file), "9");
    struct stat status = {};
    ASSERT_EQ(stat((path + "/digits").c_str(), &status), 0);
    EXPECT_EQ(std::stod(Value(first, "zot_file_modified_timestamp_seconds" + file)),
              double(status.st_mtime));
    EXPECT_EQ(Value(first, "zot_files{check=\"files\",path=\"" + path + "\",mask=\"dig*\"}"), "1");
    EXPECT_EQ(Value(first, "zot_processes{check=\"me\",name=\"" + agent.ConfigPath() + "\"}"), "1");
    EXPECT_EQ(Value(first, "zot_cpu_usage_ratio{check=\"cpu\"}"), "0.125");
    EXPECT_EQ(Value(first, "zot_file_unchanged{check=\"same\",path=\"" + path + "/digits\"}"), "1");
    EXPECT_EQ(Value(first, "zot_file_unchanged{check=\"other\",path=\"" + path + "/digits\"}"),
              "0");
    for (const char* there :
         {"zot_agent_connections_total", "zot_filesystem_avail_bytes{check=\"root\",path=\"/\"}"}) {
        EXPECT_NE(Value(first, there), "") << there;
    }
    EXPECT_EQ(
        Found(first,
              "^(zot_agent_info)\\{hostname=\"[^\"]+\",system=\"[^\"]+\",version=\"1.36\"\\} 1$")
            .size(),
        1U);
    // Two servers that scrape see the same new lines.
    std::ofstream(log, std::ios::app) << "error 1\nfine\nerror 2\n";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Value(exporter.Get("/probe?target=web1&module=all"),
                        "zot_log_matches_total" + logLabels),
                  "2");
    }
    EXPECT_NE(exporter.Get("/probe?target=web1&module=all&debug=true")
                  .find("\n  gone: agent_code after "),
              std::string::npos);
    const std::string own = exporter.Get("/metrics");
    EXPECT_EQ(Value(own, "zot_exporter_probes_total"), "4");
    EXPECT_EQ(Value(own, "zot_exporter_probe_failures_total{reason=\"agent_code\"}"), "4");
    EXPECT_EQ(Value(own, "zot_exporter_probe_duration_seconds_bucket{le=\"+Inf\"}"), "4");
    EXPECT_NE(exporter.Get("/host?name=web1").find("zot_cpu_usage_ratio"), std::string::npos);
    EXPECT_EQ(exporter.Stop(), 0);
}

TEST(Exporter, TellsWhyAHostGaveNothing) {
    TempDir dir;
    AgentProcess agent;
    Loopback silent(SOCK_STREAM, 16), nobody(SOCK_STREAM);
    ExporterProcess exporter(Line(dir, "wrong", agent.Port(), "another") +
                                 Line(dir, "silent", silent.Port(), "x") +
                                 Line(dir, "nobody", nobody.Port(), "x") +
                                 "lost:9 addr=127.0.0.1 password=/no/such/file\nnowhere.invalid\n",
                             kBase);
    struct Case {
        const char* host;
        const char* reason;
    } cases[] = {{"wrong", "closed"},
                 {"silent", "timeout"},
                 {"nobody", "connect_refused"},
                 {"lost", "local"},
                 {"nowhere.invalid", "resolve"}};
    for (const Case& one : cases) {
        const std::string reply = exporter.Get(std::string("/probe?module=base&target=") + one.host,
                                               "-H 'X-Prometheus-Scrape-Timeout-Seconds: 1.5'");
        EXPECT_TRUE(reply.ends_with("\n200\n")) << reply;
        EXPECT_EQ(FaultsOf(reply), "");
        EXPECT_EQ(Value(reply, "probe_success"), "0") << one.host;
        EXPECT_EQ(Value(reply, std::string("probe_failure_info{reason=\"") + one.reason + "\"}"),
                  "1")
            << one.host << reply;
        EXPECT_EQ(Value(reply, "zot_filesystem_size_bytes{check=\"root\",path=\"/\"}"), "");
        EXPECT_LT(std::stod(Value(reply, "probe_duration_seconds")), 1.5) << one.host;
    }
    const std::string page = exporter.Get("/?state=failed");
    for (const Case& one : cases)
        EXPECT_NE(page.find(std::string(one.reason) + ": "), std::string::npos);
}

TEST(Exporter, WrongRequestsReachNoHost) {
    Loopback host(SOCK_STREAM, 16);
    TempDir dir;
    ExporterProcess exporter(Line(dir, "web1", host.Port(), "x") + "web2 groups=a,b\n", kBase);
    struct Case {
        const char* path;
        const char* options;
        const char* end;  // of body and status
    } cases[] = {
        {"/probe?target=web1", "", "module=NAME\n400\n"},
        {"/probe?target=127.0.0.1&module=base", "", "inventory\n400\n"},
        {"/probe?target=web1&module=base&module=base", "", "twice\n400\n"},
        {"/probe?target=web1%00&module=base", "", "inventory\n400\n"},
        {"/probe?target=web1&module=base", "-X POST", "not this way\n405\n"},
        {"/-/reload", "", "not this way\n405\n"},
        {"/-/reload", "-X PUT -d x=y", "reloaded\n200\n"},
        {"/-/healthy", "", "healthy\n200\n"},
        {"/-/healthy", "-I", "\r\n\r\n200\n"},
        {"/no/such", "", "nothing here\n404\n"},
        {"/host?name=web3", "", "inventory\n404\n"},
        {"/targets", "",
         "{\"labels\":{\"__meta_zot_group\":\"a\",\"__meta_zot_groups\":\",a,b,\"},"
         "\"targets\":[\"web2\"]}]\n200\n"},
    };
    for (const Case& one : cases) {
        const std::string reply = exporter.Get(one.path, one.options);
        EXPECT_TRUE(reply.ends_with(one.end)) << one.path << "\n" << reply;
    }
    timeval none = {0, 1000};
    setsockopt(host.Descriptor(), SOL_SOCKET, SO_RCVTIMEO, &none, sizeof none);
    EXPECT_FALSE(host.Accept());
}

TEST(Exporter, ReloadsWholeOrNotAtAll) {
    ExporterProcess exporter("web1\n", kBase);
    auto good = [&] {
        return Value(exporter.Get("/metrics"), "zot_exporter_config_last_reload_successful");
    };
    exporter.Dir().Write("exporter.yml",
                         "hosts: hosts\nmodules: {m: {checks: [{name: x, type: y}]}}\n");
    EXPECT_EQ(
        Found(exporter.Get("/-/reload", "-X POST"), "(exporter.yml:2:40: there is no type y|^500$)")
            .size(),
        2U);
    EXPECT_EQ(good(), "0");
    EXPECT_NE(exporter.Get("/config").find("base:"), std::string::npos);
    exporter.Dir().Write("exporter.yml", kBase + "  more: {checks: [{name: cpu, type: cpu}]}\n");
    exporter.Dir().Write("hosts", "web1\nweb2\n");
    kill(exporter.Pid(), SIGHUP);
    EXPECT_TRUE(WaitUntil([&] { return good() == "1"; }));
    EXPECT_NE(exporter.Get("/config").find("more:"), std::string::npos);
    EXPECT_NE(exporter.Get("/targets").find("web2"), std::string::npos);
    const std::string check =
        ZOT_BUILD_DIR "/zot-exporter --config.check --config.file=" + exporter.Dir().Path();
    EXPECT_EQ(OutputOf(check + "/exporter.yml; echo $?"),
              exporter.Dir().Path() + "/exporter.yml: good, 2 hosts, 2 modules\n0\n");
    EXPECT_TRUE(OutputOf(check + "/none.yml; echo $?").ends_with("No such file or directory\n1\n"));
}

// A certificate with its key, signed by another one or by itself; its files lie in the folder.
void MakeCertificate(const TempDir& dir, const std::string& name, const std::string& signer = "") {
    std::string command = "cd " + dir.Path() +
                          " && openssl req -x509 -newkey ec -pkeyopt "
                          "ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=" +
                          name + " -addext subjectAltName=IP:127.0.0.1 -keyout " + name +
                          ".key -out " + name + ".pem";
    if (!signer.empty()) command += " -CA " + signer + ".pem -CAkey " + signer + ".key";
    const std::string output = OutputOf(command);
    ASSERT_NE(ReadFile(dir / (name + ".pem")), "") << output;
}

TEST(Exporter, ProtectsItsPort) {
    TempDir dir;
    for (const char* name : {"ca", "other"}) MakeCertificate(dir, name);
    MakeCertificate(dir, "server", "ca");
    MakeCertificate(dir, "anna", "ca");
    MakeCertificate(dir, "eve", "other");
    const std::string hash = crypt("secret", "$2b$04$abcdefghijklmnopqrstuu");
    ASSERT_EQ(hash.size(), 60U);
    const std::string tls = "tls_server_config:\n  cert_file: server.pem\n  key_file: server.key\n";
    const std::string users = "basic_auth_users: {anna: " + hash + "}\n";
    const std::string web = dir.Write(
        "web.yml",
        tls + "  client_ca_file: ca.pem\n  client_auth_type: RequireAndVerifyClientCert\n" +
            "http_server_config: {headers: {X-Frame-Options: deny}}\n" + users);
    ExporterProcess exporter("web1\n", kBase, "--web.config.file=" + web);
    auto get = [&](const std::string& options, const std::string& path = "/-/healthy") {
        return exporter.Get(path, "--cacert " + (dir / "ca.pem") + " " + options);
    };
    auto with = [&](const std::string& name) {
        return "--cert " + (dir / (name + ".pem")) + " --key " + (dir / (name + ".key")) + " ";
    };
    EXPECT_EQ(get(with("anna") + "-u anna:secret"), "healthy\n200\n");
    EXPECT_EQ(get(with("anna") + "-u anna:secret"), "healthy\n200\n");  // from memory
    EXPECT_NE(get(with("anna") + "-i -u anna:secret").find("\r\nX-Frame-Options: deny\r\n"),
              std::string::npos);
    for (const char* wrong :
         {"", "-u anna:secreT", "-u anna:", "-u eve:secret", "-H 'Authorization: Basic ='"}) {
        EXPECT_TRUE(get(with("anna") + wrong).ends_with("\n401\n")) << wrong;
    }
    for (const std::string& stranger : {std::string(), with("eve")}) {
        EXPECT_TRUE(get(stranger + "-u anna:secret").ends_with("\n403\n")) << stranger;
    }
    EXPECT_EQ(get(with("anna") + "-u anna:secret --tls-max 1.1"), "000\n");
    // Users and the certificate change with a reload; a file with mistakes changes nothing.
    MakeCertificate(dir, "server", "ca");
    dir.Write("web.yml", tls + "basic_auth_users: {anna: secret}\n");
    const std::string refused = get(with("anna") + "-u anna:secret -X POST", "/-/reload");
    EXPECT_NE(refused.find("web.yml:4:26: the password of anna must be a bcrypt hash"),
              std::string::npos)
        << refused;
    EXPECT_EQ(get(with("anna") + "-u anna:secret"), "healthy\n200\n");
    std::string before = OutputOf("openssl x509 -noout -fingerprint -in " + (dir / "server.pem"));
    auto served = [&] {
        return OutputOf("openssl s_client -connect 127.0.0.1:" + std::to_string(exporter.Port()) +
                        " </dev/null 2>&1 | openssl x509 -noout -fingerprint");
    };
    dir.Write("web.yml", tls + users);
    exporter.Dir().Write("exporter.yml", "hosts: hosts\n");
    EXPECT_TRUE(get(with("anna") + "-u anna:secret -X POST", "/-/reload").ends_with("\n500\n"));
    EXPECT_EQ(served().find(before), std::string::npos);
    exporter.Dir().Write("exporter.yml", kBase);
    dir.Write("web.yml", tls);
    EXPECT_EQ(get(with("anna") + "-u anna:secret -X POST", "/-/reload"), "reloaded\n200\n");
    EXPECT_EQ(get(with("anna")), "healthy\n200\n");
    EXPECT_NE(served().find(before), std::string::npos);
}

TEST(Exporter, ListensAtAnAddressOfIPv6) {
    const std::string address = "[::1]:0";
    std::string bound, error;
    if (!exporter::ListenAt(address, bound, error)) {
        GTEST_SKIP() << "this machine has no loopback address of IPv6: " << error;
    }
    ExporterProcess exporter("web1\n", kBase, "", address);
    EXPECT_TRUE(exporter.Url().starts_with("http://[::1]:")) << exporter.Url();
    EXPECT_EQ(exporter.Get("/-/healthy"), "healthy\n200\n");
}

TEST(Exporter, NeitherHangingHostsNorIdleConnectionsDelayOthers) {
    constexpr int kHosts = 200, kIdle = 1000;
    RaiseDescriptorLimit();
    TempDir dir;
    AgentProcess agent;
    std::vector<std::unique_ptr<Loopback>> silent;
    std::string hosts = Line(dir, "good", agent.Port(), agent.Target().password);
    for (int i = 1; i <= kHosts; ++i) {
        silent.push_back(std::make_unique<Loopback>(SOCK_STREAM, 16));
        hosts += "h" + std::to_string(i) + ":" + std::to_string(silent.back()->Port()) +
                 " addr=127.0.0.1\n";
    }
    ExporterProcess exporter(hosts, kBase);
    std::vector<UniqueFd> open;
    for (int i = 0; i < kIdle; ++i) open.push_back(ConnectTo(exporter.Port()));
    // Each asks for a host that hangs, and does not wait.
    for (int i = 1; i <= kHosts; ++i) {
        std::string request =
            "GET /probe?module=base&target=h" + std::to_string(i) + " HTTP/1.1\r\nHost: x\r\n\r\n";
        open.push_back(ConnectTo(exporter.Port()));
        EXPECT_EQ(send(open.back().Get(), request.data(), request.size(), MSG_NOSIGNAL),
                  ssize_t(request.size()));
    }
    EXPECT_TRUE(WaitUntil([&] {
        return Value(exporter.Get("/metrics"), "zot_exporter_running_probes") ==
               std::to_string(kHosts);
    }));
    const std::string reply = exporter.Get("/probe?module=base&target=good");
    EXPECT_EQ(Value(reply, "probe_success"), "1") << reply;
    EXPECT_LT(std::stod(Value(reply, "probe_duration_seconds")), 2);
    EXPECT_GE(std::stoi(Value(exporter.Get("/metrics"), "zot_exporter_open_connections")),
              kIdle + kHosts);
    EXPECT_EQ(exporter.Stop(), 0);
}

}  // namespace
}  // namespace zot::test
