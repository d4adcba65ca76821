#include "tool/system/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <charconv>
#include <limits>
#include <system_error>

namespace runlet_tool {
namespace {

bool readId(const std::string& text, std::int32_t* id) {
  std::uint32_t number = 0;
  const char* const textEnd = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), textEnd, number);
  if (error != std::errc() || end != textEnd) return false;
  *id = static_cast<std::int32_t>(number);
  return number != std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

bool findUser(const std::string& user, std::int32_t* uid) {
  const passwd* entry = getpwnam(user.c_str());
  if (entry == nullptr) return readId(user, uid);
  *uid = static_cast<std::int32_t>(entry->pw_uid);
  return true;
}

bool findGroup(const std::string& group, std::int32_t* gid) {
  const ::group* entry = getgrnam(group.c_str());
  if (entry == nullptr) return readId(group, gid);
  *gid = static_cast<std::int32_t>(entry->gr_gid);
  return true;
}

}  // namespace runlet_tool
