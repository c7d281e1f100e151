#include "Utility/Generic/ImportOperation.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"

namespace {

thread_local ImportOperation* g_operation = nullptr;

}  // namespace

ImportOperation::ImportOperation()
    : m_previous(g_operation),
      m_maxRequests(ImportSettings::Current().limits.maxRequests),
      m_maxRows(ImportSettings::Current().limits.maxRows),
      m_maxReplyBytes(ImportSettings::Current().limits.maxTotalReplyBytes),
      m_deadlineSeconds(ImportSettings::Current().limits.deadlineSeconds) {
  if (m_deadlineSeconds > 0)
    m_deadline = std::chrono::steady_clock::now() + std::chrono::seconds(m_deadlineSeconds);
  g_operation = this;
}

ImportOperation::~ImportOperation() {
  for (const auto& work : m_atEnd) work();
  g_operation = m_previous;
}

ImportOperation* ImportOperation::Current() noexcept { return g_operation; }

void ImportOperation::CountRequest() {
  CheckReplyBytes();
  if (m_maxRequests == 0 || m_requests++ < m_maxRequests) return;
  End(L"The operation needs more than " + BaseStringUtil::StringFrom(m_maxRequests) +
      L" requests to the server (limit maxRequests); choose a smaller part of its metadata, or "
      L"raise the limit");
}

bool ImportOperation::TryCountRequest() noexcept {
  const bool hasTooManyBytes = m_maxReplyBytes != 0 && m_replyBytes > m_maxReplyBytes;
  if (hasTooManyBytes || (m_maxRequests != 0 && m_requests >= m_maxRequests)) return false;
  ++m_requests;
  return true;
}

void ImportOperation::CountRow() {
  if (m_maxRows == 0 || m_rows++ < m_maxRows) return;
  End(L"The replies have more than " + BaseStringUtil::StringFrom(m_maxRows) +
      L" rows in all (limit maxRows); choose a smaller part of the server's metadata, or raise the "
      L"limit");
}

void ImportOperation::CheckReplyBytes() {
  if (m_maxReplyBytes == 0 || m_replyBytes <= m_maxReplyBytes) return;
  End(L"The replies have more than " + BaseStringUtil::StringFrom(m_maxReplyBytes) +
      L" bytes in all (limit maxTotalReplyBytes); choose a smaller part of the server's metadata, "
      L"or raise the limit");
}

void ImportOperation::End(const String& reason) {
  m_isOver = true;
  SUGThrow(ErrorMessage(reason), L"ImportOperation.cpp", __LINE__);
}

String ImportOperation::DeadlineText() const {
  return L"The operation took longer than " +
         BaseStringUtil::StringFrom(std::uint64_t{m_deadlineSeconds}) +
         (m_deadlineSeconds == 1 ? L" second" : L" seconds") +
         L" (limit deadlineSeconds); choose a smaller part of the server's metadata, or raise the "
         L"limit";
}
