#include "Session.h"

#include <cstdlib>

#include "Text.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/SUSystemConfig.h"

Session::Session(const ImportLibrary& library, const Connection& connection,
                 std::string logDirectory)
    : m_library(library),
      m_connection(connection),
      m_logDirectory(std::move(logDirectory)),
      m_target(connection.target) {
  if (m_logDirectory.empty()) return;
  SUSystemConfig::GetSystemConfig().SetLogDirectory(Wide(m_logDirectory));
  setenv("OT_XMLA_IMPORT_LOGGING", "1", 1);
}

bool Session::Identify(Messages& messages) {
  if (m_target) return true;
  String errors;
  m_identified = m_library.Identify(m_connection.url, m_connection.user, m_connection.password,
                                    m_identity, errors);
  AddTexts(messages, errors, String());
  if (m_identified) m_target = m_identity.target;
  return m_identified;
}

void Session::LearnIdentity() {
  if (m_identified) return;
  String ignored;
  m_identified = m_library.Identify(m_connection.url, m_connection.user, m_connection.password,
                                    m_identity, ignored);
}

bool Session::IsSapBw() const {
  return m_target == ServerInfo::kSAP_BW || m_target == ServerInfo::kSAP_BW35;
}

std::unique_ptr<OTXMLAImportAPI> Session::Import(Messages& messages, const std::string& logFolder) {
  const std::lock_guard lock(m_connecting);
  try {
    if (!m_logDirectory.empty())
      SUSystemConfig::GetSystemConfig().SetLogDirectory(
          Wide(logFolder.empty() ? m_logDirectory : m_logDirectory + "/" + logFolder));
    std::unique_ptr<OTXMLAImportAPI> import = m_library.CreateImport();
    import->SetupConnInfo(m_connection.url, m_connection.user, m_connection.password,
                          m_target.value(), ServerInfo::kCLIXMLA);
    return import;
  } catch (const ErrorMessage& error) {
    for (std::string& line : Lines(error)) messages.errors.push_back(std::move(line));
    return nullptr;
  }
}

void AddTexts(Messages& messages, const String& errors, const String& warnings) {
  for (std::string& line : Lines(errors)) messages.errors.push_back(std::move(line));
  for (std::string& line : Lines(warnings)) messages.warnings.push_back(std::move(line));
}
