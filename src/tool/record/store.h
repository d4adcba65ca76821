// Where batch records are kept, and which process may write to them.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tool/record/record.h"
#include "tool/system/files.h"

namespace runlet_tool {

// The folder of the caller's records, runlet-job in $XDG_STATE_HOME or in ~/.local/state. For root
// it is in the home folder that the user database has for root, whatever the environment says.
// Creates what is missing, for the caller alone.
//
// Returns why there is none, for a message; empty on success. It is refused if it belongs to
// anybody else or others may write to it, or if a link of anybody else but root leads to it;
// root's, also if that applies to a folder above it.
std::string findStateFolder(std::string* folder);

// Creates the folder and those above it, for the caller alone. Returns why that fails, for a
// message; empty on success. Root's are refused as described above.
std::string makeStateFolder(const std::string& folder);

// The name of this process.
ProcessName ownProcess();

// Whether that process is running on this host, in this container.
bool isRunningHere(const ProcessName& name);

// The same, or it is one of another host or container, of which this cannot be found out.
bool mayBeRunning(const ProcessName& name);

// Whether the process of the attempt is running on this host, in this container, as it may after
// its run was killed. False if the attempt has ended.
bool isRunningHere(const Record& record, const Attempt& attempt);

// Why nobody can claim it now, as Claim::complaint() would say; empty if it can be claimed.
std::string complaintAboutClaims(const std::string& stateFolder, const std::string& what);

// When the process began, as in ProcessName; 0 if it has ended.
std::uint64_t processStart(pid_t process);

// A new id, such as "20261122-211530-3f2a": the current date and time in UTC, with the fraction of
// the second in hexadecimal digits. A later id is greater.
std::string newRecordId();

// Whether `id` has the form of such an id, so that it is safe in the name of a file.
bool isRecordId(const std::string& id);

// Removes the claims on it of processes that have ended.
void removeAbandonedClaims(const std::string& stateFolder, const std::string& what);

// When a batch with that id, as isRecordId requires, began: a whole second.
RecordTime timeOfId(const std::string& id);

// The path of the record with that id in the state folder, whether it exists or not.
std::string recordPath(const std::string& stateFolder, const std::string& id);

// Whether the file has a whole line. Nothing has run of a record without one, which a killed writer
// or a power failure leaves. True if the file cannot be read.
bool hasWholeLine(const std::string& path);

// Finds the record that a user means: by its id, by "last" for the latest one that has a line, or
// by the path of a file, which contains a slash or ends in ".jsonl". Returns why there is none, for
// a message; empty on success.
std::string findRecord(const std::string& meant, std::string* path);

// The ids of all records in the state folder, ascending.
std::vector<std::string> recordIds(const std::string& stateFolder);

// Claims what must be used by one process at a time, such as a job's path, during its lifetime.
//
// A claim is a file in the state folder that names the process. It needs no locks, which network
// file systems do not have everywhere. If several processes claim the same thing at the same
// moment, the first of them gets it, by the time and process id in the file's name: it waits up to
// a second until the others have withdrawn. In rare cases all are refused, but never two succeed.
class Claim {
 public:
  // `record` is the path of the record that this process writes. Check complaint() before going on.
  Claim(const std::string& stateFolder, const std::string& what, const std::string& record);
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

  // Why the claim failed, for a message that names the other process; empty if it has succeeded.
  const std::string& complaint() const {
    return complaint_;
  }

  // Whether that is because of another process.
  bool isTaken() const {
    return isTaken_;
  }

  // Whether that is because its file did not fit on the disk.
  bool isDiskFull() const {
    return isDiskFull_;
  }

  // The records of processes that claimed the same thing and were killed. Their tasks may be
  // running.
  const std::vector<std::string>& abandoned() const {
    return abandoned_;
  }

  // The files of their claims, in the same order.
  const std::vector<std::string>& abandonedPaths() const {
    return abandonedPaths_;
  }

  // Removes the claims of these processes.
  void removeAbandoned();

 private:
  void awaitOthers(const std::string& folder, const std::string& beginning);

  std::string path_;
  std::string complaint_;
  bool isTaken_ = false;
  bool isDiskFull_ = false;
  std::vector<std::string> abandoned_;
  std::vector<std::string> abandonedPaths_;
};

}  // namespace runlet_tool
