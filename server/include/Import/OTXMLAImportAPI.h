#pragma once

/// \file
/// The interface through which a host imports the structure of cubes.

#include <set>
#include <utility>
#include <vector>

#include "Import/OTDataSource.h"
#include "Import/OTXMLAHierarchy.h"
#include "Import/OTXMLAImportOption.h"
#include "Import/OTXMLAUnit.h"
#include "Utility/Generic/ServerInfo.h"

/// The host's import interface. The host calls the virtual functions by their slots, so their order
/// must not change. The host also defines the layout of the members. Some of them are only stored.
///
/// Order of calls:
/// - OTXMLAIdentifyProvider (OTXMLAImportEntry.h), if the kind of the server is not known.
/// - SetupConnInfo. Calling an import operation before it is undefined behaviour.
/// - SetConnectParameters and SetImportOption at any time.
/// - GetDataSourceNames or GetDataSourceInfo, to let the user choose a cube.
/// - SetImportChoiceInfo with the choice.
/// - The operations on the chosen cube, in any order.
///
/// Names: pass only names that GetDataSourceInfo has returned. Most servers answer an unknown cube
/// with an empty rowset, so a wrong name gives an empty result without an error.
///
/// Errors: operations append to `errors` and `warnings` and never clear them. A failed operation
/// appends its text to `errors` and returns normally; its output contains what was read before.
/// Each warning ends with a line feed.
///
/// Exceptions: SetupConnInfo and GetSAPVariables throw ErrorMessage. Every function can throw
/// std::bad_alloc, and passes what a handler of ImportSettings throws. There are no others.
///
/// Cancellation: a cancelled operation fails like any other, with a text that contains
/// "interrupted:". Check VXExecutionState::IsCancellationRequested() of the active state before and
/// after each operation: if only the second is true, the operation was cancelled, unless it had
/// failed just before. If the reply was being read, the text begins with the number
/// kMessageReadCancelled in brackets, and ErrorMessage::GetNumber() returns it.
///
/// Threads: use an object from one thread at a time; it has no lock. Different objects may be used
/// at the same time. Another thread can cancel a running operation through the VXExecutionState
/// that is active on the calling thread. Each object parses replies on its own worker thread, which
/// blocks all signals.
///
/// Settings: the ImportSettings of the calling thread contain HTTP options, limits, an optional
/// deadline, and handlers.
///
/// Fork: a child process can create its own objects. It may delete inherited objects that no thread
/// used at the time of the fork, but not use them otherwise.
///
/// Reads the hierarchies of each cube:
/// \code
/// #include <vector>
///
/// #include "Import/OTXMLAImportAPI.h"
///
/// void ReadAll(OTXMLAImportAPI& import, const String& url, const String& user,
///              const String& password, ServerInfo::TargetType kind, String& errors,
///              String& warnings) {
///   import.SetupConnInfo(url, user, password, kind, ServerInfo::kCLIXMLA);
///   std::vector<OTDataSource> tree;
///   import.GetDataSourceInfo(tree, errors, warnings);
///   for (const OTDataSource& source : tree)
///     for (const OTCatalog& catalog : source.m_catalogs)
///       for (const OTCube& cube : catalog.m_cubes) {
///         import.SetImportChoiceInfo(source.m_dataSourceName, catalog.m_catalogName, cube.first);
///         std::vector<OTXMLAHierarchy> hierarchies;
///         import.GetHierarchies(hierarchies, errors, warnings);
///       }
/// }
/// \endcode
class OTXMLAImportAPI {
 public:
  /// Pairs of name and value.
  using ConnectParameters = std::vector<std::pair<String, String>>;

  OTXMLAImportAPI();

  /// Both do nothing, because XMLA requests are independent.
  /// @{
  virtual void OpenConnection();
  virtual void CloseConnection();
  /// @}
  /// Stores the connection and replaces the discover agent. Sends nothing. Throws ErrorMessage if
  /// the URL is unusable or the import log cannot be opened; then the previous agent stays.
  ///
  /// Passwords: the object keeps URL and password until the next call or its destruction, and then
  /// overwrites them. They share their buffers with the host's texts, and only the last owner can
  /// overwrite them, so the host must call Erase() on its texts. libcurl has its own copies, see
  /// HTTPClientWrapper.
  ///
  /// Time-out: 120 seconds to connect, and for periods without data. The environment variable
  /// MORVEN_BI_XMLA_HTTP_TIMEOUT changes it (a whole number; 0: none). It is read when the library
  /// is loaded. This function reads the other environment variables, so no thread may change the
  /// environment during the call.
  ///
  /// Import log: written if the environment variable OT_XMLA_IMPORT_LOGGING exists or
  /// ImportSettings::logDirectory is set. The file name contains the current second. If two objects
  /// are connected within one second, the second one empties the log of the first. Use a different
  /// directory for each of them.
  virtual void SetupConnInfo(const String& url, const String& user, const String& password,
                             ServerInfo::TargetType targetType, ServerInfo::CLIType cliType) = 0;
  /// Replaces the connection parameters (pairs of name and value) and the required version. They
  /// are only stored.
  virtual void SetConnectParameters(ConnectParameters& parameters, const String& requiredVersion);
  /// Replaces `parameters` by the stored ones.
  virtual void GetConnectParameters(ConnectParameters& parameters) const;
  /// The stored version.
  virtual String GetRequiredVersion() const;
  /// Replaces `dataSources` by the tree of data sources, catalogs and cubes (DISCOVER_DATASOURCES,
  /// DBSCHEMA_CATALOGS, MDSCHEMA_CUBES). If the list is not empty on entry, reads only the data
  /// source that its first element names.
  virtual void GetDataSourceInfo(std::vector<OTDataSource>& dataSources, String& errors,
                                 String& warnings) = 0;
  /// Replaces `names` by the names of the provider's data sources (DISCOVER_DATASOURCES). Checks
  /// the kind of the provider first. If that fails, `names` does not change.
  virtual void GetDataSourceNames(VXStringVector& names, String& errors, String& warnings) = 0;
  /// Sets the data source, catalog and cube for the following operations.
  virtual void SetImportChoiceInfo(const String& dataSource, const String& catalog,
                                   const String& cube) = 0;
  /// Replaces `hierarchies` by those of the chosen cube (MDSCHEMA_HIERARCHIES, MDSCHEMA_LEVELS,
  /// MDSCHEMA_PROPERTIES). Skipped hierarchies cause warnings.
  virtual void GetHierarchies(std::vector<OTXMLAHierarchy>& hierarchies, String& errors,
                              String& warnings) = 0;
  /// Replaces `units` by the measures of the chosen cube (MDSCHEMA_MEASURES).
  virtual void GetMeasuresAndCalcMembers(std::vector<OTXMLAUnit>& units, String& errors,
                                         String& warnings) = 0;
  /// Appends the variables of the chosen cube (SAP_VARIABLES) to `cube.m_sapVariables`, or those of
  /// the whole catalog if the name of the cube is empty. Does not change `errors` and `warnings`:
  /// on failure, throws ErrorMessage.
  virtual void GetSAPVariables(OTCube& cube, String& errors, String& warnings) = 0;

  virtual ~OTXMLAImportAPI();

  /// The configured kind, not the detected one.
  virtual ServerInfo::TargetType GetTargetType();
  /// These functions do nothing and do not change their arguments.
  /// @{
  virtual void FlatDimensionToMeasures(const String& dimension, std::vector<OTXMLAUnit>& units,
                                       String& errors, String& warnings);
  virtual void PrepareForApplicationAndCube(String& application, String& cube);
  virtual void GetAppCubeNames(std::set<String>& names);
  virtual void GetCubeInfo(const String& application, const String& cubeName, OTCube& cube,
                           String& errors, String& warnings);
  virtual void GetVariables(OTDataSource& dataSource, String& errors, String& warnings);
  /// @}
  /// Stores the option, which the XMLA import does not use.
  virtual void SetImportOption(const OTXMLAImportOption& option);
  /// Does nothing and does not change its arguments.
  virtual void GetObject(const String& dataSource, const String& catalog, const String& cube,
                         const String& object, String& errors, String& warnings);
  /// Returns 1 ("no version information") and does not change its arguments.
  virtual int GetVersionInfo(int& major, int& minor, int& revision, String& errors,
                             String& warnings);

 protected:
  OTXMLAImportAPI(const OTXMLAImportAPI&) = default;
  OTXMLAImportAPI& operator=(const OTXMLAImportAPI&) = default;

  /// What the functions above have stored. For import libraries.
  /// @{
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
  /// @}
};
