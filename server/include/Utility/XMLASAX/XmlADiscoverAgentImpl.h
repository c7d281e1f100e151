#pragma once

#include <functional>

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXThread.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

struct LogTitle;

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
  // The exchange.
  /// Posts the request and brings the reply's XML declaration into one form. Throws 64203 for a
  /// SOAP fault and the HTTP client's text; `response` then holds what was received. The rowset
  /// readers' exchange does the same without making a wide text of the reply.
  void SendSoapRequest(const String& request, String& response);
  /// The header lines of every request; of no size, in spite of its name.
  String PrepareHttpSizeHeader() const;
  /// Starts the reader thread on a reply, after stopping an earlier one.
  void StartSaxParser(const String& text);
  /// Cancels the reader thread, if any, and waits for it.
  void StopSaxParser();
  /// Reads DISCOVER_PROPERTIES rows to the end: `value` gets the Value that follows the property's
  /// PropertyName, the last one when there are several.
  void ReadValue(String& value, const String& propertyName);
  /// Reads a whole reply: the last faultcode, and all faultstrings joined.
  void RetrieveSoapFaultString(const String& text, String& faultCode, String& faultString);
  /// Diagnostic: prints what is left of the reply being read on standard output.
  void PrintXmlContent();

  // The import log.
  /// Appends one entry: title, times, request and reply. Only with m_Log on.
  void LogContent(const String& title, const String& request, const String& response,
                  const VXDateTime& start, const VXDateTime& sent, const VXDateTime& parsed);

  // Consumers of a reply, each between StartSaxParser and StopSaxParser.
  void ReadProviderName(String& name);
  void ReadDataSourceInfo(VXStringVector& dataSources);
  void ReadDataSourceName(VXStringVector& dataSources);
  void ReadCatalogs(VXStringVector& catalogs);
  void ReadCubes(std::vector<OTCube>& cubes);
  void ReadDimensions(std::vector<RefCnt<XmlADimension>>& dimensions);
  void ReadHierarchies(std::vector<RefCnt<XmlAHierarchy>>& hierarchies);
  void ReadLevels(std::vector<RefCnt<XmlALevel>>& levels);
  void ReadLevelProperties(const RefCnt<XmlALevel>& level);
  void ReadMember(const RefCnt<XmlAMember>& member);
  void ReadMeasures(std::vector<RefCnt<XmlAMeasure>>& measures);
  void ReadVariables(std::vector<RefCnt<XmlACubeVariable>>& variables);

  const String& SoapParseErrorString() const { return m_SoapParseErrorString; }

 private:
  void OpenLog();
  void WriteLog(const String& text);
  void WriteLogBytes(const NarrowString& bytes);
  String UrlForLog() const;
  bool PostRequest(const String& request, NarrowString& reply, bool keepReply);
  template <class Text>
  void StartReader(const Text& text, bool (SAX2XmlReadDriver::*parse)(Text, String&));
  RefCnt<SAX2XmlElement> Checked(RefCnt<SAX2XmlElement> element) const;
  RefCnt<SAX2XmlElement> NextElement();
  void ReadFault(String& faultCode, String& faultString);
  void CollectValues(VXStringVector& values, const wchar_t* column);
  template <class Make, class Finish>
  void ReadRows(Make make, Finish finish);
  /// The part that all requests share, from sending to logging. `consume` reads the reply.
  void Exchange(const VXDateTime& started, const LogTitle& title, const VXStringVector& arguments,
                const String& request, const std::function<void()>& consume);
  String RequestText();
  void BeginRequest(const wchar_t* requestType);
  void SetCubeRequest(const wchar_t* requestType, const String& catalog, const String& cube,
                      const String& dataSourceInfo);
  void AskProperty(String& value, const wchar_t* property, const LogTitle& title);

  String m_Url;
  String m_User;
  String m_Pwd;  // never logged
  Heap<HTTPClientWrapper> m_HttpClient;
  Heap<XmlASoapRequest> m_SoapMessage;
  Heap<SAX2XmlReadDriver> m_XmlReaderDriver;
  VXThreadCarrier m_ReaderCarrier;
  RefCnt<VXThread> m_Reader;  // the latest, kept after its end until the next replaces it
  String m_SoapParseErrorString;
  ServerInfo::TargetType m_TargetType;
  ServerInfo::CLIType m_CLIType;
  bool m_Log = false;
  Heap<AFile> m_LogFile;
};
