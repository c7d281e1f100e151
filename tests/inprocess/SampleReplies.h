#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "SampleProvider.h"
#include "Utility/Generic/ServerInfo.h"

namespace inprocess {

/// One reply, as it goes over the wire.
struct Reply {
  std::string name;         ///< for messages: where it comes from
  std::string requestType;  ///< what it answers
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

/// True for the kinds whose replies come without XML declaration.
bool IsBare(ServerInfo::TargetType target);

/// The text of the request's RequestType element.
std::string_view RequestTypeOf(std::string_view request);

/// All distinct replies of the sample provider to a whole import of everything that it serves, of
/// all kinds, and a fault of each kind.
const std::vector<Reply>& SampleReplies();

/// The reply with its first rows alone and without the schema in front of them, which every reply
/// repeats.
std::string Shortened(const std::string& body, int rows);

/// The shortest of them that has a row, for each request type of a kind; shortened to that one.
const Reply& ShortReply(ServerInfo::TargetType target, std::string_view requestType);

/// The replies in the folder that XMLA_RECORDED_REPLIES names, bare rows in an envelope; none if
/// the variable is not set.
std::vector<Reply> RecordedReplies();

}  // namespace inprocess
