// zot-exporter: agents for Prometheus.
#include "exporter/exporter_program.h"

int main(int argc, char** argv) { return zot::exporter::RunExporter(argc, argv); }
