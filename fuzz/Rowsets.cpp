// Fuzzes each rowset reader, for each kind of server.

#include <memory>

#include "Input.h"
#include "inprocess/Trial.h"

namespace {

std::vector<std::unique_ptr<inprocess::Trial>>& Trials() {
  static auto trials = [] {
    std::vector<std::unique_ptr<inprocess::Trial>> all;
    for (const inprocess::SampleKind& kind : inprocess::kSampleKinds)
      for (const inprocess::Exchange& exchange : inprocess::Exchanges())
        all.push_back(std::make_unique<inprocess::Trial>(kind.target, exchange));
    return all;
  }();
  return trials;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  inprocess::Trial& trial = *Trials()[input.Byte() % Trials().size()];
  const std::string violation = trial.Try(input.Rest());
  fuzz::Require(violation.empty(), violation, input.Rest());
  return 0;
}
