#include "exporter/metric_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "client/text.h"

namespace zot::exporter {
namespace {

void AppendLabels(std::string& line, std::span<const Label> labels) {
    char separator = '{';
    for (const auto& [name, value] : labels) {
        line += separator;
        line.append(name).append("=\"");
        for (char c : client::ValidUtf8(value)) {
            if (c == '\n') {
                line += "\\n";
                continue;
            }
            if (c == '"' || c == '\\') line += '\\';
            line += c;
        }
        line += '"';
        separator = ',';
    }
    if (separator == ',') line += '}';
}

}  // namespace

std::string MetricNumber(double value) {
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
    char text[40];
    auto end = std::to_chars(text, text + sizeof text, value);
    return {text, end.ptr};
}

void MetricText::Add(const MetricFamily& family, std::span<const Label> labels, double value) {
    AddPart(family, "", labels, value);
}

void MetricText::AddPart(const MetricFamily& family, std::string_view ending,
                         std::span<const Label> labels, double value) {
    auto block = std::find_if(blocks_.begin(), blocks_.end(),
                              [&](const Block& known) { return known.family == &family; });
    if (block == blocks_.end()) block = blocks_.insert(block, {&family, ""});
    std::string& text = block->samples;
    text.append(family.name).append(ending);
    AppendLabels(text, labels);
    text.append(" ").append(MetricNumber(value)).append("\n");
}

std::string MetricText::Text() const {
    std::string text;
    for (const auto& [family, samples] : blocks_) {
        text += client::Concat({"# HELP ", family->name, " ", family->help, "\n# TYPE ",
                                family->name, " ", family->type, "\n", samples});
    }
    return text;
}

}  // namespace zot::exporter
