#include "client/upgrade_transfer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "base/md5.h"

// The agent takes what it receives, at most 1024 bytes at once, first for the module, and checks
// the trailer of 16 bytes by what is left of one receive. It refuses a trailer that is split
// between two as "Wrong CRC". The connection is a stream and shows nothing of the agent's progress,
// so no order of sends keeps the trailer whole in every case. What does:
//
//  - The data go through a small send buffer, so that little of them is under way when the last is
//    handed to the system.
//  - Then a pause in which the agent reads the rest. The trailer follows alone, as one segment, and
//    is all that the agent's next receive finds.
//  - When the pause was too short the trailer joins data still unread and is split only if a
//    border falls within it, which about one in seventy does. The agent then forgets the transfer
//    and is ready for another, so it is repeated, with a longer pause that moves the borders.

namespace zot::client {
namespace {

using std::chrono::milliseconds;

constexpr size_t kPieceSize = 16384;
constexpr int kSendBuffer = 65536;
constexpr int kAttempts = 3;
constexpr milliseconds kFirstPause{250};
constexpr int kPauseGrowth = 4;

void PrepareSocket(int fd) {
    // Best effort, like everything here: the repetition makes up for it.
    int size = kSendBuffer;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

class Transfer {
  public:
    Transfer(const Target& target, std::string sessionKey)
        : target_(target), sessionKey_(std::move(sessionKey)) {}

    bool Begin(size_t size, Answer& answer, std::string& error) {
        std::string text = "UpgradeCode\n" + std::to_string(size) + "\n\r";
        Deadline deadline(target_.timeout);
        return connection_.Open(target_.host, target_.port, deadline, error) &&
               connection_.Send(BuildRequest(target_.password, sessionKey_, text), deadline,
                                error) &&
               Receive(answer, error);
    }

    bool SendModule(std::string_view module, milliseconds pause, const TransferProgress& progress,
                    std::string& error) {
        PrepareSocket(connection_.Fd());
        for (size_t sent = 0; sent < module.size();) {
            std::string_view piece = module.substr(sent, kPieceSize);
            if (!connection_.Send(piece, Deadline(target_.timeout), error)) return false;
            sent += piece.size();
            progress(sent);
        }
        std::this_thread::sleep_for(pause);
        auto digest = Md5Digest(module.data(), module.size());
        std::string trailer =
            Encrypt(sessionKey_, {reinterpret_cast<const char*>(digest.data()), digest.size()});
        return connection_.Send(trailer, Deadline(target_.timeout), error);
    }

    bool Receive(Answer& answer, std::string& error) {
        std::string text;
        if (!connection_.ReceiveReply(sessionKey_, Deadline(target_.timeout), text, error)) {
            return false;
        }
        if (ParseReply(text, answer)) return true;
        error = "not a reply: its text has no status code or no end mark";
        return false;
    }

  private:
    const Target& target_;
    std::string sessionKey_;
    AgentConnection connection_;
};

bool IsSplitTrailer(const Answer& answer) {
    return answer.code == "300" && answer.lines == std::vector<std::string>{"Wrong CRC"};
}

bool TryOnce(const Target& target, std::string_view module, milliseconds pause,
             const TransferProgress& progress, Answer& answer, std::string& error) {
    std::string sessionKey = RandomSessionKey();
    if (sessionKey.empty()) {
        error = "cannot read the system's random source";
        return false;
    }
    Transfer transfer(target, sessionKey);
    if (!transfer.Begin(module.size(), answer, error)) return false;
    if (answer.code != "200") return true;
    std::string receiveError;
    bool sent = transfer.SendModule(module, pause, progress, error);
    // An agent that cannot go on says why and closes, which the sender may notice first.
    if (transfer.Receive(answer, receiveError)) return true;
    if (sent) error = receiveError;
    error = "the transfer was broken off (" + error +
            "); the agent may refuse others until it is restarted (zotq ReloadApp)";
    return false;
}

}  // namespace

bool TransferModule(const Target& target, std::string_view module, const TransferProgress& progress,
                    Answer& answer, std::string& error) {
    milliseconds pause = kFirstPause;
    for (int attempt = 1;; ++attempt) {
        if (!TryOnce(target, module, pause, progress, answer, error)) return false;
        if (!IsSplitTrailer(answer) || attempt == kAttempts) return true;
        pause *= kPauseGrowth;
    }
}

}  // namespace zot::client
