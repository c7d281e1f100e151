#pragma once

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/Sanitized.h"
#include "support/Text.h"

/// Shared code of the tests with faulty networks.
namespace network {

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// A server with data sources.
struct Service {
  std::string url;
  ServerInfo::TargetType target = ServerInfo::kAnalysisServices2005;
  const char* targetName = "analysis-services-2005";  // for the tool
  std::vector<std::string> sources = {"NORTHQUAY"};

  Service(std::string theUrl)
      : url(std::move(theUrl)) {}  // implicit, since most answers are of this kind
  Service(std::string theUrl, ServerInfo::TargetType theTarget, const char* theTargetName,
          std::vector<std::string> theSources)
      : url(std::move(theUrl)),
        target(theTarget),
        targetName(theTargetName),
        sources(std::move(theSources)) {}
};

/// The outcome of one import operation.
struct Outcome {
  std::vector<std::string> names;
  std::string errors;
  double seconds = 0;
  Clock::time_point returned;
};

/// An import object that repeatedly reads the data sources.
class Import {
 public:
  explicit Import(const Service& service, const std::string& user = "",
                  const std::string& password = "");
  Outcome DataSources();

 private:
  OTXMLAAnaTamImportAPI m_import;
};

/// Sets a variable of this process's environment during the object's life.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : m_name(name) {
    if (const char* const former = std::getenv(name)) m_former = former;
    setenv(name, value.c_str(), 1);
  }
  ~Variable() {
    if (m_former.empty())
      unsetenv(m_name);
    else
      setenv(m_name, m_former.c_str(), 1);
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* m_name;
  std::string m_former;
};

/// Fails the test unless the tool's call ended with status 1, an empty standard output, and one
/// line on standard error with this error.
void ExpectOneErrorLine(const Service& service, const std::string& says, double seconds,
                        const std::vector<std::pair<std::string, std::string>>& environment = {});

/// Lists the data sources with the tool; fails the test on any error.
void ExpectDataSources(const Service& service,
                       const std::vector<std::pair<std::string, std::string>>& environment = {});

/// Concatenates the parts.
template <class... Parts>
std::string Text(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

/// Prints a figure unless the test has failed.
void Figure(const std::string& what, const std::string& outcome);

/// Additional seconds for a build with a sanitizer.
constexpr double Slack() { return support::kIsSanitized ? 5 : 1; }

}  // namespace network
