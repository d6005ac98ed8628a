// The exporter as a program: its command line, its threads, and the signals that it obeys.
#pragma once

namespace zot::exporter {

// Runs until SIGTERM or SIGINT, or checks the configuration. Returns the exit status: 0, 1 when the
// configuration is bad or the start fails, 2 for wrong usage.
int RunExporter(int argc, const char* const* argv);

}  // namespace zot::exporter
