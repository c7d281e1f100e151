#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "SampleProvider.h"
#include "Utility/Generic/ServerInfo.h"

namespace inprocess {

/// One recorded reply.
struct Reply {
  std::string name;         ///< its origin, for messages
  std::string requestType;  ///< the request type that it answers
  ServerInfo::TargetType target = ServerInfo::kTessera;
  std::string body;
};

struct SampleKind {
  sample::Kind kind;
  ServerInfo::TargetType target;
};
inline constexpr std::array kSampleKinds{
    SampleKind{sample::Kind::kAnalysisServices, ServerInfo::kAnalysisServices2005},
    SampleKind{sample::Kind::kSapBw, ServerInfo::kSAP_BW35},
    SampleKind{sample::Kind::kTamarind, ServerInfo::kTamarind7},
};

/// True for kinds whose replies have no XML declaration.
bool IsBare(ServerInfo::TargetType target);

/// The text of the request's RequestType element.
std::string_view RequestTypeOf(std::string_view request);

/// All distinct replies of the sample provider to a full import of each kind, and a fault of each
/// kind.
const std::vector<Reply>& SampleReplies();

/// The reply with only its first `rows` rows, and without the schema.
std::string Shortened(const std::string& body, int rows);

/// The shortest reply with a row for this request type and kind, reduced to that row.
const Reply& ShortReply(ServerInfo::TargetType target, std::string_view requestType);

/// The replies in the folder named by XMLA_RECORDED_REPLIES, with an envelope around bare rows.
/// Empty if the variable is not set.
std::vector<Reply> RecordedReplies();

}  // namespace inprocess
