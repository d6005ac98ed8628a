// Threshold ranges as monitoring plugins write them: [@][START:]END. A value outside the range
// alerts; with "@" a value inside does.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zot::client {

class Range {
  public:
    // START is 0 if not given, and "~" for no lower limit; without END there is no upper limit.
    // Nothing when the text is not a range.
    static std::optional<Range> Parse(std::string_view text);

    bool Alerts(double value) const {
        bool inside = value >= start_ && value <= end_;
        return inside == alertInside_;
    }
    // The range in another unit, where one of its own units is `factor`.
    std::string Format(double factor = 1) const;

  private:
    double start_ = 0;
    double end_ = 0;
    bool alertInside_ = false;
};

}  // namespace zot::client
