// Printing reports in the form that was asked for, and telling people how it went.
#pragma once

#include <string>
#include <vector>

#include "client/host_run.h"
#include "client/invocation.h"

namespace zot::client {

class ReportPrinter {
  public:
    // `columns` are the fields of the table where nobody chose others; empty for those that the
    // replies' own table marks.
    ReportPrinter(const Invocation& call, bool many, std::vector<std::string> columns = {});

    // Prints what is printed as it arrives.
    void Arrived(const HostReport& report);
    // Prints the rest, writes the list of failed hosts and returns the status to end with.
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

    const Invocation& call_;
    bool many_;
    std::vector<std::string> columns_;
    Output output_;
    Deadline::Clock::time_point begin_ = Deadline::Clock::now();
};

// Whether these are names of fields that a reply to the command can have, or of those that every
// report has; false with the error text.
bool CheckFields(const std::vector<std::string>& fields, const std::vector<std::string>& known,
                 std::string& error);

}  // namespace zot::client
