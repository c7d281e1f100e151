#include "inprocess/SampleReplies.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "DiscoverService.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/String.h"
#include "inprocess/Operations.h"
#include "inprocess/Server.h"
#include "support/RecordedReplies.h"

namespace inprocess {
namespace {

/// Imports everything from a sample provider and records the replies.
void Gather(const SampleKind& kind, std::vector<Reply>& replies) {
  std::set<std::string> known;
  const std::string kindName(sample::NameOfKind(kind.kind));
  SetServer([&](std::string_view request) {
    const sample::HttpReply reply = sample::Answer(kind.kind, request);
    if (known.insert(reply.body).second) {
      const std::string type(RequestTypeOf(request));
      replies.push_back({kindName + " " + type + " " + std::to_string(known.size()), type,
                         kind.target, reply.body});
    }
    return Answer{reply.body, reply.status, reply.contentType};
  });
  const Heap<OTXMLAImportAPI> import = MakeImport(kind.target);
  String errors;
  String warnings;
  std::vector<OTDataSource> sources;
  import->GetDataSourceInfo(sources, errors, warnings);
  for (const OTDataSource& source : sources)
    for (const OTCatalog& catalog : source.m_catalogs)
      for (const OTCube& cube : catalog.m_cubes) {
        import->SetImportChoiceInfo(source.m_dataSourceName, catalog.m_catalogName, cube.first);
        for (const support::ImportOperation& operation : support::ImportOperations()) {
          const bool isOfTree = std::string_view(operation.name).starts_with("GetDataSource");
          const bool isOfBW = std::string_view(operation.name) == "GetSAPVariables";
          if (isOfTree || (isOfBW && kind.kind != sample::Kind::kSapBw)) continue;
          try {
            support::Outputs outputs;
            operation.run(*import, outputs);
          } catch (const ErrorMessage&) {
            // This fault is expected; its reply is recorded.
          }
        }
      }
  SetServer([](std::string_view) { return Answer{"", 503, "text/plain"}; });
}

}  // namespace

bool IsBare(ServerInfo::TargetType target) {
  return target == ServerInfo::kAnalysisServices2005 ||
         target == ServerInfo::kAnalysisServices2008 || target == ServerInfo::kAnalysisServices2012;
}

std::string_view RequestTypeOf(std::string_view request) {
  constexpr std::string_view kOpen = "<RequestType>";
  const std::size_t found = request.find(kOpen);
  if (found == std::string_view::npos) return {};
  const std::string_view rest = request.substr(found + kOpen.size());
  return rest.substr(0, rest.find('<'));
}

const std::vector<Reply>& SampleReplies() {
  static const std::vector<Reply> replies = [] {
    std::vector<Reply> all;
    for (const SampleKind& kind : kSampleKinds) Gather(kind, all);
    return all;
  }();
  return replies;
}

std::string Shortened(const std::string& body, int rows) {
  constexpr std::string_view kSchemaEnd = "</xsd:schema>";
  constexpr std::string_view kRowEnd = "</row>";
  std::string text = body;
  const std::size_t begin = text.find("<xsd:schema");
  const std::size_t end = text.find(kSchemaEnd);
  if (begin != std::string::npos && end != std::string::npos)
    text.erase(begin, end + kSchemaEnd.size() - begin);
  std::size_t kept = 0;
  for (int i = 0; i < rows; ++i) {
    const std::size_t found = text.find(kRowEnd, kept);
    if (found == std::string::npos) return text;
    kept = found + kRowEnd.size();
  }
  const std::size_t last = text.rfind(kRowEnd);
  if (last != std::string::npos && last >= kept) text.erase(kept, last + kRowEnd.size() - kept);
  return text;
}

const Reply& ShortReply(ServerInfo::TargetType target, std::string_view requestType) {
  using Chosen = std::map<std::string, Reply, std::less<>>;
  static const std::map<ServerInfo::TargetType, Chosen> chosen = [] {
    std::map<ServerInfo::TargetType, Chosen> all;
    for (const Reply& reply : SampleReplies()) {
      if (reply.body.find("<row>") == std::string::npos) continue;
      const std::string body = Shortened(reply.body, 1);
      Reply& best = all[reply.target][reply.requestType];
      if (best.body.empty() || body.size() < best.body.size())
        best = {reply.name, reply.requestType, reply.target, body};
    }
    return all;
  }();
  // Not every kind supports every rowset.
  static const Reply none{"no rows", "", ServerInfo::kTessera, "<root/>"};
  const Chosen& ofTarget = chosen.at(target);
  const auto found = ofTarget.find(requestType);
  return found == ofTarget.end() ? none : found->second;
}

std::vector<Reply> RecordedReplies() {
  std::vector<Reply> replies;
  const std::filesystem::path folder = support::RecordedReplies();
  if (folder.empty()) return replies;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string file = entry.path().filename().string();
    if (!file.ends_with(".xml")) continue;
    std::ifstream stream(entry.path(), std::ios::binary);
    std::string body{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (file.ends_with(".row.xml") || file.ends_with(".fragment.xml"))
      body = "<return><root>" + body + "</root></return>";
    const std::string server = entry.path().parent_path().filename().string();
    const ServerInfo::TargetType target = server == "sap-bw" ? ServerInfo::kSAP_BW35
                                          : server.starts_with("ssas")
                                              ? ServerInfo::kAnalysisServices2005
                                              : ServerInfo::kTessera;
    replies.push_back({server + "/" + file, file.substr(0, file.find('-')), target, body});
  }
  std::sort(replies.begin(), replies.end(),
            [](const Reply& a, const Reply& b) { return a.name < b.name; });
  return replies;
}

}  // namespace inprocess
