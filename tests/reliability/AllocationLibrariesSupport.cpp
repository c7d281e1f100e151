// Routes the allocations of libxml2 and libcurl through TracedMemory, from before the first test
// on.

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include "support/FailingAllocation.h"

namespace {

class TracedLibraries : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(xmlMemSetup(&TracedMemory::Free, &TracedMemory::Allocate, &TracedMemory::Reallocate,
                          &TracedMemory::Duplicate),
              0);
    xmlInitParser();
    // libcurl counts initialisations, so these functions stay in use during this object's life.
    ASSERT_EQ(curl_global_init_mem(CURL_GLOBAL_DEFAULT, &TracedMemory::Allocate,
                                   &TracedMemory::Free, &TracedMemory::Reallocate,
                                   &TracedMemory::Duplicate, &TracedMemory::AllocateCleared),
              CURLE_OK);
  }
  void TearDown() override { curl_global_cleanup(); }
};

[[maybe_unused]] testing::Environment* const kTracedLibraries =
    testing::AddGlobalTestEnvironment(new TracedLibraries);

}  // namespace
