// Prints reports in the chosen form, and says how it went.
#pragma once

#include <string>
#include <vector>

#include "client/host_run.h"
#include "client/invocation.h"

namespace zot::client {

class ReportPrinter {
  public:
    // `columns` are the fields of the table unless somebody chose others; empty for those that the
    // replies mark for it.
    ReportPrinter(const Invocation& call, bool many, std::vector<std::string> columns = {});

    // Prints those reports that are printed at once.
    void Arrived(const HostReport& report);
    // Prints the rest, writes the list of failed hosts and returns the exit status.
    int Finish(const std::vector<HostReport>& reports);

  private:
    void PrintTableOf(const std::vector<HostReport>& reports);
    void PrintJson(const std::vector<HostReport>& reports);
    void PrintCsv(const std::vector<HostReport>& reports);
    void PrintRaw(const std::vector<HostReport>& reports);
    void PrintFailures(const std::vector<HostReport>& reports);
    void PrintSummary(const std::vector<HostReport>& reports);
    bool WriteFailed(const std::vector<HostReport>& reports);
    std::vector<std::string> Columns(const std::vector<HostReport>& reports) const;
    bool IsTooWide(const std::vector<HostReport>& reports) const;

    const Invocation& call_;
    bool many_;
    std::vector<std::string> columns_;
    Output output_;
    Deadline::Clock::time_point begin_ = Deadline::Clock::now();
};

// Whether these are names of fields that a reply to the command, or any report, can have; false
// with the error text.
bool CheckFields(const std::vector<std::string>& fields, const std::vector<std::string>& known,
                 std::string& error);

}  // namespace zot::client
