#include "agent/command_line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base/numbers.h"
#include "base/vystring.h"

namespace zot {
namespace {

constexpr int kExitUsage = 1;
constexpr int kMaxPort = 65535;
constexpr char kBadParameter[] = "Error\nInvalid or missed command line parameter";
constexpr char kBadPort[] = "Error\nInvalid port number";

[[noreturn]] void PrintUsage(const char* message) {
    std::printf("%s\n\n", message);
    std::puts(" Usage: zot [-d|-i] [-v|-vd] [-p <port>] <cfg_file>");
    std::puts("  -d        - daemon mode (default)");
    std::puts("  -i        - interactive mode");
    std::puts("  -v        - verbose mode");
    std::puts("  -vd       - verbose debugging mode");
    std::puts("  -p <port> - overrides TCP port number specified in cfg_file");
    std::puts("  cfg_file  - obligatory parameter, path to configuration file\n");
    std::puts(" Examples:");
    std::puts("  zot -i -v -p 1055 /etc/zot/zot.cfg");
    std::puts("  zot -d ~/zot/zot.cfg\n");
    std::exit(kExitUsage);
}

// The arguments in their fixed order; something must follow every option.
class Arguments {
  public:
    Arguments(int count, char** values) : count_(count), values_(values) { RequireMore(); }

    // Takes the next argument if it is this option.
    bool Take(std::string_view option) {
        if (Next() != option) return false;
        Advance();
        return true;
    }
    const char* Next() const { return values_[index_]; }
    void Advance() {
        ++index_;
        RequireMore();
    }

  private:
    void RequireMore() const {
        if (index_ >= count_) PrintUsage(kBadParameter);
    }

    int count_;
    char** values_;
    int index_ = 1;
};

}  // namespace

void ParseCommandLine(int argc, char** argv, AgentSettings& settings) {
    Arguments arguments(argc, argv);
    if (arguments.Take("-i")) {
        settings.interactive = true;
    } else {
        arguments.Take("-d");
    }
    if (arguments.Take("-v")) settings.verbose = true;
    if (arguments.Take("-vd")) settings.verbose = settings.debug = true;
    if (arguments.Take("-p")) {
        settings.port = ToInt(arguments.Next());
        if (settings.port <= 0 || settings.port > kMaxPort) PrintUsage(kBadPort);
        arguments.Advance();
    }
    VyString(arguments.Next()).CopyToBuffer(settings.configPath, sizeof settings.configPath);
}

}  // namespace zot
