// Writing a batch record.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tool/record/record.h"
#include "tool/system/files.h"
#include "tool/system/output_place.h"
#include "tool/text/json.h"

namespace runlet_tool {

// Gets a copy of each line.
using Mirror = std::function<void(std::string_view)>;

// Appends events to a record, one write for each. There must be only one writer at a time, which
// the claims of record/store.h ensure.
class RecordWriter {
 public:
  // `id` is that of the record. The mirror may be empty.
  explicit RecordWriter(std::string id, Mirror mirror = {});

  // Creates the file, which must not exist, for the caller alone. Returns 0, or the error number.
  int create(const OutputPlace& place);

  // Continues an existing file, whose last line may be incomplete. Returns 0, or the error number:
  // ESTALE if it is not `file` any more. What is no regular file is not opened.
  int append(const std::string& path, const FileId& file);

  // Each returns 0, or the error number; after a failure, the file is as before, without any line
  // of a session that could not be begun, or, if that fails, too, no other event can follow.
  int beginSession(const Session& session);
  int beginAttempt(const Attempt& attempt);
  // For a task that could not be started, this is the only event of the attempt.
  int endAttempt(const Attempt& attempt);
  int endSession(const Session& session);

 private:
  int put(const Json& event);
  void cut(off_t size);

  std::string id_;
  Mirror mirror_;
  OwnDescriptor file_;
};

}  // namespace runlet_tool
