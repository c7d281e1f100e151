#include "http/KerberosServiceTicket.h"

#include <dlfcn.h>
#include <gssapi/gssapi.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Longest wait between two checks for cancellation, which cannot wake the waiting thread.
constexpr std::chrono::milliseconds kPoll{40};
constexpr int kMaxThreads = 16;

/// Shared by all requests.
struct Threads {
  std::mutex mutex;
  std::condition_variable hasEnded;
  int count = 0;  // guarded by `mutex`
};

/// Never destroyed, because threads may run when static objects are.
Threads& AllThreads() {
  static auto* const threads = new Threads;
  return *threads;
}

/// One request. Its thread and its caller share it.
struct Request {
  std::string service;    // constant
  bool hasEnded = false;  // guarded by Threads::mutex, like the following
  std::string problem;
  OM_uint32 validSeconds = 0;
};

void AppendStatus(OM_uint32 status, int type, std::string& text) {
  OM_uint32 more = 0;
  do {
    OM_uint32 minor = 0;
    gss_buffer_desc part = GSS_C_EMPTY_BUFFER;
    if (GSS_ERROR(gss_display_status(&minor, status, type, GSS_C_NO_OID, &more, &part))) return;
    text += (text.empty() ? "" : ". ") + std::string(static_cast<char*>(part.value), part.length);
    gss_release_buffer(&minor, &part);
  } while (more != 0);
}

/// Does what libcurl does for Negotiate, and forgets the result: the ticket is then in the cache.
std::string AskForTicket(std::string service, OM_uint32& validSeconds) {
  // Of SPNEGO, 1.3.6.1.5.5.2.
  char spnego[] = "\x2b\x06\x01\x05\x05\x02";
  gss_OID_desc mechanism{sizeof spnego - 1, spnego};
  gss_buffer_desc text{service.size(), service.data()};
  OM_uint32 minor = 0;
  OM_uint32 ignored = 0;
  gss_name_t name = GSS_C_NO_NAME;
  gss_ctx_id_t context = GSS_C_NO_CONTEXT;
  gss_buffer_desc token = GSS_C_EMPTY_BUFFER;
  OM_uint32 major = gss_import_name(&minor, &text, GSS_C_NT_HOSTBASED_SERVICE, &name);
  if (!GSS_ERROR(major))
    major =
        gss_init_sec_context(&minor, GSS_C_NO_CREDENTIAL, &context, name, &mechanism,
                             GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG, 0, GSS_C_NO_CHANNEL_BINDINGS,
                             GSS_C_NO_BUFFER, nullptr, &token, nullptr, &validSeconds);
  std::string problem;
  if (GSS_ERROR(major)) {
    AppendStatus(major, GSS_C_GSS_CODE, problem);
    AppendStatus(minor, GSS_C_MECH_CODE, problem);
    if (problem.empty()) problem = "unknown error";
  }
  gss_release_buffer(&ignored, &token);
  gss_delete_sec_context(&ignored, &context, GSS_C_NO_BUFFER);
  gss_release_name(&ignored, &name);
  return problem;
}

void* Run(void* argument) noexcept {
  Threads& threads = AllThreads();
  const std::unique_ptr<std::shared_ptr<Request>> request(
      static_cast<std::shared_ptr<Request>*>(argument));
  std::string problem;
  OM_uint32 validSeconds = 0;
  try {
    problem = AskForTicket((*request)->service, validSeconds);
  } catch (...) {
    problem = "no memory";  // does not allocate
  }
  const std::lock_guard lock(threads.mutex);
  (*request)->problem.swap(problem);
  (*request)->validSeconds = validSeconds;
  (*request)->hasEnded = true;
  --threads.count;
  threads.hasEnded.notify_all();
  return nullptr;
}

/// The thread blocks all signals from its start, so no signal handler of the host runs on it.
bool Start(const std::shared_ptr<Request>& request, pthread_t& thread) {
  auto argument = std::make_unique<std::shared_ptr<Request>>(request);
  sigset_t all;
  sigfillset(&all);
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  const bool isStarted = pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                         pthread_create(&thread, &attributes, &Run, argument.get()) == 0;
  pthread_attr_destroy(&attributes);
  if (isStarted) static_cast<void>(argument.release());
  return isStarted;
}

/// Keeps this library loaded, and with it those that it uses.
void KeepLoaded() noexcept {
  Dl_info library{};
  if (dladdr(reinterpret_cast<const void*>(&Run), &library) == 0) return;
  if (void* const handle = dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE))
    dlclose(handle);
}

}  // namespace

KerberosServiceTicket KerberosServiceTicket::Get(const std::string& host,
                                                 std::uint32_t timeoutSeconds) {
  Threads& threads = AllThreads();
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeoutSeconds);
  const auto request = std::make_shared<Request>();
  request->service = "HTTP@" + host;
  KerberosServiceTicket result;
  std::unique_lock lock(threads.mutex);
  const auto await = [&](const auto& isReady) {
    while (!isReady()) {
      result.isStopped = IsThreadToStop();
      if (!result.isStopped && timeoutSeconds != 0 && Clock::now() >= deadline)
        result.problem = "No Kerberos server (KDC) has answered within " +
                         std::to_string(timeoutSeconds) +
                         (timeoutSeconds == 1 ? " second" : " seconds");
      if (result.isStopped || !result.problem.empty()) return false;
      threads.hasEnded.wait_for(lock, kPoll);
    }
    return true;
  };
  if (!await([&threads] { return threads.count < kMaxThreads; })) return result;
  pthread_t thread{};
  if (!Start(request, thread)) {
    result.problem = "the system has no thread left to ask the Kerberos server (KDC)";
    return result;
  }
  ++threads.count;
  if (await([&request] { return request->hasEnded; })) {
    result.problem.swap(request->problem);
    result.validSeconds = request->validSeconds;
    lock.unlock();
    pthread_join(thread, nullptr);
    return result;
  }
  lock.unlock();
  KeepLoaded();
  pthread_detach(thread);
  return result;
}

bool HTTPClientWrapper::IsKerberosThreadLeft() noexcept {
  Threads& threads = AllThreads();
  const std::lock_guard lock(threads.mutex);
  return threads.count > 0;
}
