#pragma once

#include <functional>

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

class ReplyReader;
struct DiscoverRequest;
struct ProviderRules;

/// The discover agent over HTTP. Owns an HTTP client, a request builder, a reply reader with at
/// most one parser thread, and the log file if there is an import log.
class XmlADiscoverAgentImpl : public XmlADiscoverAgent, public RefCountable {
 public:
  XmlADiscoverAgentImpl(String url, String user, String password, ServerInfo::TargetType target,
                        ServerInfo::CLIType cli, bool log);
  XmlADiscoverAgentImpl(const XmlADiscoverAgentImpl&) = delete;
  XmlADiscoverAgentImpl& operator=(const XmlADiscoverAgentImpl&) = delete;
  /// Stops a running parser, overwrites URL and password, and closes the import log with a last
  /// entry.
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
  // The host calls the following four functions by name. The imports do not use them.
  /// Posts a request and normalises the XML declaration of the reply. Throws ErrorMessage like the
  /// rowset functions; `response` then contains the received text.
  void SendSoapRequest(const String& request, String& response);
  /// Reads a whole reply: the last faultcode, and all faultstrings concatenated.
  void RetrieveSoapFaultString(const String& text, String& faultCode, String& faultString);
  /// Starts the parser thread on a reply. Stops an earlier one before.
  void StartSaxParser(const String& text);
  /// Diagnostic: prints the remaining elements of the current reply to standard output.
  void PrintXmlContent();

  /// Cancels the parser thread and waits for it, if there is one.
  void StopSaxParser();
  /// The header lines of every request. They do not contain a size, despite the name.
  String PrepareHttpSizeHeader() const;
  /// Appends an entry to the import log. `request` and `response` are UTF-8. Requires m_Log.
  void LogContent(const String& title, const NarrowString& request, const NarrowString& response,
                  const VXDateTime& start, const VXDateTime& sent, const VXDateTime& parsed);

  // Rowset readers of the reply that the parser thread parses. They append to the list.
  /// DISCOVER_PROPERTIES: sets `value` to the last Value that follows a PropertyName equal to
  /// `propertyName`.
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
  Heap<ReplyReader> m_ReplyReader;
  ServerInfo::TargetType m_TargetType;
  ServerInfo::CLIType m_CLIType;
  bool m_Log = false;
  Heap<AFile> m_LogFile;
};
