#include "connection/Session.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/MessageNumbers.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXExecutionState.h"
#include "base/Text.h"
#include "call/TargetNames.h"
#include "connection/Operation.h"

namespace {

/// True if the file is a log of the caller. The library rejects a file of another user at once.
bool IsOwnLog(const std::string& name) {
  struct stat status {};
  return lstat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

/// The name of a log contains the current second, and a second log with the same name would empty
/// the first. Waits until the name is free. False if the call is interrupted.
bool AwaitFreeLogName(const std::string& directory) {
  const VXExecutionState* const state = VXExecutionState::Current();
  while (!state || !state->IsCancellationRequested()) {
    VXDateTime now;
    VXDateTime::GetCurrDateTime(now);
    const std::string name =
        fmt::format("{}/OT_xmla_{:04}_{:02}_{:02}_{:02}_{:02}_{:02}.log", directory, now.GetYear(),
                    now.GetMonth(), now.GetDay(), now.GetHour(), now.GetMinute(), now.GetSecond());
    if (!IsOwnLog(name)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

/// The texts of the library about the files of its log begin so, and those about the connection do
/// not.
bool IsAboutFile(std::string_view line) { return line.starts_with("Cannot "); }

/// `reason` is the library's text, which may end with advice in parentheses.
std::string UnusableLog(const std::string& directory, bool isOption, std::string reason) {
  reason[0] = 'c';
  if (!reason.ends_with(')'))
    reason += isOption ? "; give another folder" : "; set XMLA_IMPORT_LOG_DIR to another folder";
  return (isOption ? "--log " : "the log folder ") + Listed({directory}) +
         " cannot be used: " + reason;
}

const std::string kTargetMismatch = "[" + std::to_string(kMessageTargetMismatch) + "] ";
const std::string kFailedSapRequest = std::string(kFailedRequest) + "SAP_VARIABLES ";

bool IsSapBwKind(ServerInfo::TargetType target) {
  return target == ServerInfo::kSAP_BW || target == ServerInfo::kSAP_BW35;
}

}  // namespace

Session::Session(const ImportLibrary& library, const Connection& connection,
                 std::string logDirectory)
    : m_library(library),
      m_connection(connection),
      m_logDirectory(std::move(logDirectory)),
      m_hasLogOption(!m_logDirectory.empty()),
      m_target(connection.target) {
  // OT_XMLA_IMPORT_LOGGING also creates one log folder per cube.
  if (m_logDirectory.empty() && std::getenv("OT_XMLA_IMPORT_LOGGING"))
    m_logDirectory = Utf8(SUSystemConfig::GetSystemConfig().GetLogDirectory());
}

bool Session::Identify(Messages& messages) {
  if (m_target) return true;
  if (!m_identified && !AskIdentity(messages)) return false;
  m_target = m_identity.target;
  return true;
}

bool Session::AskIdentity(Messages& messages) {
  Operation operation;
  m_hasAsked = true;
  m_identified = m_library.Identify(m_connection.url, m_connection.user, m_connection.password,
                                    m_identity, operation.errors);
  operation.End(messages);
  return m_identified;
}

void Session::ReadIdentity() {
  if (m_hasAsked) return;
  m_hasAsked = true;
  String ignored;
  m_identified = m_library.Identify(m_connection.url, m_connection.user, m_connection.password,
                                    m_identity, ignored);
}

void Session::ExplainTarget(Messages& messages) {
  const auto identity = [&]() -> std::string {
    ReadIdentity();
    if (!m_identified || m_identity.target == m_target) return {};
    return "identifies itself as " + Listed({Utf8(m_identity.name + L" " + m_identity.version)}) +
           ": leave out " + m_connection.targetSetting + ", or use --target " +
           TargetName(m_identity.target);
  };
  for (std::string& warning : messages.warnings)
    if (warning.starts_with(kTargetMismatch) && warning.find("--target") == std::string::npos)
      if (const std::string text = identity(); !text.empty())
        warning += " The server " + text + ".";
  for (std::string& error : messages.errors)
    if (error.starts_with(kFailedSapRequest) && error.find("--target") == std::string::npos)
      if (const std::string text = identity(); !text.empty())
        error += "; it is only sent to SAP BW, but the server " + text;
}

bool Session::IsSapBw() const { return m_target && IsSapBwKind(*m_target); }

std::unique_ptr<OTXMLAImportAPI> Session::Import(Messages& messages, const std::string& logFolder) {
  const std::lock_guard lock(m_connecting);
  m_hasImport = true;
  try {
    ImportSettings settings = ImportSettings::Current();
    if (!m_logDirectory.empty()) {
      const std::string directory =
          logFolder.empty() ? m_logDirectory : m_logDirectory + "/" + logFolder;
      if (!AwaitFreeLogName(directory)) return nullptr;
      settings.logDirectory = Wide(directory);
    }
    const ImportSettings::Scope scope(settings);
    std::unique_ptr<OTXMLAImportAPI> import = m_library.CreateImport();
    import->SetupConnInfo(m_connection.url, m_connection.user, m_connection.password,
                          m_target.value(), ServerInfo::kCLIXMLA);
    return import;
  } catch (const ErrorMessage& error) {
    for (std::string& line : Lines(error))
      messages.errors.push_back(
          IsAboutFile(line) ? UnusableLog(m_logDirectory, m_hasLogOption, line) : std::move(line));
    return nullptr;
  }
}
