#include "agent/connection.h"

#include <sys/socket.h>

#include "base/own_connections.h"

namespace zot {

void Close(Connection& connection, Log& log) {
    log.WriteLogText(LogKind::kStatus, connection.peer.address,
                     "Session closed, wait for next ..\n");
    log.Flush();
    // A child that is being started may hold a copy of the descriptor.
    shutdown(connection.socket.Get(), SHUT_RDWR);
    connection.socket.Reset();
    ForgetServedConnection(connection.peer.address, connection.peer.port);
    connection.intake.Wipe();  // requests carry passwords and scripts
    connection.mark.Clear();
}

}  // namespace zot
