// Removing records of batches, with the logs of their tasks.
#pragma once

#include <string>

#include "tool/record/record.h"

namespace runlet_tool {

// Removes the logs that the record in the file `path` names, their folders if they are then empty,
// and at last that file. For root, logs are removed as the user that the tasks ran as: links in
// that user's folders must not make root remove anything else. Logs that are already gone are
// ignored.
//
// Logs of another user than the caller that cannot be removed stay, as that user could prevent it
// forever, and so do those whose folder must not be used (see openOwnFolder): `*remaining` is then
// "2 logs could not be removed: Permission denied", with the first reason, otherwise empty.
//
// Returns why that fails, for a message; the record is then still there, and `*remaining` is
// unspecified. Empty on success. `record` has no `distrust`.
std::string removeBatch(const Record& record, const std::string& path, std::string* remaining);

}  // namespace runlet_tool
