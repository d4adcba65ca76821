#include "exec/user_rights.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

namespace runlet {
namespace {

// What applyUserRights writes when it fails, with an error left over from before.
std::string failure(AdapterContext* context) {
  testing::internal::CaptureStderr();
  errno = EIO;
  EXPECT_FALSE(applyUserRights(context));
  return testing::internal::GetCapturedStderr();
}

TEST(UserRights, GiveTheirOwnReasonForAMissingGroup) {
  AdapterContext context;
  context.uid = static_cast<std::int32_t>(getuid());
  EXPECT_EQ(failure(&context), "Cannot set gid -1: No such group");
}

TEST(UserRights, ChangeNothingOfTheContextOnFailure) {
  AdapterContext context;
  context.gid = static_cast<std::int32_t>(getgid());
  EXPECT_EQ(failure(&context), "Missing user name");
  EXPECT_EQ(context.uid, -1);
  EXPECT_EQ(context.gid, static_cast<std::int32_t>(getgid()));
}

}  // namespace
}  // namespace runlet
