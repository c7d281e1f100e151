#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <string_view>
#include <utility>

#include "SUXMLASAXConfiguration.h"
#include "SUXMLASAXLogTitles.h"
#include "SUXMLASAXNameMemo.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/Generic/SystemUtility.h"
#include "Utility/XMLASAX/XmlACubeVariableUtility.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

constexpr const wchar_t* kSourceFile =
    L"server/Utility/UtilityXMLASAX/Src/SUXMLASAXDiscoverAgentImpl.cpp";
constexpr std::string_view kDeclaration = "<?xml version=\"1.0\"?>";
constexpr std::string_view kDeclarationStart = "<?xml version";
constexpr std::string_view kDeclarationEnd = "?>";
constexpr std::string_view kDeclarationKept = "<?xml version=\"1.0\"";  // in front of the end

// Numbers of the host's message catalogue.
constexpr int kMessageReadCancelled = 46066;
constexpr int kMessageParseError = 46100;
constexpr int kMessageSoapFault = 64203;

/// Up to here (bytes of a reply, or characters of a text) parsing and reading at the same time gain
/// less than waking another processor costs.
constexpr std::size_t kShortReply = std::size_t{1} << 16;

constexpr std::size_t kLogHeaderCapacity = 256;
constexpr std::size_t kLogNameCapacity = 512;
constexpr int kLogTimeDigits = 3;

/// Analysis Services from 2005 on, for which the data source's name stands for its information.
bool IsModernAnalysisServices(ServerInfo::TargetType target) {
  return target == ServerInfo::kAnalysisServices2005 ||
         target == ServerInfo::kAnalysisServices2008 || target == ServerInfo::kAnalysisServices2012;
}

/// Brings the reply's XML declaration into one form, without encoding: the text is decoded already.
void NormaliseDeclaration(NarrowString& reply, ServerInfo::TargetType target) {
  // These answer without a declaration. Should one come nevertheless, the reader skips the second.
  const std::size_t start =
      IsModernAnalysisServices(target) ? NarrowString::npos : reply.find(kDeclarationStart);
  if (start == NarrowString::npos) {
    reply.ReplaceFront(0, kDeclaration);
    return;
  }
  const std::size_t end = reply.find(kDeclarationEnd, start);
  reply.ReplaceFront(std::min(end, reply.size()), kDeclarationKept);
}

String Widened(const NarrowString& bytes) {
  return BaseStringUtil::StdStringToString(bytes, BaseStringUtil::kCodePageUTF8);
}

std::uint64_t WholeSeconds(const VXDateTime& from, const VXDateTime& to) {
  const double seconds = VXDateTime::DifferenceInSeconds(to, from);
  return seconds > 0 ? static_cast<std::uint64_t>(seconds) : 0;  // a clock may be set back
}

// A host that stops an import is not kept waiting while a very large reply is made ready for the
// log: it is converted piece by piece, and of one that is too late the beginning is enough.

constexpr std::size_t kLogPiece = std::size_t{1} << 18;
constexpr std::size_t kAlwaysLogged = std::size_t{1} << 20;
constexpr std::string_view kCutMark = "\n(the rest is left out: the import was stopped)";

bool IsTooLate(std::size_t converted) {
  const VXExecutionState* const state = VXExecutionState::Current();
  return converted >= kAlwaysLogged && state && state->IsCancellationRequested();
}

String WidenedForLog(const NarrowString& reply) {
  String text;
  for (std::string_view rest = reply.view(); !rest.empty();) {
    // Up to a tag: no character is parted in front of one.
    const std::size_t length = std::min(rest.find('<', kLogPiece), rest.size());
    text += Widened(NarrowString(rest.substr(0, length)));
    rest.remove_prefix(length);
    if (!rest.empty() && IsTooLate(text.size())) return text + Widened(NarrowString(kCutMark));
  }
  return text;
}

void AppendForLog(NarrowString& entry, String::View text) {
  for (std::size_t done = 0; done < text.size(); done += kLogPiece) {
    if (IsTooLate(done)) {
      entry.append(kCutMark);
      return;
    }
    entry += BaseStringUtil::StringToStdString(String(text.substr(done, kLogPiece)),
                                               BaseStringUtil::kCodePageUTF8);
  }
}

VXDateTime Now() {
  VXDateTime now;
  VXDateTime::GetCurrDateTime(now);
  return now;
}

}  // namespace

// Creation and import log.

XmlADiscoverAgentHeap XmlADiscoverAgent::Create(const String& url, const String& user,
                                                const String& password,
                                                ServerInfo::TargetType target,
                                                ServerInfo::CLIType cli, bool log) {
  return XmlADiscoverAgentHeap(new XmlADiscoverAgentImpl(url, user, password, target, cli, log));
}

XmlADiscoverAgentImpl::XmlADiscoverAgentImpl(String url, String user, String password,
                                             ServerInfo::TargetType target, ServerInfo::CLIType cli,
                                             bool log)
    : m_Url(std::move(url)),
      m_User(std::move(user)),
      m_Pwd(std::move(password)),
      m_TargetType(target),
      m_CLIType(cli) {
  m_HttpClient =
      std::make_unique<HTTPClientWrapper>(m_Url, m_User, m_Pwd, g_kTimeoutDefault, nullptr);
  m_SoapMessage = std::make_unique<XmlASoapRequest>();
  m_XmlReaderDriver =
      SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(SAX2XmlReadDriverFactory::kThreadedReader);
  if (SystemUtility::hasEnv(OT_XMLA_IMPORT_FROM_TAMARIND)) m_TargetType = ServerInfo::kTamarind7;
  const bool isLogWanted = SystemUtility::hasEnv(OT_XMLA_IMPORT_LOGGING_NAME) ||
                           !ImportSettings::Current().logDirectory.empty();
  if (isLogWanted && log) OpenLog();
}

XmlADiscoverAgentImpl::~XmlADiscoverAgentImpl() {
  StopSaxParser();
  if (!m_Log || !m_LogFile) return;
  try {
    WriteLog(DELIMIT_LINE + String(L"Import ends at ") + Now().ToString(kLogTimeDigits) + L"\n");
  } catch (const std::exception&) {
    // Out of memory: the log ends without its closing entry.
  }
}

void XmlADiscoverAgentImpl::OpenLog() {
  const VXDateTime now = Now();
  wchar_t name[kLogNameCapacity] = {};
  const String directory = SUSystemConfig::GetSystemConfig().GetLogDirectory();
  const int length =
      std::swprintf(name, kLogNameCapacity, L"%ls%ls%ls%04hd_%02hu_%02hu_%02hu_%02hu_%02hu%ls",
                    directory.c_str(), L"/", L"OT_xmla_", now.GetYear(), now.GetMonth(),
                    now.GetDay(), now.GetHour(), now.GetMinute(), now.GetSecond(), _S_LOG_EXT);
  if (length < 0) {
    SUGThrow(
        ErrorMessage(L"The import log's name is too long: choose a shorter log directory than " +
                     directory),
        kSourceFile, __LINE__);
  }
  m_LogFile = AFile::MakeFile();
  m_LogFile->Open(name, AFile::kModeWriteFromEmpty);
  m_Log = true;
  m_LogFile->WriteBytes("\xEF\xBB\xBF", 3);
  WriteLog(FormatLogText(kLogHeaderCapacity,
                         L"%s, XmlA Import Logging \n\tTarget Service:\t%s\n\tURL:\t%s\n"
                         L"\tUser:\t%s\r\n",
                         {now.ToString(kLogTimeDigits),
                          ServerInfo::GetTargetNameFromEnum(m_TargetType), UrlForLog(), m_User}));
}

/// The URL as given but for credentials inside it, which must not reach the log.
String XmlADiscoverAgentImpl::UrlForLog() const {
  String url = m_Url;
  String user;
  String password;
  HTTPClientWrapper::TakeCredentials(url, user, password);
  return user.empty() && password.empty() ? m_Url : url;
}

void XmlADiscoverAgentImpl::WriteLog(const String& text) {
  WriteLogBytes(BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8));
}

void XmlADiscoverAgentImpl::WriteLogBytes(const NarrowString& bytes) {
  m_LogFile->WriteBytes(bytes.data(), bytes.size());
  m_LogFile->Flush();
}

void XmlADiscoverAgentImpl::LogContent(const String& title, const String& request,
                                       const String& response, const VXDateTime& start,
                                       const VXDateTime& sent, const VXDateTime& parsed) {
  String text = DELIMIT_LINE;
  text += title;
  text += L"\n";
  text += start.ToString(kLogTimeDigits) + L"\t";
  text += sent.ToString(kLogTimeDigits) + L"\t";
  text += parsed.ToString(kLogTimeDigits) + L"\n";
  text += L"Requesting time in seconds: ";
  text += BaseStringUtil::StringFrom(WholeSeconds(start, sent));
  text += L"\tParsing time in seconds: ";
  text += BaseStringUtil::StringFrom(WholeSeconds(sent, parsed));
  text += L"\n======== Request ===========\n";
  text += request;
  text += L"\n++++++++ Response ++++++++++\n";
  NarrowString entry = BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
  AppendForLog(entry, response.view());
  entry.append("\n");
  WriteLogBytes(entry);
}

// The exchange.

String XmlADiscoverAgentImpl::PrepareHttpSizeHeader() const {
  static const String kLines =
      L"SOAPAction: \"urn:schemas-microsoft-com:xml-analysis:Discover\"\n"
      L"Content-Type: text/xml; charset = UTF-8\n";
  return kLines;
}

/// Posts the request; `reply` gets what came, with its declaration in one form. The reader keeps
/// the elements that it met while it looked for a fault: true when they can be read again.
/// `keepReply`: the caller wants the reply's text too, which is large, and only the log needs.
/// Throws as SendSoapRequest does.
bool XmlADiscoverAgentImpl::PostRequest(const String& request, NarrowString& reply,
                                        bool keepReply) {
  const NarrowString body =
      BaseStringUtil::StringToStdString(request, BaseStringUtil::kCodePageUTF8);
  m_HttpClient->SetRequestHeader(PrepareHttpSizeHeader());
  String error;
  bool isKept = false;
  if (m_HttpClient->ReadBytes(body, reply, error)) {
    NormaliseDeclaration(reply, m_TargetType);
    String faultCode;
    String faultString;
    m_XmlReaderDriver->KeepElements();
    StartReader(reply, &SAX2XmlReadDriver::ParseBytesInMem);
    if (!keepReply) reply.clear();  // the reader holds it as long as it needs it
    ReadFault(faultCode, faultString);
    isKept = true;
    if (IsCaseInsensitiveMatch(faultString, L"null")) return isKept;
    if (!faultCode.empty() || !faultString.empty())
      SUGThrow(ErrorMessage(kMessageSoapFault, faultCode, faultString), kSourceFile, __LINE__);
  }
  if (!error.empty()) SUGThrow(ErrorMessage(error), kSourceFile, __LINE__);
  return isKept;
}

void XmlADiscoverAgentImpl::SendSoapRequest(const String& request, String& response) {
  NarrowString reply;
  try {
    PostRequest(request, reply, true);
  } catch (const ErrorMessage&) {
    if (!reply.empty()) response = Widened(reply);
    throw;
  }
  if (!reply.empty()) response = Widened(reply);
}

/// Starts the reader thread on a text, after stopping an earlier one.
template <class Text>
void XmlADiscoverAgentImpl::StartReader(const Text& text,
                                        bool (SAX2XmlReadDriver::*parse)(Text, String&)) {
  StopSaxParser();
  m_SoapParseErrorString.clear();
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, Text, String>;
  const RefCnt<VXThreadJob> job(
      new Job(m_XmlReaderDriver.get(), parse, text, m_SoapParseErrorString));
  m_Reader = RefCnt<VXThread>(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
  m_Reader->Start(m_ReaderCarrier, text.size() <= kShortReply ? VXThreadCarrier::Place::kHere
                                                              : VXThreadCarrier::Place::kAnywhere);
}

void XmlADiscoverAgentImpl::StartSaxParser(const String& text) {
  StartReader(text, &SAX2XmlReadDriver::ParseInMem);
}

void XmlADiscoverAgentImpl::StopSaxParser() {
  if (!m_Reader) return;
  m_Reader->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  m_Reader->WaitUntilStopped();
}

/// An element as it was read. Throws for a reply that cannot be parsed and for a cancelled parse.
RefCnt<SAX2XmlElement> XmlADiscoverAgentImpl::Checked(RefCnt<SAX2XmlElement> element) const {
  if (element) {
    if (element->HasError()) {
      SUGThrow(ErrorMessage(kMessageParseError, m_SoapParseErrorString), kSourceFile, __LINE__);
    }
    if (element->IsCancel()) SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);
  }
  return element;
}

/// The next element of the reply, or the empty handle at its end. Throws as Checked does.
RefCnt<SAX2XmlElement> XmlADiscoverAgentImpl::NextElement() {
  return Checked(m_XmlReaderDriver->Read());
}

void XmlADiscoverAgentImpl::ReadValue(String& value, const String& propertyName) {
  bool wanted = false;
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    if (IsCaseInsensitiveMatch(element->GetLocalName(), L"PropertyName")) {
      if (IsCaseInsensitiveMatch(element->GetValue(), propertyName)) wanted = true;
    } else if (IsCaseInsensitiveMatch(element->GetLocalName(), L"Value")) {
      if (wanted) value = element->GetValue();
      wanted = false;
    }
  }
}

void XmlADiscoverAgentImpl::RetrieveSoapFaultString(const String& text, String& faultCode,
                                                    String& faultString) {
  StartSaxParser(text);
  ReadFault(faultCode, faultString);
}

void XmlADiscoverAgentImpl::ReadFault(String& faultCode, String& faultString) {
  static constexpr String::View kNames[] = {L"faultcode", L"faultstring"};
  while (const RefCnt<SAX2XmlElement> element = Checked(m_XmlReaderDriver->ReadAmong(kNames))) {
    if (IsCaseInsensitiveMatch(element->GetLocalName(), kNames[0]))
      faultCode = element->GetValue();
    else if (IsCaseInsensitiveMatch(element->GetLocalName(), kNames[1]))
      faultString += element->GetValue();
  }
  StopSaxParser();
}

void XmlADiscoverAgentImpl::PrintXmlContent() {
  static constexpr const wchar_t* kHidden[] = {L"element", L"sequence", L"complexType", L"schema"};
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    bool hidden = false;
    for (const wchar_t* name : kHidden)
      hidden |= IsCaseInsensitiveMatch(element->GetLocalName(), name);
    if (hidden) continue;
    // As bytes: wide output would depend on the locale and change the stream for everybody else.
    const NarrowString line = BaseStringUtil::StringToStdString(
        L"\tNAME[" + element->GetLocalName() + L"]\t\tVALUE[" + element->GetValue() + L"]\n",
        BaseStringUtil::kCodePageUTF8);
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
}

void XmlADiscoverAgentImpl::Exchange(const VXDateTime& started, const LogTitle& title,
                                     const VXStringVector& arguments, const String& request,
                                     const std::function<void()>& consume) {
  VXDateTime answered;
  VXDateTime finished;
  NarrowString reply;
  try {
    const bool isKept = PostRequest(request, reply, m_Log);
    VXDateTime::GetCurrDateTime(answered);
    if (!isKept || !m_XmlReaderDriver->ReadAgain()) StartSaxParser(String());
    consume();
    StopSaxParser();
    VXDateTime::GetCurrDateTime(finished);
  } catch (const ErrorMessage& error) {
    if (m_Log && title.failure) {
      String text;
      error.RetrieveErrorMessages(text);
      VXDateTime::GetCurrDateTime(answered);
      VXDateTime::GetCurrDateTime(finished);
      VXStringVector all = arguments;
      all.push_back(text);
      LogContent(FormatLogText(kTitleCapacity, title.failure, all), request, WidenedForLog(reply),
                 started, answered, finished);
    }
    throw;
  }
  if (m_Log) {
    LogContent(FormatLogText(kTitleCapacity, title.success, arguments), request,
               WidenedForLog(reply), started, answered, finished);
  }
}

/// The text of the request that was made; its subject goes to the HTTP client's observer.
String XmlADiscoverAgentImpl::RequestText() {
  m_HttpClient->SetRequestSubject(m_SoapMessage->Subject());
  return m_SoapMessage->GetContent();
}

/// Begins a request of the type. One that ran out of memory half made leaves nothing behind for it.
void XmlADiscoverAgentImpl::BeginRequest(const wchar_t* requestType) {
  m_SoapMessage->ClearRestrictions();
  m_SoapMessage->SetRequestType(requestType);
}

// Identification.

bool XmlADiscoverAgentImpl::IsAnalysisServices() const {
  return m_TargetType == ServerInfo::kAnalysisServices2000 ||
         IsModernAnalysisServices(m_TargetType) || m_TargetType == ServerInfo::kTessera;
}

bool XmlADiscoverAgentImpl::IsSAPBW() const {
  return m_TargetType == ServerInfo::kSAP_BW || m_TargetType == ServerInfo::kSAP_BW35;
}

bool XmlADiscoverAgentImpl::IsTamarind() const {
  return m_TargetType == ServerInfo::kTamarind7 || m_TargetType == ServerInfo::kTamarind9 ||
         m_TargetType == ServerInfo::kTamarind11 ||
         m_TargetType == ServerInfo::kTamarind11_1_2_3_500;
}

void XmlADiscoverAgentImpl::GetProviderInfomation(std::pair<String, String>& info) {
  GetProviderName(info.first);
  GetProviderVersion(info.second);
}

void XmlADiscoverAgentImpl::GetProviderName(String& name) {
  if (!IsTamarind()) {
    AskProperty(name, L"ProviderName", kProviderNameTitle);
    return;
  }
  // This family does not tell its name as a property.
  const VXDateTime started = Now();
  BeginRequest(L"DISCOVER_DATASOURCES");
  Exchange(started, kProviderNameOfDataSourcesTitle, {UrlForLog()}, RequestText(),
           [&] { ReadProviderName(name); });
}

void XmlADiscoverAgentImpl::GetProviderVersion(String& version) {
  AskProperty(version, L"ProviderVersion", kProviderVersionTitle);
}

void XmlADiscoverAgentImpl::AskProperty(String& value, const wchar_t* property,
                                        const LogTitle& title) {
  const VXDateTime started = Now();
  BeginRequest(L"DISCOVER_PROPERTIES");
  m_SoapMessage->PushPropertyRestriction(property);
  Exchange(started, title, {UrlForLog()}, RequestText(), [&] { ReadValue(value, property); });
}

void XmlADiscoverAgentImpl::ReadProviderName(String& name) {
  while (const RefCnt<SAX2XmlElement> element = NextElement())
    if (IsCaseInsensitiveMatch(element->GetLocalName(), L"ProviderName"))
      name = element->GetValue();
}

// Data sources, catalogs and cubes. Their consumers take every element of the wanted name, wherever
// it stands in the reply.

void XmlADiscoverAgentImpl::GetDataSourceInfo(VXStringVector& dataSources) {
  const VXDateTime started = Now();
  dataSources.clear();
  BeginRequest(L"DISCOVER_DATASOURCES");
  Exchange(started, kDataSourcesTitle, {UrlForLog()}, RequestText(), [&] {
    if (IsModernAnalysisServices(m_TargetType))
      ReadDataSourceName(dataSources);
    else
      ReadDataSourceInfo(dataSources);
  });
}

void XmlADiscoverAgentImpl::GetCatalogs(VXStringVector& catalogs, const String& dataSourceInfo) {
  const VXDateTime started = Now();
  catalogs.clear();
  BeginRequest(L"DBSCHEMA_CATALOGS");
  m_SoapMessage->SetDataSourceInfo(dataSourceInfo);
  const String request = RequestText();
  PrepareHttpSizeHeader();
  Exchange(started, kCatalogsTitle, {dataSourceInfo}, request, [&] { ReadCatalogs(catalogs); });
}

void XmlADiscoverAgentImpl::GetCubesOnCatalog(std::vector<OTCube>& cubes, const String& catalog,
                                              const String& dataSourceInfo) {
  const VXDateTime started = Now();
  cubes.clear();
  BeginRequest(L"MDSCHEMA_CUBES");
  m_SoapMessage->SetDataSourceInfo(dataSourceInfo);
  m_SoapMessage->PushCatalogRestriction(catalog);
  Exchange(started, kCubesTitle, {catalog, dataSourceInfo}, RequestText(),
           [&] { ReadCubes(cubes); });
}

void XmlADiscoverAgentImpl::GetDataSourceInfoCatalogs(DataSourceCatalogs& dataSources) {
  dataSources.clear();
  VXStringVector names;
  GetDataSourceInfo(names);
  for (const String& name : names) {
    VXStringVector catalogs;
    GetCatalogs(catalogs, name);
    dataSources.emplace_back(name, catalogs);
  }
}

void XmlADiscoverAgentImpl::CollectValues(VXStringVector& values, const wchar_t* column) {
  while (const RefCnt<SAX2XmlElement> element = NextElement())
    if (IsCaseInsensitiveMatch(element->GetLocalName(), column))
      values.push_back(element->GetValue());
}

void XmlADiscoverAgentImpl::ReadDataSourceInfo(VXStringVector& dataSources) {
  CollectValues(dataSources, L"DataSourceInfo");
}

void XmlADiscoverAgentImpl::ReadDataSourceName(VXStringVector& dataSources) {
  CollectValues(dataSources, L"DataSourceName");
}

void XmlADiscoverAgentImpl::ReadCatalogs(VXStringVector& catalogs) {
  CollectValues(catalogs, S_CATALOG_NAME);
}

void XmlADiscoverAgentImpl::ReadCubes(std::vector<OTCube>& cubes) {
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    if (!IsCaseInsensitiveMatch(element->GetLocalName(), L"CUBE_NAME")) continue;
    OTCube cube;
    cube.first = element->GetValue();
    cube.second = element->GetValue();
    cube.m_bMemberNameUnique = true;
    cubes.push_back(cube);
  }
}

// What lies inside a cube. Columns go to the current row object; the row element, which ends after
// its columns, closes it.

namespace {

template <class Row>
auto FindColumn(const Row& row, const String& name) {
  return row.FindColumn(name);
}

auto FindColumn(const XmlACubeVariable&, const String& name) {
  return XmlACubeVariableUtility::FindColumn(name);
}

}  // namespace

template <class Make, class Finish>
void XmlADiscoverAgentImpl::ReadRows(Make make, Finish finish) {
  auto row = make();
  using Take = decltype(FindColumn(*row, String()));
  struct Meaning {
    bool endsRow;
    Take take;  // null for schema elements and unknown columns
  };
  NameMemo<Meaning> meanings;
  const auto resolve = [&](const String& name) {
    if (IsCaseInsensitiveMatch(name, L"Row")) return Meaning{true, nullptr};
    return Meaning{false, IsSchemaElement(name) ? Take() : FindColumn(*row, name)};
  };
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    const Meaning& meaning = meanings.Find(element->GetLocalName(), resolve);
    if (meaning.endsRow) {
      finish(row);
      row = make();
    } else if (meaning.take) {
      meaning.take(*row, element->GetValue());
    }
  }
}

/// Data source, catalog and, when there is one, cube: what most requests inside a cube begin with.
void XmlADiscoverAgentImpl::SetCubeRequest(const wchar_t* requestType, const String& catalog,
                                           const String& cube, const String& dataSourceInfo) {
  BeginRequest(requestType);
  m_SoapMessage->SetDataSourceInfo(dataSourceInfo);
  m_SoapMessage->PushCatalogRestriction(catalog);
  if (!cube.empty()) m_SoapMessage->PushCubeRestriction(cube);
}

void XmlADiscoverAgentImpl::GetDimensionsOnCatalogCube(
    std::vector<RefCnt<XmlADimension>>& dimensions, const String& catalog, const String& cube,
    const String& dataSourceInfo) {
  const VXDateTime started = Now();
  dimensions.clear();
  SetCubeRequest(L"MDSCHEMA_DIMENSIONS", catalog, cube, dataSourceInfo);
  Exchange(started, kDimensionsTitle, {cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadDimensions(dimensions); });
}

void XmlADiscoverAgentImpl::FindDefaultHierarchiesOnCatalogCube(DefaultHierarchies& defaults,
                                                                const String& catalog,
                                                                const String& cube,
                                                                const String& dataSourceInfo) {
  const VXDateTime started = Now();
  std::vector<RefCnt<XmlADimension>> dimensions;
  SetCubeRequest(L"MDSCHEMA_DIMENSIONS", catalog, cube, dataSourceInfo);
  Exchange(started, kDefaultHierarchiesTitle, {cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadDimensions(dimensions); });
  for (const RefCnt<XmlADimension>& dimension : dimensions)
    defaults[dimension->GetDefaultHierarchyUniqueName()] = true;
}

void XmlADiscoverAgentImpl::GetHierarchiesOnCatalogCube(
    std::vector<RefCnt<XmlAHierarchy>>& hierarchies, const String& catalog, const String& cube,
    const String& dataSourceInfo) {
  const VXDateTime started = Now();
  hierarchies.clear();
  SetCubeRequest(L"MDSCHEMA_HIERARCHIES", catalog, cube, dataSourceInfo);
  Exchange(started, kHierarchiesTitle, {cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadHierarchies(hierarchies); });
  if (m_Log) {
    // Only so that the log shows the cube's dimensions beside its hierarchies.
    std::vector<RefCnt<XmlADimension>> dimensions;
    GetDimensionsOnCatalogCube(dimensions, catalog, cube, dataSourceInfo);
  }
}

void XmlADiscoverAgentImpl::GetLevelsOnCatalogCubeHierarchy(std::vector<RefCnt<XmlALevel>>& levels,
                                                            const String& catalog,
                                                            const String& cube,
                                                            RefCnt<XmlAHierarchy> hierarchy,
                                                            const String& dataSourceInfo) {
  const VXDateTime started = Now();
  levels.clear();
  const String hierarchyName = hierarchy->GetUniqueName();
  SetCubeRequest(L"MDSCHEMA_LEVELS", catalog, cube, dataSourceInfo);
  m_SoapMessage->PushHierarchyRestriction(hierarchyName);
  Exchange(started, kLevelsTitle, {hierarchyName, cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadLevels(levels); });
  for (const RefCnt<XmlALevel>& level : levels) {
    const VXDateTime propertiesStarted = Now();
    SetCubeRequest(L"MDSCHEMA_PROPERTIES", catalog, cube, dataSourceInfo);
    m_SoapMessage->PushHierarchyRestriction(hierarchyName);
    m_SoapMessage->PushDimensionRestriction(level->GetDimensionUniqueName());
    m_SoapMessage->PushLevelRestriction(level->GetUniqueName());
    Exchange(propertiesStarted, kPropertiesTitle,
             {level->GetUniqueName(), hierarchyName, cube, catalog, dataSourceInfo}, RequestText(),
             [&] { ReadLevelProperties(level); });
  }
}

void XmlADiscoverAgentImpl::GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember> member,
                                                            const String& catalog,
                                                            const String& cube,
                                                            const String& hierarchy,
                                                            const String& dataSourceInfo) {
  const VXDateTime started = Now();
  SetCubeRequest(L"MDSCHEMA_MEMBERS", catalog, cube, dataSourceInfo);
  m_SoapMessage->PushHierarchyRestriction(hierarchy);
  m_SoapMessage->PushMemberRestriction(member->GetUniqueName());
  Exchange(started, kMembersTitle, {hierarchy, cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadMember(member); });
}

void XmlADiscoverAgentImpl::GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& measures,
                                                     const String& catalog, const String& cube,
                                                     const String& dataSourceInfo) {
  const VXDateTime started = Now();
  measures.clear();
  BeginRequest(L"MDSCHEMA_MEASURES");
  m_SoapMessage->SetDataSourceInfo(dataSourceInfo);
  m_SoapMessage->PushCatalogRestriction(catalog);
  m_SoapMessage->PushCubeRestriction(cube);  // an empty one too, unlike the other requests
  Exchange(started, kMeasuresTitle, {cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadMeasures(measures); });
}

void XmlADiscoverAgentImpl::GetVariablesOnCatalogCube(
    std::vector<RefCnt<XmlACubeVariable>>& variables, const String& cube, const String& catalog,
    const String& dataSourceInfo) {
  const VXDateTime started = Now();
  variables.clear();
  SetCubeRequest(L"SAP_VARIABLES", catalog, cube, dataSourceInfo);
  Exchange(started, kVariablesTitle, {cube, catalog, dataSourceInfo}, RequestText(),
           [&] { ReadVariables(variables); });
}

void XmlADiscoverAgentImpl::ReadDimensions(std::vector<RefCnt<XmlADimension>>& dimensions) {
  ReadRows([] { return RefCnt<XmlADimension>(new XmlADimension); },
           [&](const RefCnt<XmlADimension>& row) { dimensions.push_back(row); });
}

void XmlADiscoverAgentImpl::ReadHierarchies(std::vector<RefCnt<XmlAHierarchy>>& hierarchies) {
  ReadRows([this] { return RefCnt<XmlAHierarchy>(new XmlAHierarchy(m_TargetType, m_CLIType)); },
           [&](const RefCnt<XmlAHierarchy>& row) { hierarchies.push_back(row); });
}

void XmlADiscoverAgentImpl::ReadLevels(std::vector<RefCnt<XmlALevel>>& levels) {
  ReadRows([this] { return RefCnt<XmlALevel>(new XmlALevel(m_TargetType, m_CLIType)); },
           [&](const RefCnt<XmlALevel>& row) { levels.push_back(row); });
}

void XmlADiscoverAgentImpl::ReadLevelProperties(const RefCnt<XmlALevel>& level) {
  ReadRows([] { return RefCnt<XmlALevelProperty>(new XmlALevelProperty); },
           [&](const RefCnt<XmlALevelProperty>& row) { level->AppendLevelProperty(row); });
}

void XmlADiscoverAgentImpl::ReadMember(const RefCnt<XmlAMember>& member) {
  // A server that is asked without a member's name answers with all members of the hierarchy.
  NameMemo<XmlAMember::Take> columns;
  const auto resolve = [&](const String& name) {
    return IsSchemaElement(name) ? XmlAMember::Take() : member->FindColumn(name);
  };
  while (const RefCnt<SAX2XmlElement> element = NextElement())
    if (const auto take = columns.Find(element->GetLocalName(), resolve))
      take(*member, element->GetValue());
}

void XmlADiscoverAgentImpl::ReadMeasures(std::vector<RefCnt<XmlAMeasure>>& measures) {
  const bool useUniqueName = IsSAPBW();
  ReadRows([=] { return RefCnt<XmlAMeasure>(new XmlAMeasure(useUniqueName)); },
           [&](const RefCnt<XmlAMeasure>& row) { measures.push_back(row); });
}

void XmlADiscoverAgentImpl::ReadVariables(std::vector<RefCnt<XmlACubeVariable>>& variables) {
  ReadRows([] { return RefCnt<XmlACubeVariable>(new XmlACubeVariable); },
           [&](const RefCnt<XmlACubeVariable>& row) { variables.push_back(row); });
}
