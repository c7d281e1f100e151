#include "connection/EnvironmentSecrets.h"

#include <cstdlib>

#include "base/Secret.h"

namespace {

std::string TakeVariable(const char* name) {
  char* const value = std::getenv(name);
  if (!value) return {};
  std::string taken = value;
  explicit_bzero(value, taken.size());
  unsetenv(name);
  return taken;
}

}  // namespace

EnvironmentSecrets EnvironmentSecrets::Take() {
  EnvironmentSecrets secrets;
  secrets.url = TakeVariable("XMLA_IMPORT_URL");
  secrets.password = TakeVariable("XMLA_IMPORT_PASSWORD");
  secrets.token = TakeVariable("XMLA_IMPORT_TOKEN");
  return secrets;
}

EnvironmentSecrets::~EnvironmentSecrets() {
  for (std::string* const text : {&url, &password, &token}) Erase(*text);
}
