// Where the exporter listens.
#pragma once

#include <string>

#include "base/owners.h"

namespace zot::exporter {

// Opens a listening socket at "127.0.0.1:9965", "[::1]:9965", "localhost:9965" or, for all
// addresses, ":9965"; port 0 chooses one. `bound` becomes the address in the same form with the
// port chosen. No descriptor, with the error text, when the text is none of that or the system
// refuses.
UniqueFd ListenAt(const std::string& text, std::string& bound, std::string& error);

}  // namespace zot::exporter
