#include "Utility/Generic/HTTPClientWrapper.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "connection/ServerFile.h"
#include "connection/Sources.h"

namespace {

String UrlWithoutCredentials(const std::string& text) {
  String url = Wide(text);
  String user;
  String password;
  HTTPClientWrapper::TakeCredentials(url, user, password);
  for (String* const secret : {&user, &password}) Erase(*secret);
  return url;
}

}  // namespace

ExitStatus RunServers(ServersResult& result) {
  ServerFile file = ReadServerFile();
  for (Server& server : file.servers) {
    result.servers.push_back({Wide(server.name), UrlWithoutCredentials(server.values.url)});
    EraseSecrets(server.values);
  }
  if (file.servers.empty())
    result.messages.warnings.push_back("the server file " + Listed({file.name}) +
                                       (file.exists ? " has no servers" : " does not exist") +
                                       "; see xmla-import help servers for an example");
  return ExitStatus::kDone;
}
