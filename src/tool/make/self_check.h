// Looking at what was made before it is written.
#pragma once

#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// Whether the job file at `path` is loaded as `meant`, except for the template, and each of its
// tasks then has exactly the `words` of the command, expanded, for an argument vector. A single
// word is a template by itself, which may come to any number of words.
//
// `meant` has the words for its `arguments`, with a space in between.
bool arrivesAsMeant(const std::string& path, const runlet::AdapterContext& meant,
                    const std::vector<std::string>& words, Complaint* complaint);

}  // namespace runlet_tool
