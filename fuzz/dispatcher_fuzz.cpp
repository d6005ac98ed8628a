// The dispatcher and every handler that a plain request reaches: the input is the request text.
// Scripts, programs, network tests and actions are switched off, because they would do what the
// input says; everything else runs, in a folder of its own.
#include <cstdint>
#include <cstring>
#include <string>

#include "agent/upgrade.h"
#include "commands/command_table.h"
#include "commands/dispatcher.h"
#include "fuzz/scratch.h"

namespace {

using namespace zot;

class Control : public ProcessControl {
  public:
    explicit Control(const AgentSettings& settings) : settings_(settings) {}
    void BeforeLongWork() override {}
    void RequestTerminate() override {}
    void RequestReload() override {}
    void BeginUpgrade(std::string_view params, Reply& reply) override {
        UpgradeGate gate;
        UpgradeTransfer(gate).Begin(params, settings_, reply);
    }

  private:
    const AgentSettings& settings_;
};

struct World : fuzz::Scratch {
    World() : log(logStore) {
        Write("a.log", "one\ntwo error\nthree\n");
        Write("b.log", "four\n\nfive error\n");
        std::filesystem::create_directories("folder/below");
        Write("folder/file", std::string(3000, 'x'));
        std::filesystem::create_symlink("a.log", "link");
    }
    // A request may save settings, so every one starts from the same file.
    void Reset() {
        Write("zot.cfg", "zotpath=" + (*this / "a.log") + "\nport=1\npassword=p\n");
        store.Change([this](AgentSettings& settings) {
            settings.password = "p";
            settings = {};
            SetSwitches(settings);
            VyString(*this / "zot.cfg").CopyToBuffer(settings.configPath, 512);
            settings.tmpDir = Path();
            settings.password = "p";
            settings.allowManage = settings.allowUpdates = true;
            settings.manageAddr = settings.updateAddr = "127.0.0.1";
            return true;
        });
    }
    static void SetSwitches(AgentSettings& settings) {
        for (auto test : {&AgentSettings::testUnc, &AgentSettings::testFolderSize,
                          &AgentSettings::testCountFiles, &AgentSettings::testFileExists,
                          &AgentSettings::testFileCrc, &AgentSettings::testCompareFiles,
                          &AgentSettings::testTextLog}) {
            settings.*test = true;
        }
    }

    SettingsStore store;
    SettingsStore logStore;  // apart: a request may name log files, but not write them
    Log log;
    ConnectionCounters counters;
};

bool LeavesTheFolder(std::string_view text) {
    if (text.find("..") != std::string_view::npos) return true;
    // A path may be at the beginning of a line, or anything in it may be taken for a path.
    for (size_t at = text.find('/'); at != std::string_view::npos; at = text.find('/', at + 1)) {
        if (at == 0 || static_cast<signed char>(text[at - 1]) < 48) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World world;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    if (LeavesTheFolder(text)) return 0;
    world.Reset();
    uint32_t peer = 0;
    std::memcpy(&peer, "\x7f\0\0\1", sizeof peer);
    SettingsSnapshot settings = world.store.Snapshot();
    Control control(*settings);
    RequestContext context = {{}, *settings, world.store, world.counters, control, peer};
    Reply reply;
    bool recognised = Dispatch(text, context, world.log, reply);

    // Every reply begins with one of the status codes on a line of its own.
    std::string_view answer = reply.Text();
    fuzz::Require(answer.size() >= 4 && answer[3] == '\n');
    std::string_view code = reply.Code();
    bool known = false;
    for (std::string_view status : {"200", "300", "301", "302", "500", "501", "502", "600"}) {
        known = known || status == code;
    }
    fuzz::Require(known);
    if (!recognised) fuzz::Require(code == "500" || code == "502");
    return 0;
}
