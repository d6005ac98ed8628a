// The exporter's pages, with a request in the form in which the HTTP library hands it over: a line
// each for method, path, time limit, user and password, then names and values of the query.
#include <algorithm>
#include <cstdint>
#include <future>
#include <string>

#include "client/text.h"
#include "exporter/basic_auth.h"
#include "exporter/probe_url.h"
#include "fuzz/exporter_site.h"

namespace {

using namespace zot;

// What the library keeps ends at a zero.
std::string TakeText(std::string_view& input) { return std::string(fuzz::TakeLine(input)).c_str(); }

exporter::HttpRequest ReadRequest(std::string_view input) {
    exporter::HttpRequest request;
    for (std::string* text : {&request.method, &request.path, &request.scrapeTimeout, &request.user,
                              &request.password}) {
        *text = TakeText(input);
    }
    while (!input.empty()) {
        std::string name = TakeText(input);
        // A name without a value has an empty one.
        request.query.emplace_back(std::move(name), std::string(fuzz::TakeLine(input)));
    }
    return request;
}

void CheckLogin(const exporter::HttpRequest& request) {
    static exporter::BasicAuth auth;
    // Of "secret".
    static const bool ready =
        (auth.SetUsers({{"anna", "$2b$04$abcdefghijklmnopqrstuu2r9OfJnfCsdneAXAGHnS4UpFFP8WIrW"}}),
         true);
    std::promise<bool> decided;
    auth.Check(request, [&](bool good) { decided.set_value(good); });
    fuzz::Require(ready && decided.get_future().get() ==
                               (request.user == "anna" && request.password == "secret"));
}

bool Asks(const exporter::HttpRequest& request, const char* host) {
    return std::count(request.query.begin(), request.query.end(),
                      std::pair<std::string, std::string>("target", host)) == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ExporterSite exporter({.perHost = 4});
    const auto request = ReadRequest({reinterpret_cast<const char*>(data), size});
    // Each takes a millisecond.
    if (!request.user.empty() && request.password.starts_with("secr")) CheckLogin(request);
    const auto limit = exporter::ProbeTimeout(request.scrapeTimeout);
    fuzz::Require(limit.count() > 0 && limit <= std::chrono::hours(24));

    std::promise<exporter::HttpReply> answered;
    exporter.site.Serve(request, [&](exporter::HttpReply reply) {
        answered.set_value(std::move(reply));  // throws when it is the second time
    });
    exporter.engine.Run();
    const exporter::HttpReply reply = answered.get_future().get();
    fuzz::Require(reply.status == 200 || reply.status == 400 || reply.status == 404 ||
                  reply.status == 405);
    // Nothing of a request comes back as more than text, and none but the hosts known is asked.
    if (!reply.type.starts_with("text/html")) {
        fuzz::Require(client::Visible(reply.body, true) == reply.body);
    } else {
        fuzz::Require(std::none_of(reply.body.begin(), reply.body.end(), [](char c) {
            return (c >= 0 && c < ' ' && c != '\n' && c != '\t') || c == 127;
        }));
        fuzz::Require(reply.body.find("<script") == std::string::npos &&
                      reply.body.find("<i>") == std::string::npos);
    }
    if (request.path == "/probe" && reply.status == 200) {
        fuzz::Require(Asks(request, "web1") || Asks(request, "web2"));
    }
    return 0;
}
