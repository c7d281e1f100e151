#pragma once

#include <functional>

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXThread.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

class SoapFault;
struct DiscoverRequest;
struct ProviderRules;

/// The discover agent over HTTP. Owns one HTTP client, one request builder, one SAX2 driver, at
/// most one reader thread and, with the import log on, the open log file.
class XmlADiscoverAgentImpl : public XmlADiscoverAgent, public RefCountable {
 public:
  XmlADiscoverAgentImpl(String url, String user, String password, ServerInfo::TargetType target,
                        ServerInfo::CLIType cli, bool log);
  XmlADiscoverAgentImpl(const XmlADiscoverAgentImpl&) = delete;
  XmlADiscoverAgentImpl& operator=(const XmlADiscoverAgentImpl&) = delete;
  /// Stops a running reader and ends the import log with a closing entry.
  ~XmlADiscoverAgentImpl() override;

  void GetDataSourceInfoCatalogs(DataSourceCatalogs& dataSources) override;
  void GetProviderInfomation(std::pair<String, String>& info) override;
  void GetDataSourceInfo(VXStringVector& dataSources) override;
  void GetCatalogs(VXStringVector& catalogs, const String& dataSourceInfo) override;
  void GetCubesOnCatalog(std::vector<OTCube>& cubes, const String& catalog,
                         const String& dataSourceInfo) override;
  void GetVariablesOnCatalogCube(std::vector<RefCnt<XmlACubeVariable>>& variables,
                                 const String& cube, const String& catalog,
                                 const String& dataSourceInfo) override;
  void GetDimensionsOnCatalogCube(std::vector<RefCnt<XmlADimension>>& dimensions,
                                  const String& catalog, const String& cube,
                                  const String& dataSourceInfo) override;
  void FindDefaultHierarchiesOnCatalogCube(DefaultHierarchies& defaults, const String& catalog,
                                           const String& cube,
                                           const String& dataSourceInfo) override;
  void GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& measures, const String& catalog,
                                const String& cube, const String& dataSourceInfo) override;
  void GetHierarchiesOnCatalogCube(std::vector<RefCnt<XmlAHierarchy>>& hierarchies,
                                   const String& catalog, const String& cube,
                                   const String& dataSourceInfo) override;
  void GetLevelsOnCatalogCubeHierarchy(std::vector<RefCnt<XmlALevel>>& levels,
                                       const String& catalog, const String& cube,
                                       RefCnt<XmlAHierarchy> hierarchy,
                                       const String& dataSourceInfo) override;
  void GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember> member, const String& catalog,
                                       const String& cube, const String& hierarchy,
                                       const String& dataSourceInfo) override;
  bool IsAnalysisServices() const override;
  bool IsSAPBW() const override;
  bool IsTamarind() const override;

  void GetProviderName(String& name);
  void GetProviderVersion(String& version);

 protected:
  // Not used by imports, which read a reply once. The host knows these operations by name.
  /// Posts the request and brings the reply's XML declaration into one form. Throws 64203 for a
  /// fault, 46100 for a reply that is no XML, and the HTTP client's text; `response` then holds
  /// what was received.
  void SendSoapRequest(const String& request, String& response);
  /// Reads a whole reply: the last faultcode, and all faultstrings joined.
  void RetrieveSoapFaultString(const String& text, String& faultCode, String& faultString);
  /// Starts the reader thread on a reply, after stopping an earlier one.
  void StartSaxParser(const String& text);
  /// Diagnostic: prints what is left of the reply that is being read to standard output.
  void PrintXmlContent();

  /// Cancels the reader thread, if any, and waits for it.
  void StopSaxParser();
  /// The header lines of every request; despite its name, no size.
  String PrepareHttpSizeHeader() const;
  /// Appends an entry to the import log. `request` and `response` are UTF-8. Only with m_Log on.
  void LogContent(const String& title, const NarrowString& request, const NarrowString& response,
                  const VXDateTime& start, const VXDateTime& sent, const VXDateTime& parsed);

  // Consumers of the reply that the reader thread parses. They append to the list.
  /// DISCOVER_PROPERTIES: `value` gets the Value that follows the property's PropertyName, the last
  /// one if there are several.
  void ReadValue(String& value, const String& propertyName);
  void ReadProviderName(String& name);
  void ReadDataSourceInfo(VXStringVector& dataSources);
  void ReadDataSourceName(VXStringVector& dataSources);
  void ReadCatalogs(VXStringVector& catalogs);
  void ReadCubes(std::vector<OTCube>& cubes);
  void ReadDimensions(std::vector<RefCnt<XmlADimension>>& dimensions);
  void ReadHierarchies(std::vector<RefCnt<XmlAHierarchy>>& hierarchies);
  void ReadLevels(std::vector<RefCnt<XmlALevel>>& levels);
  void ReadLevelProperties(std::vector<RefCnt<XmlALevelProperty>>& properties);
  void ReadMember(XmlAMember& member);
  void ReadMeasures(std::vector<RefCnt<XmlAMeasure>>& measures);
  void ReadVariables(std::vector<RefCnt<XmlACubeVariable>>& variables);

 private:
  const ProviderRules& Rules() const;
  String UrlForLog() const;

  template <class List, class Read>
  void Fill(List& list, const DiscoverRequest& request, Read read);
  void Exchange(const DiscoverRequest& request, const std::function<void()>& consume);
  String Post(const NarrowString& request, const String& subject, NarrowString& reply);
  void ReadReply(NarrowString reply, const String& httpError, const std::function<void()>& consume);
  template <class Text>
  void StartReader(const Text& text, bool (SAX2XmlReadDriver::*parse)(Text, String&));

  RefCnt<SAX2XmlElement> NextElement();
  template <class Add>
  void ReadColumn(const wchar_t* column, Add add);
  template <class Row, class Make>
  void ReadRows(std::vector<RefCnt<Row>>& rows, Make make);

  String m_Url;
  String m_User;
  String m_Pwd;  // never logged
  Heap<HTTPClientWrapper> m_HttpClient;
  Heap<XmlASoapRequest> m_SoapMessage;
  Heap<SAX2XmlReadDriver> m_XmlReaderDriver;
  RefCnt<VXThread> m_Reader;
  String m_SoapParseErrorString;  // written by the reader thread before the element with HasError
  SoapFault* m_Fault = nullptr;   // that watches the reply being read
  ServerInfo::TargetType m_TargetType;
  ServerInfo::CLIType m_CLIType;
  bool m_Log = false;
  Heap<AFile> m_LogFile;
};
