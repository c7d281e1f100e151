#include "SUXMLASAXPrediction.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "SUXMLASAXHierarchyRules.h"
#include "SUXMLASAXReadRows.h"
#include "SUXMLASAXReplyReader.h"
#include "SUXMLASAXRequests.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"
#include "Utility/XMLASAX/XmlALevel.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

namespace {

using Hierarchies = std::vector<RefCnt<XmlAHierarchy>>;
using Levels = std::vector<RefCnt<XmlALevel>>;

constexpr std::string_view kOfHierarchies = "<RequestType>MDSCHEMA_HIERARCHIES</RequestType>";
constexpr std::string_view kOfLevels = "<RequestType>MDSCHEMA_LEVELS</RequestType>";

/// Names are escaped, so no name can contain an element.
bool IsOf(std::string_view type, const NarrowString& request) {
  return request.view().find(type) != std::string_view::npos;
}

/// Reads a reply like the import, which normalises its XML declaration before. The parser accepts
/// nearly all texts as they are. Changing this one would copy it, because others share it.
void ReadShared(NarrowString reply, const ProviderRules& rules, ReplyReader& reader,
                const std::function<void()>& consume) {
  try {
    return reader.Read(reply, String(), consume);
  } catch (const ErrorMessage&) {
    NormaliseDeclaration(reply, rules.prependsDeclaration);
  }
  reader.Read(std::move(reply), String(), consume);
}

/// What a request asks for.
struct Subject {
  String catalog;
  String cube;
  String dataSourceInfo;
  String hierarchy;

  CubePlace Place() const { return {catalog, cube, dataSourceInfo}; }
};

Subject SubjectOf(const NarrowString& request, ReplyReader& reader) {
  Subject subject;
  const struct {
    const wchar_t* name;
    String& value;
  } kElements[] = {{XmlASaxDefsNameSpace::CatalogName, subject.catalog},
                   {L"CUBE_NAME", subject.cube},
                   {L"DataSourceInfo", subject.dataSourceInfo},
                   {L"HIERARCHY_UNIQUE_NAME", subject.hierarchy}};
  reader.Read(request, String(), [&] {
    while (const RefCnt<SAX2XmlElement> element = reader.Next())
      for (const auto& [name, value] : kElements)
        if (element->GetLocalName() == name) value = element->GetValue();
  });
  return subject;
}

/// The requests after the hierarchies, one at a time: with a million rows, all of them would take
/// gigabytes.
class AfterHierarchies {
 public:
  AfterHierarchies(Subject subject, Hierarchies rows, const ProviderRules& rules, bool hasLog)
      : m_subject(std::move(subject)),
        m_rows(std::move(rows)),
        m_rules(rules),
        m_needsDimensions(hasLog) {}

  bool operator()(NarrowString& body) {
    if (std::exchange(m_needsDimensions, false))
      return Take(Requests::Dimensions(m_builder, kDimensionsTitle, m_subject.Place()), body) ||
             (*this)(body);
    while (m_step < kSteps * m_rows.size()) {
      const std::size_t number = m_step / kSteps;
      const bool isLastStep = ++m_step % kSteps == 0;
      const RefCnt<XmlAHierarchy> row = m_rows[number];
      if (isLastStep) m_rows[number] = {};
      if (SkipReason(*row, m_rules) != 0) continue;
      if (isLastStep) {
        if (Take(Requests::Levels(m_builder, m_subject.Place(), row->GetUniqueName()), body))
          return true;
      } else if (NeedsMemberLookup(*row, m_rules) &&
                 Take(Requests::Members(m_builder, m_subject.Place(), row->GetUniqueName(),
                                        row->GetDefaultMember()),
                      body)) {
        return true;
      }
    }
    return false;
  }

 private:
  static constexpr std::size_t kSteps = 2;  // of a row: the default member, the levels

  /// False if the request is too long to be sent.
  static bool Take(DiscoverRequest&& request, NarrowString& body) {
    if (request.isTooLong) return false;
    body = std::move(request.body);
    return true;
  }

  const Subject m_subject;
  Hierarchies m_rows;
  const ProviderRules& m_rules;
  bool m_needsDimensions;
  XmlASoapRequest m_builder;
  std::size_t m_step = 0;  // of all rows
};

/// The requests after the levels of a hierarchy.
class AfterLevels {
 public:
  AfterLevels(Subject subject, Levels rows)
      : m_subject(std::move(subject)), m_rows(std::move(rows)) {}

  bool operator()(NarrowString& body) {
    while (m_next < m_rows.size()) {
      const RefCnt<XmlALevel> row = std::move(m_rows[m_next++]);
      DiscoverRequest request =
          Requests::Properties(m_builder, m_subject.Place(), m_subject.hierarchy,
                               row->GetDimensionUniqueName(), row->GetUniqueName());
      if (request.isTooLong) continue;
      body = std::move(request.body);
      return true;
    }
    return false;
  }

 private:
  const Subject m_subject;
  Levels m_rows;
  XmlASoapRequest m_builder;
  std::size_t m_next = 0;
};

template <class Source, class... Arguments>
HTTPPrediction::Requests Make(Arguments&&... arguments) {
  // A std::function is copied, but the requests exist once.
  const auto source = std::make_shared<Source>(std::forward<Arguments>(arguments)...);
  return [source](NarrowString& body) { return (*source)(body); };
}

}  // namespace

bool RequestPrediction::IsFollowed(const NarrowString& request) const {
  return IsOf(kOfHierarchies, request) || IsOf(kOfLevels, request);
}

bool RequestPrediction::IsAccepted(NarrowString reply) const {
  // Without the handlers of the host: the import will report what it rejects.
  ImportSettings settings;
  settings.limits = ImportSettings::Current().limits;
  const ImportSettings::Scope scope(settings);
  try {
    ReplyReader reader;
    ReadShared(std::move(reply), RulesFor(m_target), reader, [] {});
    return true;
  } catch (const ErrorMessage&) {
    return false;
  }
}

HTTPPrediction::Requests RequestPrediction::RequestsAfter(const NarrowString& request,
                                                          NarrowString reply) const {
  const ProviderRules& rules = RulesFor(m_target);
  ReplyReader reader;
  const auto next = [&] { return reader.Next(); };
  try {
    if (IsOf(kOfHierarchies, request)) {
      Hierarchies rows;
      ReadShared(std::move(reply), rules, reader, [&] {
        rows.clear();
        ReadRows(rows, next, [&] { return new XmlAHierarchy(m_target, m_cli); });
      });
      return Make<AfterHierarchies>(SubjectOf(request, reader), std::move(rows), rules, m_hasLog);
    }
    if (!IsOf(kOfLevels, request)) return {};
    Levels rows;
    ReadShared(std::move(reply), rules, reader, [&] {
      rows.clear();
      ReadRows(rows, next, [&] { return new XmlALevel(m_target, m_cli); });
    });
    return Make<AfterLevels>(SubjectOf(request, reader), std::move(rows));
  } catch (const ErrorMessage&) {
    return {};  // the import will report it
  }
}
