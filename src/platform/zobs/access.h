#pragma once

namespace zobs {

/// The access codes that registrations carry. A member of any other code than public is kept from hosts.
inline constexpr int kPublicAccess = 0;
/// For setting, or replacing: nobody may.
inline constexpr int kNoAccess = 2;

struct Access {
  int get = kPublicAccess;
  int set = kNoAccess;
};

}  // namespace zobs
