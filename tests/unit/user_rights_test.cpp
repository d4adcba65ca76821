#include "exec/user_rights.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

namespace runlet {
namespace {

// What takeUserRights writes when it fails, with errno set from before.
std::string failure(UserRights* rights) {
  testing::internal::CaptureStderr();
  errno = EIO;
  EXPECT_FALSE(takeUserRights(rights));
  return testing::internal::GetCapturedStderr();
}

TEST(UserRights, GiveTheirOwnReasonForAMissingGroup) {
  UserRights rights;
  rights.uid = static_cast<std::int32_t>(getuid());
  EXPECT_EQ(failure(&rights), "Cannot set gid -1: No such group");
}

TEST(UserRights, DoNotChangeOnFailure) {
  UserRights rights;
  rights.gid = static_cast<std::int32_t>(getgid());
  EXPECT_EQ(failure(&rights), "Missing user name");
  EXPECT_EQ(rights.uid, -1);
  EXPECT_EQ(rights.gid, static_cast<std::int32_t>(getgid()));
}

}  // namespace
}  // namespace runlet
