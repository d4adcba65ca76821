#include "tool/batch/task_user.h"

#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "tool/check/access.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::notGiven;

// "user 1001 and group 100"; without the user if it is not given.
std::string idsText(std::int32_t uid, std::int32_t gid) {
  std::string text;
  if (uid != notGiven) text.append("user ").append(std::to_string(uid)).append(" and ");
  return text.append("group ").append(std::to_string(gid));
}

bool switchTo(const AdapterContext& context) {
  return setgroups(0, nullptr) == 0 && setegid(static_cast<gid_t>(context.gid)) == 0 &&
         seteuid(static_cast<uid_t>(context.uid)) == 0;
}

}  // namespace

std::string settleTaskUser(AdapterContext* context) {
  if (geteuid() == 0 || context->gid == notGiven) return "";
  const auto uid = static_cast<std::int32_t>(geteuid());
  const auto gid = static_cast<std::int32_t>(getegid());
  const bool isSame = context->gid == gid && (context->uid == notGiven || context->uid == uid);
  const std::string wanted = idsText(context->uid, context->gid);
  context->uid = uid;
  context->gid = gid;
  if (isSame) return "";
  return idsText(uid, gid) + ", not as the job's " + wanted + ": only root may switch";
}

AsTaskUser::AsTaskUser(const AdapterContext& context)
    : isRoot_(geteuid() == 0),
      group_(getegid()),
      groups_(ownGroups()),
      isTaken_(!isRoot_ || switchTo(context)) {}

AsTaskUser::~AsTaskUser() {
  if (!isRoot_) return;
  const int error = errno;  // of what was done meanwhile
  const bool isBack =
      seteuid(0) == 0 && setegid(group_) == 0 && setgroups(groups_.size(), groups_.data()) == 0;
  if (!isBack) std::abort();  // to go on with other rights than those that it had
  errno = error;
}

}  // namespace runlet_tool
