// Metrics in Prometheus' text format: each family once with HELP and TYPE, its samples together,
// numbers so that they read back exactly.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zot::exporter {

struct MetricFamily {
    std::string_view name;
    std::string_view type;  // "gauge", "counter" or "histogram"
    std::string_view help;
};

using Label = std::pair<std::string_view, std::string_view>;

class MetricText {
  public:
    // Adds a sample. A family is known by its address, and comes out where its first sample came.
    void Add(const MetricFamily& family, std::span<const Label> labels, double value);
    void Add(const MetricFamily& family, double value) { Add(family, {}, value); }
    // The same for a name that is the family's with an ending, as histograms have them.
    void AddPart(const MetricFamily& family, std::string_view ending, std::span<const Label> labels,
                 double value);
    std::string Text() const;

  private:
    struct Block {
        const MetricFamily* family;
        std::string samples;
    };
    std::vector<Block> blocks_;
};

// The shortest text that reads back as the same number; "NaN", "+Inf", "-Inf".
std::string MetricNumber(double value);

}  // namespace zot::exporter
