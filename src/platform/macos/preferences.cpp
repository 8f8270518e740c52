#include "platform/preferences.h"

#include <string>

#include <notify.h>

#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::platform {

std::optional<Value> preference(std::string_view domain, std::string_view key) {
  const Owned<CFPropertyListRef> value(CFPreferencesCopyValue(
      stringOf(key).get(), stringOf(domain).get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  if (!value) return std::nullopt;
  return valueOf(value.get());
}

void setPreference(std::string_view domain, std::string_view key, std::optional<Value> value) {
  const Owned<CFTypeRef> object = value ? objectOf(*value) : Owned<CFTypeRef>();
  CFPreferencesSetValue(stringOf(key).get(), object.get(), stringOf(domain).get(), kCFPreferencesCurrentUser,
                        kCFPreferencesAnyHost);
}

bool synchronizePreferences(std::string_view domain) {
  return CFPreferencesSynchronize(stringOf(domain).get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost) !=
         0;
}

void postNotification(std::string_view name) { notify_post(std::string(name).c_str()); }

}  // namespace brisko::platform
