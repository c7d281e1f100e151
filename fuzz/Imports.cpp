// Fuzzes the host's import operations, for each kind of server. The input replaces some or all
// replies of the server.

#include <array>
#include <memory>

#include "Input.h"
#include "inprocess/ImportTrial.h"

namespace {

constexpr std::array kTargets{
    ServerInfo::kAnalysisServices2000,
    ServerInfo::kAnalysisServices2005,
    ServerInfo::kAnalysisServices2012,
    ServerInfo::kSAP_BW,
    ServerInfo::kSAP_BW35,
    ServerInfo::kTamarind7,
    ServerInfo::kTamarind9,
    ServerInfo::kTamarind11_1_2_3_500,
    ServerInfo::kTessera,
};

inprocess::ImportTrial& TrialFor(std::size_t index) {
  static std::array<std::unique_ptr<inprocess::ImportTrial>, kTargets.size()> trials;
  if (!trials[index]) trials[index] = std::make_unique<inprocess::ImportTrial>(kTargets[index]);
  return *trials[index];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t index = input.Byte() % kTargets.size();
  const auto& operation =
      support::ImportOperations()[input.Byte() % support::ImportOperations().size()];
  const std::vector<std::string_view> replies = fuzz::Parts(input.Rest(), fuzz::kNextReply);
  const std::string violation =
      TrialFor(index).Try(operation, [&](std::string_view, std::size_t number) {
        return number < replies.size() ? std::string(replies[number]) : std::string();
      });
  fuzz::Require(violation.empty(), violation, input.Rest());
  return 0;
}
