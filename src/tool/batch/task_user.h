// Who the tasks run as where no farm server starts them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "adapter/context.h"

namespace runlet_tool {

// Root can become the job's group and user. For anybody else puts the caller's own in place of the
// job's, into `context`, if the job gives a group: without one no job runs, whoever starts it.
//
// Yields what is then not as the job says, for a message: "user 1000 and group 1000, not as the
// job's user 1001 and group 100: only root may switch". Empty when all is.
std::string settleTaskUser(runlet::AdapterContext* context);

// While it lives, files are looked at, made and opened with the rights of the tasks' user and
// group alone, where the caller is root: a folder may belong to that user, and root is not to write
// where links in it lead. `context` has been settled.
class AsTaskUser {
 public:
  explicit AsTaskUser(const runlet::AdapterContext& context);
  ~AsTaskUser();
  AsTaskUser(const AsTaskUser&) = delete;
  AsTaskUser& operator=(const AsTaskUser&) = delete;

  // False when the system does not allow it; the reason is in errno after the construction.
  bool isTaken() const {
    return isTaken_;
  }

 private:
  bool isRoot_;
  gid_t group_;
  std::vector<gid_t> groups_;
  bool isTaken_;
};

}  // namespace runlet_tool
