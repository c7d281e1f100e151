#pragma once

#include <set>
#include <utility>
#include <vector>

#include "Import/OTDataSource.h"
#include "Import/OTXMLAHierarchy.h"
#include "Import/OTXMLAImportOption.h"
#include "Import/OTXMLAUnit.h"
#include "Utility/Generic/ServerInfo.h"

/// The host's import interface. The order of the virtual operations is part of it: the host calls
/// them by their place.
///
/// Order of calls: SetupConnInfo first; SetConnectParameters and SetImportOption whenever the host
/// likes; GetDataSourceNames or GetDataSourceInfo to let the user choose; SetImportChoiceInfo with
/// the choice; then the operations on the chosen cube, each independently. An import operation
/// before SetupConnInfo is an error of the host and is not guarded.
///
/// Errors: `errors` and `warnings` are appended to, never cleared. A failed operation leaves its
/// text in `errors` and returns normally with what it had read before in its output; every warning
/// ends with a line feed. Exceptions other than ErrorMessage pass through.
///
/// Threads: one import object is used from one thread at a time and holds no lock. Distinct objects
/// may be used at the same time. Another thread may ask a running operation to stop through the
/// VXExecutionState that is in force on the calling thread. While an operation runs, each reply is
/// parsed on a thread of the object's own, on which all signals are blocked.
///
/// Settings: ImportSettings on the calling thread holds HTTP options, limits on what a server can
/// make an operation do, an optional deadline, and handlers.
///
/// Fork: a child process may delete objects that no thread was using at the time of the fork, and
/// uses new ones for its own imports.
class OTXMLAImportAPI {
 public:
  using ConnectParameters = std::vector<std::pair<String, String>>;

  OTXMLAImportAPI();

  /// Both do nothing: every request stands for itself.
  virtual void OpenConnection();
  virtual void CloseConnection();
  /// Keeps the connection and makes a fresh discover agent for it, which replaces an earlier one.
  /// Nothing is sent. Throws ErrorMessage for a URL that cannot be used or an import log that
  /// cannot be opened; the former agent then stays.
  ///
  /// URL and password are kept until the next call or the end of the object, and then overwritten
  /// in memory. They share the characters of the host's texts: the last one that has them must be
  /// overwritten, so a host ends its texts with Erase(). libcurl has copies of its own, see
  /// HTTPClientWrapper.
  ///
  /// The time-out for connecting and for silence on the connection is 120 seconds, or the whole
  /// number in MORVEN_BI_XMLA_HTTP_TIMEOUT (0: none) that the library found when it was loaded; any
  /// other value there counts as not set. The other environment variables are read here: no thread
  /// may change the environment meanwhile.
  ///
  /// With OT_XMLA_IMPORT_LOGGING in the environment, or a log directory in the calling thread's
  /// ImportSettings, the object writes an import log. Its file is named after the second in which
  /// this operation is called: two objects that are connected within one second write to one file,
  /// and the later one empties it. Give such objects directories of their own.
  virtual void SetupConnInfo(const String& url, const String& user, const String& password,
                             ServerInfo::TargetType targetType, ServerInfo::CLIType cliType) = 0;
  /// Replaces the connection parameters (pairs of name and value) and the required version.
  virtual void SetConnectParameters(ConnectParameters& parameters, const String& requiredVersion);
  virtual void GetConnectParameters(ConnectParameters& parameters) const;
  virtual String GetRequiredVersion() const;
  /// The tree of data sources, catalogs and cubes (DISCOVER_DATASOURCES, DBSCHEMA_CATALOGS,
  /// MDSCHEMA_CUBES). With a non-empty list on entry, the tree of its first element's name alone.
  virtual void GetDataSourceInfo(std::vector<OTDataSource>& dataSources, String& errors,
                                 String& warnings) = 0;
  /// Replaces `names` by the names of the provider's data sources (DISCOVER_DATASOURCES). The kind
  /// of provider is checked first: when that fails, `names` is left as it was.
  virtual void GetDataSourceNames(VXStringVector& names, String& errors, String& warnings) = 0;
  /// The data source, catalog and cube that the following operations read.
  virtual void SetImportChoiceInfo(const String& dataSource, const String& catalog,
                                   const String& cube) = 0;
  /// Replaces `hierarchies` by those of the chosen cube (MDSCHEMA_HIERARCHIES and below).
  virtual void GetHierarchies(std::vector<OTXMLAHierarchy>& hierarchies, String& errors,
                              String& warnings) = 0;
  /// Replaces `units` by the measures of the chosen cube (MDSCHEMA_MEASURES).
  virtual void GetMeasuresAndCalcMembers(std::vector<OTXMLAUnit>& units, String& errors,
                                         String& warnings) = 0;
  /// Appends the variables of the chosen cube (SAP_VARIABLES) to `cube.m_sapVariables`; with an
  /// empty cube name those of the whole catalog. Touches neither text: a failure is an ErrorMessage
  /// that passes to the caller.
  virtual void GetSAPVariables(OTCube& cube, String& errors, String& warnings) = 0;

  virtual ~OTXMLAImportAPI();

  /// The kind that was configured, never the detected one.
  virtual ServerInfo::TargetType GetTargetType();
  // The following five do nothing for XMLA and leave their arguments as they are.
  virtual void FlatDimensionToMeasures(const String& dimension, std::vector<OTXMLAUnit>& units,
                                       String& errors, String& warnings);
  virtual void PrepareForApplicationAndCube(String& application, String& cube);
  virtual void GetAppCubeNames(std::set<String>& names);
  virtual void GetCubeInfo(const String& application, const String& cubeName, OTCube& cube,
                           String& errors, String& warnings);
  virtual void GetVariables(OTDataSource& dataSource, String& errors, String& warnings);
  virtual void SetImportOption(const OTXMLAImportOption& option);
  /// Does nothing for XMLA and leaves its arguments as they are.
  virtual void GetObject(const String& dataSource, const String& catalog, const String& cube,
                         const String& object, String& errors, String& warnings);
  /// Returns 1, "no version information", and leaves its arguments as they are.
  virtual int GetVersionInfo(int& major, int& minor, int& revision, String& errors,
                             String& warnings);

 protected:
  OTXMLAImportAPI(const OTXMLAImportAPI&) = default;
  OTXMLAImportAPI& operator=(const OTXMLAImportAPI&) = default;

  String m_url;
  String m_user;
  String m_password;
  String m_choiceDataSource;
  String m_choiceCatalog;
  String m_choiceCube;
  OTXMLAImportOption m_importOption;
  ServerInfo::TargetType m_targetType = ServerInfo::kTargetUnknown;
  ServerInfo::CLIType m_cliType = ServerInfo::kCLIUnknown;
  ConnectParameters m_connectParameters;
  String m_requiredVersion;
};
