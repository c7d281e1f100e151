// Many import objects at once, each on its own thread. Every operation returns what it returns
// alone, with short and long replies mixed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <thread>

#include "ExemptServerSupport.h"
#include "NetworkSupport.h"
#include "OperationsSupport.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"

namespace reliability {
namespace {
namespace manyobjects {

constexpr std::size_t kObjects = 32;

/// Rows that every operation accepts. `rows` decides the reply's length.
std::string Rows(std::size_t rows) {
  std::string text;
  for (std::size_t i = 0; i < rows; ++i) {
    const std::string name = "name " + std::to_string(i);
    text += "<row><MEASURE_NAME>" + name + "</MEASURE_NAME><CUBE_NAME>" + name +
            "</CUBE_NAME><VARIABLE_NAME>" + name + "</VARIABLE_NAME><LEVEL_NUMBER>" +
            std::to_string(i) + "</LEVEL_NUMBER></row>";
  }
  return support::RowsetReply(text);
}

/// The operations of one object, and its server.
struct Task {
  const Kind& kind;
  std::string url;
  std::vector<std::size_t> operations;  // indexes into kOperations, in the order of use
};

std::vector<Outcome> RunAll(const Task& task) {
  Subject subject(task.kind, task.url);
  std::vector<Outcome> outcomes;
  for (const std::size_t number : task.operations) {
    Outputs outputs;
    outcomes.push_back(OutcomeOf(outputs, [&] { kOperations[number].run(subject, outputs); }));
  }
  return outcomes;
}

TEST(ManyObjects, ConcurrentResultsEqualSequentialResults) {
  ExemptServer samples;
  const std::string shortReply = Rows(2);
  const std::string longReply = Rows(support::kIsSanitized ? 2000 : 20000);
  ExemptServer rows([&](loopback::Connection& wire, const loopback::Request& request) {
    // Short and long replies alternate on one connection, by request type.
    const bool isLong =
        request.Target() == "/long" && request.body.find("MDSCHEMA_MEASURES") != std::string::npos;
    wire.Send(loopback::Answer(isLong ? longReply : shortReply));
  });
  std::vector<Task> tasks;
  for (std::size_t i = 0; i < kObjects; ++i) {
    const Kind& kind = kKinds[i % std::size(kKinds)];
    Task task{kind, i % 4 == 3 ? rows.Url("/long") : samples.Url(kind.path), {}};
    // Each object starts with another operation, so that different operations overlap.
    for (std::size_t j = 0; j < kOperations.size(); ++j)
      task.operations.push_back((i + j) % kOperations.size());
    tasks.push_back(std::move(task));
  }
  std::vector<std::vector<Outcome>> alone;
  for (const Task& task : tasks) alone.push_back(RunAll(task));
  std::size_t records = 0;
  for (const auto& outcomes : alone)
    for (const Outcome& outcome : outcomes) records += outcome.records.size();
  EXPECT_GT(records, 10 * kObjects);

  const int rounds = support::Effort(2, 50);
  std::size_t done = 0;
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::vector<Outcome>> together(kObjects);
    std::latch start(kObjects);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kObjects; ++i)
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        together[i] = RunAll(tasks[i]);
      });
    for (std::thread& thread : threads) thread.join();
    for (std::size_t i = 0; i < kObjects; ++i) {
      ASSERT_EQ(together[i].size(), alone[i].size());
      for (std::size_t j = 0; j < alone[i].size(); ++j, ++done) {
        EXPECT_TRUE(together[i][j] == alone[i][j])
            << kOperations[tasks[i].operations[j]].name << " of object " << i << ": "
            << ToText(together[i][j]).substr(0, 2000);
      }
    }
  }
  network::Figure(network::Text(kObjects, " import objects on as many threads"),
                  network::Text(done, " operations, each as alone"));
}

}  // namespace manyobjects
}  // namespace
}  // namespace reliability
