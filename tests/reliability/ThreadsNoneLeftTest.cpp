// The system cannot create a thread.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>

#include "ExemptServerSupport.h"
#include "OperationsSupport.h"
#include "support/FailingAllocation.h"

namespace {

thread_local bool g_hasNone = false;

}  // namespace

#if XMLA_OWN_ALLOCATOR
// Interposes the C library's function: the loader finds this definition first.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
  using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
  return g_hasNone ? EAGAIN : next(thread, attributes, run, argument);
}
#endif

namespace reliability {
namespace {

TEST(NoThreadLeft, IsAnErrorAndTheObjectWorksLater) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "threads cannot be made to fail";
  ExemptServer server;
  for (const Kind& kind : kKinds)
    for (const Operation& operation : kOperations) {
      if (std::string(operation.name).find("create") != std::string::npos) continue;
      Subject subject(kind, server.Url(kind.path));
      Outputs outputs;
      g_hasNone = true;
      const Outcome none = OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
      g_hasNone = false;
      if (std::string(operation.name) != "SetupConnInfo") {  // which needs none
        EXPECT_THAT(none.thrown + none.errors,
                    testing::HasSubstr("The system has no thread left to read the server's reply"))
            << operation.name;
      }
      Subject fresh(kind, server.Url(kind.path));
      Outputs again;
      Outputs expected;
      const Outcome usable = OutcomeOf(again, [&] { operation.run(subject, again); });
      EXPECT_TRUE(usable == OutcomeOf(expected, [&] { operation.run(fresh, expected); }))
          << operation.name << ToText(usable);
    }
}

}  // namespace
}  // namespace reliability
