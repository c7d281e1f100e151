#include "SUXMLASAXImportLog.h"

#include <algorithm>
#include <cwchar>
#include <memory>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

namespace ImportLog {
namespace {

constexpr std::size_t kHeadingCapacity = 256;  // characters, including the terminating null
constexpr std::size_t kNameCapacity = 512;
constexpr int kTimeDigits = 3;

using BaseStringUtil::ToUTF8;

VXDateTime Now() {
  VXDateTime now;
  VXDateTime::GetCurrDateTime(now);
  return now;
}

void Write(AFile& file, const NarrowString& bytes) {
  file.WriteBytes(bytes.data(), bytes.size());
  file.Flush();
}

/// A file that does not exceed maxLogBytes. Its last line then names the limit.
class LimitedFile final : public AFile {
 public:
  void Open(const String& name, unsigned int mode) override {
    m_file->Open(name, mode);
    m_name = name;
  }

  bool WriteBytes(const char* bytes, std::size_t count) override {
    if (m_isFull) return false;
    const ImportSettings& settings = ImportSettings::Current();
    const std::uint64_t limit = settings.limits.maxLogBytes;
    if (limit == 0 || (count <= limit && m_size <= limit - count)) {
      m_size += count;
      const bool isWritten = m_file->WriteBytes(bytes, count);
      if (!isWritten) m_hasFailed = true;
      return isWritten;
    }
    m_isFull = true;
    const String reason = L"it would be longer than " + BaseStringUtil::StringFrom(limit) +
                          L" bytes (limit maxLogBytes)";
    const NarrowString line = ToUTF8(DELIMIT_LINE + String(L"The import log ends here: ") + reason +
                                     L"; the import goes on\n");
    const bool isWritten = m_file->WriteBytes(line.data(), line.size());
    // m_file reports its first failed write itself.
    if (isWritten && !m_hasFailed && settings.onLogFailure) settings.onLogFailure(m_name, reason);
    return false;
  }

  bool Flush() override { return m_file->Flush() && !m_isFull; }
  bool Delete() override { return m_file->Delete(); }

 private:
  Heap<AFile> m_file = MakeFile();
  String m_name;
  std::uint64_t m_size = 0;
  bool m_hasFailed = false;
  bool m_isFull = false;
};

String SecondsBetween(const VXDateTime& from, const VXDateTime& to) {
  const double seconds = VXDateTime::DifferenceInSeconds(to, from);
  // The clock may be set back.
  return BaseStringUtil::StringFrom(seconds > 0 ? static_cast<std::uint64_t>(seconds) : 0);
}

String FileName(const VXDateTime& now) {
  const String directory = SUSystemConfig::GetSystemConfig().GetLogDirectory();
  wchar_t name[kNameCapacity] = {};
  const int length =
      std::swprintf(name, kNameCapacity, L"%ls%ls%ls%04hd_%02hu_%02hu_%02hu_%02hu_%02hu%ls",
                    directory.c_str(), L"/", L"OT_xmla_", now.GetYear(), now.GetMonth(),
                    now.GetDay(), now.GetHour(), now.GetMinute(), now.GetSecond(), _S_LOG_EXT);
  if (length < 0) {
    SUGThrow(
        ErrorMessage(L"The import log's name is too long: choose a shorter log directory than " +
                     directory),
        L"SUXMLASAXImportLog.cpp", __LINE__);
  }
  return name;
}

/// True for characters that break a line or control a terminal.
bool IsControl(wchar_t character) {
  return character < 0x20 || (character >= 0x7F && character <= 0x9F) || character == 0x2028 ||
         character == 0x2029;
}

/// Length of the logged part of the reply. It does not end inside a character.
std::size_t LoggedLength(std::string_view reply) {
  const std::uint64_t limit = ImportSettings::Current().limits.maxLoggedReplyBytes;
  return limit == 0 ? reply.size() : BaseStringUtil::UTF8PrefixLength(reply, limit);
}

}  // namespace

Heap<AFile> Open(const String& url, const String& user, ServerInfo::TargetType target) {
  const VXDateTime now = Now();
  Heap<AFile> file = std::make_unique<LimitedFile>();
  file->Open(FileName(now), AFile::kModeWriteFromEmpty);
  file->WriteBytes("\xEF\xBB\xBF", 3);
  Write(*file, ToUTF8(FormatLine(kHeadingCapacity,
                                 L"%s, XmlA Import Logging \n\tTarget Service:\t%s\n\tURL:\t%s\n"
                                 L"\tUser:\t%s\r\n",
                                 {now.ToString(kTimeDigits),
                                  ServerInfo::GetTargetNameFromEnum(target), url, user})));
  return file;
}

void WriteEntry(AFile& file, const String& title, const NarrowString& request,
                const NarrowString& reply, const Times& times) {
  const NarrowString head =
      ToUTF8(DELIMIT_LINE + title + L"\n" + times.started.ToString(kTimeDigits) + L"\t" +
             times.answered.ToString(kTimeDigits) + L"\t" + times.finished.ToString(kTimeDigits) +
             L"\nRequesting time in seconds: " + SecondsBetween(times.started, times.answered) +
             L"\tParsing time in seconds: " + SecondsBetween(times.answered, times.finished) +
             L"\n======== Request ===========\n");
  const std::size_t logged = LoggedLength(reply.view());
  NarrowString missing;
  if (logged < reply.size()) {
    missing = ToUTF8(L"\n(" + BaseStringUtil::StringFrom(std::uint64_t{reply.size() - logged}) +
                     L" more bytes of the response are not logged: limit maxLoggedReplyBytes)");
  }
  const std::string_view parts[] = {head.view(),
                                    request.view(),
                                    "\n++++++++ Response ++++++++++\n",
                                    reply.view().substr(0, logged),
                                    missing.view(),
                                    "\n"};
  std::size_t size = 0;
  for (const std::string_view part : parts) size += part.size();
  NarrowString entry;
  entry.reserve(size);
  for (const std::string_view part : parts) entry.append(part);
  BaseStringUtil::ReplaceIllFormedUTF8(entry);
  Write(file, entry);
}

void Close(AFile& file) {
  Write(file,
        ToUTF8(DELIMIT_LINE + String(L"Import ends at ") + Now().ToString(kTimeDigits) + L"\n"));
}

String FormatLine(std::size_t capacity, const wchar_t* format, const VXStringVector& arguments) {
  String text;
  auto argument = arguments.begin();
  const String::View all(format);
  std::size_t from = 0;
  for (std::size_t at; (at = all.find(L"%s", from)) != String::npos; from = at + 2) {
    text.append(all.substr(from, at - from));
    if (argument == arguments.end() || text.size() >= capacity) continue;
    for (const wchar_t character : (argument++)->view().substr(0, capacity))
      text += IsControl(character) ? L' ' : character;
  }
  text.append(all.substr(from));
  return text.substr(0, capacity - 1);
}

}  // namespace ImportLog
