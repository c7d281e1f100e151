#pragma once

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"

/// An agent whose inner operations the tests may call.
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

/// The text of the ErrorMessage that `action` throws; "no error" when it throws none.
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

/// The number of the ErrorMessage that `action` throws; -1 when it throws none.
template <class Action>
int ErrorNumberOf(Action action) {
  try {
    action();
  } catch (const ErrorMessage& error) {
    return error.GetNumber();
  }
  return -1;
}

/// A URL where nobody listens.
inline constexpr const char* kNobody = "http://127.0.0.1:1/xmla";
