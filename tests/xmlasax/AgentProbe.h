#pragma once

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"

/// Makes the agent's protected operations callable.
class AgentProbe : public XmlADiscoverAgentImpl {
 public:
  explicit AgentProbe(const std::string& url, ServerInfo::TargetType target = ServerInfo::kTessera,
                      bool log = false)
      : XmlADiscoverAgentImpl(support::Wide(url), String(), String(), target, ServerInfo::kCLIXMLA,
                              log) {}

  using XmlADiscoverAgentImpl::LogContent;
  using XmlADiscoverAgentImpl::PrepareHttpSizeHeader;
  using XmlADiscoverAgentImpl::PrintXmlContent;
  using XmlADiscoverAgentImpl::ReadCubes;
  using XmlADiscoverAgentImpl::ReadDataSourceInfo;
  using XmlADiscoverAgentImpl::ReadLevelProperties;
  using XmlADiscoverAgentImpl::ReadMeasures;
  using XmlADiscoverAgentImpl::ReadValue;
  using XmlADiscoverAgentImpl::RetrieveSoapFaultString;
  using XmlADiscoverAgentImpl::SendSoapRequest;
  using XmlADiscoverAgentImpl::StartSaxParser;
  using XmlADiscoverAgentImpl::StopSaxParser;
};

/// Returns the text of the ErrorMessage that `action` throws; "no error" if it throws none.
template <class Action>
std::string ErrorOf(Action action) {
  try {
    action();
  } catch (const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    return support::Narrow(text);
  }
  return "no error";
}

/// Returns the number of the ErrorMessage that `action` throws; -1 if it throws none.
template <class Action>
int ErrorNumberOf(Action action) {
  try {
    action();
  } catch (const ErrorMessage& error) {
    return error.GetNumber();
  }
  return -1;
}

/// A URL without a server.
inline constexpr const char* kNobody = "http://127.0.0.1:1/xmla";
