#include "WebServer.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Encoding.h"

namespace login {
namespace {

constexpr const char* kHosts[] = {"SERVICE", "PROXY", "BASIC_PROXY", "DIGEST_PROXY",
                                  "NEGOTIATE_PROXY"};

void WriteUsers(const std::string& folder, const WebServer::Users& users) {
  std::ofstream basic(folder + "/basic.users");
  std::ofstream digest(folder + "/digest.users");
  for (const auto& [name, password] : users) {
    // A colon ends the name in these files, and in Basic.
    if (name.find(':') != std::string::npos) continue;
    basic << name << ":{SHA}" << Base64(Hash(EVP_sha1(), password)) << "\n";
    for (const std::string realm : {"service", "proxy"})
      digest << name << ":" << realm << ":"
             << Hex(Hash(EVP_md5(), name + ":" + realm + ":" + password)) << "\n";
  }
}

}  // namespace

WebServer::WebServer(const std::string& folder, const Realm& realm, const Users& users,
                     const Backends& backends)
    : m_folder(folder) {
  WriteUsers(folder, users);
  std::map<std::string, std::string> variables =
      realm.Client(Realm::View::kCorrect, folder + "/no-cache");
  variables["KRB5RCACHENAME"] = "none:";
  variables["FOLDER"] = folder;
  variables["MODULES"] = "/usr/lib/apache2/modules";
  variables["KEYTAB"] = realm.Keytab();
  variables["WRONG_KEYTAB"] = realm.WrongKeytab();
  variables["OLD_KEYTAB"] = realm.OldKeytab();
  variables["BACKEND"] = std::to_string(backends.test);
  variables["PROVIDER"] = std::to_string(backends.provider);
  variables["TLS"] = std::to_string(backends.tls);
  // A server that root has started reads its files as another user.
  namespace fs = std::filesystem;
  fs::permissions(folder, fs::perms{0755});
  for (const std::string& keys : {realm.Keytab(), realm.OldKeytab(), realm.WrongKeytab()})
    fs::permissions(keys, fs::perms{0644});

  for (const char* const host : kHosts) variables[host] = std::to_string(m_ports[host].Port());
  m_process = std::make_unique<ServerProcess>(
      std::vector<std::string>{"/usr/sbin/apache2", "-f", LOG_IN_FOLDER "/httpd.conf",
                               "-DFOREGROUND"},
      variables, folder + "/httpd.output");
  if (!m_process->Await([&] { return !FileText(folder + "/httpd.pid").empty(); }))
    throw std::runtime_error("the web server does not start: " +
                             FileText(folder + "/httpd.output"));
}

std::vector<std::string> WebServer::Log(const std::string& name, const std::string& text,
                                        std::size_t count) const {
  std::vector<std::string> lines;
  for (int attempt = 0; attempt < 100; ++attempt) {
    lines.clear();
    std::istringstream log(FileText(m_folder + "/" + name + ".log"));
    for (std::string line; std::getline(log, line);)
      if (line.find(text) != std::string::npos) lines.push_back(line);
    if (lines.size() >= count) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return lines;
}

}  // namespace login
