#include "sim/machine/app_bundle.h"

#include <filesystem>
#include <system_error>

namespace brisko::vmac {
namespace {

namespace fs = std::filesystem;

fs::path home(const std::string& root) { return root + "/Applications/Brisko.app"; }
fs::path elsewhere(const std::string& root) { return root + "/Users/Shared/Brisko.app"; }

bool isThere(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

bool succeeded(const std::error_code& error, std::string& reason) {
  if (error) reason = "the app cannot be changed: " + error.message();
  return !error;
}

bool mustBeThere(const std::string& root, std::string& reason) {
  if (isThere(home(root))) return true;
  reason = "there is no app in the Applications folder";
  return false;
}

bool rename(const fs::path& from, const fs::path& to, std::string& reason) {
  std::error_code error;
  fs::create_directories(to.parent_path(), error);
  // An app that was moved there earlier is replaced.
  if (!error) fs::remove_all(to, error);
  if (!error) fs::rename(from, to, error);
  return succeeded(error, reason);
}

}  // namespace

bool deleteApp(const std::string& root, std::string& reason) {
  if (!mustBeThere(root, reason)) return false;
  std::error_code error;
  fs::remove_all(home(root), error);
  return succeeded(error, reason);
}

bool moveApp(const std::string& root, std::string& reason) {
  return mustBeThere(root, reason) && rename(home(root), elsewhere(root), reason);
}

bool restoreApp(const std::string& root, std::string& reason) {
  if (isThere(home(root))) {
    reason = "the app is in the Applications folder already";
    return false;
  }
  if (isThere(elsewhere(root))) return rename(elsewhere(root), home(root), reason);
  std::error_code error;
  fs::create_directories(home(root), error);
  return succeeded(error, reason);
}

}  // namespace brisko::vmac
