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

void AddDetails(std::vector<std::string>& list, const std::vector<String>& details) {
  for (const String& detail : details) list.push_back(kFaultDetail + OneLine(Utf8(detail)));
}

std::string Shown(const String& subject) { return OneLine(Utf8(Shortened(subject))); }

/// Inserts a text behind the number in brackets at the begin of a message, if there is one.
void InsertAfterNumber(std::string& message, const std::string& text) {
  const std::size_t end = message.starts_with('[') ? message.find("] ") : std::string::npos;
  message.insert(end == std::string::npos ? 0 : end + 2, text);
}

}  // namespace

String HierarchyOfSubject(const String& subject) {
  constexpr String::View kBefore = L", hierarchy ";
  constexpr String::View kFollowing[] = {L", level \"", L", member \""};
  const String::View text = subject.view();
  const std::size_t at = text.find(kBefore);
  if (at == text.npos) return L"unknown";
  String::View name = text.substr(at + kBefore.size());
  for (const String::View behind : kFollowing) name = name.substr(0, name.rfind(behind));
  return Shortened(String(name));
}

Operation::Operation() { g_current = this; }
Operation::~Operation() { g_current = nullptr; }
Operation* Operation::Current() { return g_current; }

void Operation::RecordWarnings() {
  if (warnings.size() <= m_recorded) return;
  if (m_wasReceived && m_observer && m_subject.view().starts_with(kDefaultMember))
    m_observer->OnFailure(m_subject, String(warnings.view().substr(m_recorded)));
  m_parts.push_back({warnings.size(), m_subject, m_faultDetails});
  m_recorded = warnings.size();
}

void Operation::OnExchange(const HTTPExchangeInfo& info, RequestObserver& observer) {
  RecordWarnings();
  m_faultDetails.clear();
  m_subject = info.subject;
  m_isUnreachable = info.isUnreachable;
  m_wasReceived = info.ok || !info.reply.empty();
  m_observer = &observer;
}

bool Operation::End(Messages& messages) {
  RecordWarnings();
  AddLines(messages.errors, errors);
  if (!errors.empty() && !MustStop()) {
    AddDetails(messages.errors, m_faultDetails);
    messages.isUnreachable |= m_isUnreachable;
    if (!m_subject.empty())
      messages.errors.push_back(std::string(kFailedRequest) + Shown(m_subject));
    if (m_wasReceived && m_observer) m_observer->OnFailure(m_subject, errors);
  }
  std::size_t begin = 0;
  for (const auto& [end, subject, details] : m_parts) {
    const std::size_t first = messages.warnings.size();
    AddLines(messages.warnings, warnings.view().substr(begin, end - begin));
    if (subject.view().starts_with(kDefaultMember) && messages.warnings.size() > first)
      InsertAfterNumber(messages.warnings.back(), "The default member of the hierarchy " +
                                                      OneLine(Utf8(HierarchyOfSubject(subject))) +
                                                      " is unknown: ");
    if (messages.warnings.size() > first) AddDetails(messages.warnings, details);
    begin = end;
  }
  return errors.empty();
}

void OperationObserver::OnExchange(const HTTPExchangeInfo& info) {
  try {
    if (Operation* const operation = Operation::Current()) operation->OnExchange(info, m_next);
  } catch (const std::bad_alloc&) {
    // Out of memory: messages lack the name of the request.
  }
  m_next.OnExchange(info);
}
