#include "connection/Operation.h"

#include <new>
#include <string>
#include <string_view>

#include "base/Interrupt.h"
#include "base/Text.h"

namespace {

// Only for this request type, a failure is a warning.
constexpr String::View kDefaultMember = L"MDSCHEMA_MEMBERS";

thread_local Operation* g_current = nullptr;

void AddLines(std::vector<std::string>& list, String::View text) {
  for (std::string& line : Lines(String(text))) list.push_back(std::move(line));
}

std::string FailedRequest(const String& subject) {
  return "the failed request was " + OneLine(Utf8(Shortened(subject)));
}

}  // namespace

Operation::Operation() { g_current = this; }
Operation::~Operation() { g_current = nullptr; }
Operation* Operation::Current() { return g_current; }

void Operation::RecordWarnings() {
  if (warnings.size() <= m_recorded) return;
  m_parts.emplace_back(warnings.size(), m_subject);
  m_recorded = warnings.size();
}

void Operation::OnExchange(const HTTPExchangeInfo& info) {
  RecordWarnings();
  m_subject = info.subject;
}

bool Operation::End(Messages& messages) {
  RecordWarnings();
  AddLines(messages.errors, errors);
  if (!errors.empty() && !m_subject.empty() && !MustStop())
    messages.errors.push_back(FailedRequest(m_subject));
  std::size_t begin = 0;
  for (const auto& [end, subject] : m_parts) {
    AddLines(messages.warnings, warnings.view().substr(begin, end - begin));
    if (subject.view().starts_with(kDefaultMember) && !messages.warnings.empty())
      messages.warnings.back() += " (" + FailedRequest(subject) + ")";
    begin = end;
  }
  return errors.empty();
}

void OperationObserver::OnExchange(const HTTPExchangeInfo& info) {
  try {
    if (Operation* const operation = Operation::Current()) operation->OnExchange(info);
  } catch (const std::bad_alloc&) {
    // Out of memory: messages lack the name of the request.
  }
  m_next.OnExchange(info);
}
