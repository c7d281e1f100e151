#include "support/KerberosTicket.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <initializer_list>

namespace {

constexpr char kRealm[] = "REALM.TEST";
constexpr std::uint8_t kAES256 = 18;

// The ticket in DER.

std::string Element(int tag, const std::string& content) {
  std::string bytes(1, static_cast<char>(tag));
  if (content.size() > 127) bytes += '\x81';  // a length of one byte follows
  bytes += static_cast<char>(content.size());
  return bytes + content;
}

std::string Field(int number, const std::string& content) {
  return Element(0xA0 + number, content);
}

std::string Number(int value) { return Element(0x02, std::string(1, static_cast<char>(value))); }

std::string Text(const std::string& text) { return Element(0x1B, text); }

std::string Sequence(const std::string& content) { return Element(0x30, content); }

std::string Ticket() {
  const std::string names = Text("HTTP") + Text("localhost");
  const std::string sealed = Element(0x04, std::string(80, 'x'));
  return Element(0x61,
                 Sequence(Field(0, Number(5)) + Field(1, Text(kRealm)) +
                          Field(2, Sequence(Field(0, Number(3)) + Field(1, Sequence(names)))) +
                          Field(3, Sequence(Field(0, Number(kAES256)) + Field(2, sealed)))));
}

// The credentials cache, in MIT Kerberos format 4.

std::string Big(std::uint32_t value, int bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(value >> (8 * bytes));
  return text;
}

std::string Counted(const std::string& data) {
  return Big(static_cast<std::uint32_t>(data.size()), 4) + data;
}

std::string Principal(std::initializer_list<const char*> parts) {
  std::string text = Big(1, 4) + Big(static_cast<std::uint32_t>(parts.size()), 4) + Counted(kRealm);
  for (const char* const part : parts) text += Counted(part);
  return text;
}

std::string Cache() {
  const auto now = static_cast<std::uint32_t>(std::time(nullptr));
  const std::string client = Principal({"someone-else"});
  return "\x05\x04" + Big(0, 2) + client +  //
         client + Principal({"HTTP", "localhost"}) + Big(kAES256, 2) +
         Counted(std::string(32, 'k')) + Big(now - 60, 4) + Big(now - 60, 4) + Big(now + 3600, 4) +
         Big(0, 4) + Big(0, 1) + Big(0, 4) + Big(0, 4) + Big(0, 4) + Counted(Ticket()) +
         Counted("");
}

}  // namespace

KerberosTicket::KerberosTicket() {
  std::string name = std::filesystem::temp_directory_path() / "kerberos-XXXXXX";
  m_folder = mkdtemp(name.data());
  std::ofstream(m_folder + "/cache") << Cache();
  std::ofstream(m_folder + "/krb5.conf")
      << "[libdefaults]\ndefault_realm = " << kRealm
      << "\ndns_lookup_kdc = false\ndns_lookup_realm = false\nrdns = false\n"
         "dns_canonicalize_hostname = false\n[domain_realm]\nlocalhost = "
      << kRealm << "\n";
  setenv("KRB5_CONFIG", (m_folder + "/krb5.conf").c_str(), 1);
  setenv("KRB5CCNAME", ("FILE:" + m_folder + "/cache").c_str(), 1);
}

KerberosTicket::~KerberosTicket() {
  unsetenv("KRB5_CONFIG");
  unsetenv("KRB5CCNAME");
  std::filesystem::remove_all(m_folder);
}
