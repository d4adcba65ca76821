#include "exec/user_rights.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "adapter/messages.h"

namespace runlet {
namespace {

// The reason for the last failure, or `otherwise` if it set no error number.
const char* reasonOr(const char* otherwise) {
  return errno != 0 ? std::strerror(errno) : otherwise;
}

// The group has no default and is never looked up, unlike the user: the job must say whose files a
// task may access, so a job without a group does not run.
bool switchGroup(std::int32_t gid) {
  errno = 0;
  if (gid != notGiven && setgid(static_cast<gid_t>(gid)) == 0) return true;
  std::fprintf(stderr, groupRefusedFormat, gid, reasonOr(noGroupReason));
  return false;
}

bool lookUpUser(UserRights* rights) {
  if (rights->userName.empty()) {
    std::fprintf(stderr, missingUserText);
    return false;
  }
  errno = 0;
  const passwd* entry = getpwnam(rights->userName.c_str());
  if (entry == nullptr) {
    std::fprintf(stderr, unknownUserFormat, rights->userName.c_str(), reasonOr(noUserReason));
    return false;
  }
  rights->uid = static_cast<std::int32_t>(entry->pw_uid);
  return true;
}

bool switchUser(std::int32_t uid) {
  errno = 0;
  // A looked-up id may also be -1, which setuid would refuse with another reason.
  if (uid != notGiven && setuid(static_cast<uid_t>(uid)) == 0) return true;
  std::fprintf(stderr, userRefusedFormat, uid, reasonOr(noUserReason));
  return false;
}

}  // namespace

bool takeUserRights(UserRights* rights) {
  // The group first: without the old user's rights it could no longer be changed.
  if (!switchGroup(rights->gid)) return false;
  if (rights->uid == notGiven && !lookUpUser(rights)) return false;
  if (!switchUser(rights->uid)) return false;
  umask(static_cast<mode_t>(rights->umask));
  return true;
}

}  // namespace runlet
