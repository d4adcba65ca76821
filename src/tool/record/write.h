// Writing a batch record.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tool/record/record.h"
#include "tool/system/files.h"

namespace runlet_tool {

// Appends events to a record, one write for each. There must be only one writer at a time, which
// the claims of record/store.h ensure.
class RecordWriter {
 public:
  RecordWriter() = default;

  // Creates the file `path`, which must not exist, for the record `id`. `mirror` gets a copy of
  // each line; it may be empty. Returns 0, or the error number.
  int create(const std::string& path, std::string id, std::function<void(std::string_view)> mirror);

  // Continues an existing file, whose last line may be incomplete. Returns 0, or the error number.
  int append(const std::string& path, std::string id, std::function<void(std::string_view)> mirror);

  // Each returns 0, or the error number; after a failure, part of the line may be in the file.
  int beginSession(const Session& session);
  int beginAttempt(const Attempt& attempt);
  // For a task without a process, the only event of the attempt.
  int endAttempt(const Attempt& attempt);
  int endSession(const Session& session);

 private:
  int open(const std::string& path, int flags, std::string id,
           std::function<void(std::string_view)> mirror);
  int put(std::string line);

  OwnDescriptor file_;
  std::string id_;
  std::function<void(std::string_view)> mirror_;
};

}  // namespace runlet_tool
