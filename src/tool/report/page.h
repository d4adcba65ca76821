// The report of a batch as a page for a browser.
#pragma once

#include <string>

#include "tool/report/overview.h"

namespace runlet_tool {

// A page in HTML that is also well-formed XML, complete in itself: no scripts, and nothing that a
// browser would load. Less than 2 MB, however large the batch is: of very many failures, attempts
// or sessions, it shows a part and says so. Reads the ends of the logs of the failures it shows.
std::string reportPage(const Overview& overview);

}  // namespace runlet_tool
