#include "Realm.h"

#include <fstream>
#include <stdexcept>
#include <vector>

#include "support/ChildProcess.h"

namespace login {
namespace {

using Variables = std::map<std::string, std::string>;

void Run(const std::string& program, const std::vector<std::string>& arguments,
         const Variables& environment) {
  const support::ChildResult result = support::RunChild(program, arguments, environment);
  if (result.exitStatus != 0) throw std::runtime_error(program + ": " + result.out + result.err);
}

std::string Section(const std::string& name, const std::vector<std::string>& lines) {
  std::string text = "[" + name + "]\n";
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

/// The part of a KDC's configuration that its tools need.
void WriteTools(const std::string& folder, const std::string& name, const std::string& database) {
  std::ofstream(folder + "/" + name + ".conf")
      << Section("realms", {"REALM.TEST = {", "database_name = " + folder + "/" + database,
                            "key_stash_file = " + folder + "/" + database + ".stash", "}"});
}

}  // namespace

Realm::Realm(const std::string& folder) : m_folder(folder) {
  WriteConfiguration(Configuration(View::kCorrect), View::kCorrect, "");
  CreateDatabase();
  CreateWrongKeytab();
  const std::string address = m_port.Authority();
  WriteConfiguration(Configuration(View::kCorrect), View::kCorrect, address);
  WriteConfiguration(Configuration(View::kOtherRealm), View::kOtherRealm, address);
  WriteConfiguration(Configuration(View::kFastClock), View::kFastClock, m_fastPort.Authority());
  WriteConfiguration(Configuration(View::kKDCIsDown), View::kKDCIsDown, m_closedPort.Authority());
  WriteConfiguration(Configuration(View::kNoKDC), View::kNoKDC, "");
  m_kdc = StartKDC("", address);
  m_fastKDC = StartKDC("+20m", m_fastPort.Authority());
}

std::string Realm::Password(const std::string& user) { return "canary-kdc-" + user; }

std::string Realm::Configuration(View view) const {
  return m_folder + "/client-" + std::to_string(static_cast<int>(view)) + ".conf";
}

Variables Realm::Client(View view, const std::string& cache) const {
  return {{"KRB5_CONFIG", Configuration(view)}, {"KRB5CCNAME", "FILE:" + cache}};
}

Variables Realm::ClientOf(const std::string& kdc, const std::string& cache) const {
  // Without a colon, which separates the names in KRB5_CONFIG.
  const std::string file = m_folder + "/client-of-" + kdc.substr(kdc.rfind(':') + 1) + ".conf";
  WriteConfiguration(file, View::kCorrect, kdc);
  return {{"KRB5_CONFIG", file}, {"KRB5CCNAME", "FILE:" + cache}};
}

Variables Realm::Server(const std::string& name) const {
  return {{"KRB5_CONFIG", Configuration(View::kCorrect)},
          {"KRB5_KDC_PROFILE", m_folder + "/" + name + ".conf"},
          {"KRB5RCACHENAME", "none:"}};
}

void Realm::CreateDatabase() const {
  WriteTools(m_folder, "tools", "database");
  const Variables variables = Server("tools");
  Run("/usr/sbin/kdb5_util", {"create", "-r", "REALM.TEST", "-s", "-P", "master"}, variables);
  const std::string users = "-norandkey -k " + m_folder + "/users ";
  for (const std::string& query :
       {"addprinc -pw " + Password("ann") + " ann", "addprinc -pw " + Password("bob") + " bob",
        "ktadd " + users + "ann bob", std::string("addprinc -randkey HTTP/localhost"),
        "ktadd -norandkey -k " + OldKeytab() + " HTTP/localhost",
        "ktadd -k " + Keytab() + " HTTP/localhost"})
    Run("/usr/sbin/kadmin.local", {"-r", "REALM.TEST", "-q", query}, variables);
}

void Realm::CreateWrongKeytab() const {
  WriteTools(m_folder, "wrong-tools", "wrong-database");
  const Variables variables = Server("wrong-tools");
  Run("/usr/sbin/kdb5_util", {"create", "-r", "REALM.TEST", "-s", "-P", "master"}, variables);
  for (const std::string& query : {std::string("addprinc -randkey HTTP/localhost"),
                                   "ktadd -k " + WrongKeytab() + " HTTP/localhost"})
    Run("/usr/sbin/kadmin.local", {"-r", "REALM.TEST", "-q", query}, variables);
}

void Realm::WriteConfiguration(const std::string& file, View view, const std::string& kdc) {
  std::ofstream(file)
      << Section("libdefaults",
                 {"default_realm = REALM.TEST", "dns_lookup_kdc = false",
                  "dns_lookup_realm = false", "dns_canonicalize_hostname = false", "rdns = false"})
      << Section("realms", {"REALM.TEST = {", kdc.empty() ? "" : "kdc = " + kdc, "}"})
      << Section("domain_realm",
                 {view == View::kOtherRealm ? "localhost = OTHER.TEST" : "localhost = REALM.TEST",
                  "127.0.0.1 = REALM.TEST"});
}

std::unique_ptr<ServerProcess> Realm::StartKDC(const std::string& clock,
                                               const std::string& address) const {
  const std::string name = "kdc" + clock;
  const std::string log = m_folder + "/" + name + ".log";
  Variables variables = Server(name);
  if (!clock.empty()) {
    // The program faketime is not used: it fails if a killed faketime with the same process number
    // has left its semaphore.
    variables["LD_PRELOAD"] = "/usr/$LIB/faketime/libfaketime.so.1";
    variables["FAKETIME"] = clock;
  }
  std::ofstream(m_folder + "/" + name + ".conf")
      << Section("kdcdefaults", {"kdc_listen = " + address, "kdc_tcp_listen = " + address})
      << FileText(m_folder + "/tools.conf") << Section("logging", {"kdc = FILE:" + log});
  auto process = std::make_unique<ServerProcess>(
      std::vector<std::string>{"/usr/sbin/krb5kdc", "-n"}, variables, log + ".output");
  if (!process->Await([&] { return FileText(log).find("commencing") != std::string::npos; }))
    throw std::runtime_error("the KDC does not start: " + FileText(log) +
                             FileText(log + ".output"));
  return process;
}

std::string Realm::LogIn(const std::string& user, const std::string& lifetime) const {
  const std::string cache = m_folder + "/" + user + "-" + lifetime + ".cache";
  Run("/usr/bin/kinit", {"-k", "-t", m_folder + "/users", "-l", lifetime, user},
      Client(View::kCorrect, cache));
  return cache;
}

}  // namespace login
