#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "SUXMLASAXNameCache.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/XMLASAX/XmlACubeVariableUtility.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

/// Counts the rows of one reply.
class RowCount {
 public:
  /// Throws ErrorMessage if the reply or the operation has too many rows.
  void Add() {
    if (m_operation) m_operation->CountRow();
    if (m_max == 0 || m_rows++ < m_max) return;
    SUGThrow(ErrorMessage(L"The reply has more than " + BaseStringUtil::StringFrom(m_max) +
                          L" rows (limit maxRowsPerReply); choose a smaller part of the server's "
                          L"metadata, or raise the limit"),
             L"SUXMLASAXRowsetReaders.cpp", __LINE__);
  }

 private:
  ImportOperation* const m_operation = ImportOperation::Current();
  const std::uint64_t m_max = ImportSettings::Current().limits.maxRowsPerReply;
  std::uint64_t m_rows = 0;
};

template <class Row>
auto FindColumn(const Row& row, const String& name) {
  return row.FindColumn(name);
}

inline auto FindColumn(const XmlACubeVariable&, const String& name) {
  return XmlACubeVariableUtility::FindColumn(name);
}

/// Reads the rows of a reply: sets the columns of the current row object. The row element comes
/// after its columns and completes the row object. `next()` returns the next element of the reply,
/// `make()` a new row object.
template <class Row, class Next, class Make>
void ReadRows(std::vector<RefCnt<Row>>& rows, Next next, Make make) {
  using BaseStringUtil::IsCaseInsensitiveMatch;
  RefCnt<Row> row(make());
  using Setter = decltype(FindColumn(*row, String()));
  struct Meaning {
    bool endsRow;
    Setter set;  // null: a schema element or an unknown column
  };
  NameCache<Meaning> meanings;
  const auto resolve = [&](const String& name) {
    if (IsCaseInsensitiveMatch(name, L"Row")) return Meaning{true, nullptr};
    return Meaning{false, IsSchemaElement(name) ? Setter() : FindColumn(*row, name)};
  };
  RowCount count;
  while (const RefCnt<SAX2XmlElement> element = next()) {
    const Meaning& meaning = meanings.Find(element->GetLocalName(), resolve);
    if (meaning.endsRow) {
      count.Add();
      rows.push_back(std::move(row));
      row = RefCnt<Row>(make());
    } else if (meaning.set) {
      meaning.set(*row, element->GetValue());
    }
  }
}
