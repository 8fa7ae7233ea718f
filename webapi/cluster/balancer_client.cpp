#include "webapi/cluster/balancer_client.h"

#include <curl/curl.h>

#include <cstdlib>

#include "platform/log.h"
#include "platform/process_launch.h"
#include "util/lazy_library.h"
#include "util/number.h"

namespace webapi {
namespace {

constexpr char kSoname[] = "libcurl.so.4";
// A box that is asked may have to open the film first.
constexpr long kTimeoutSeconds = 20;

std::string Setting(const char* name) {
  const char* const value = secure_getenv(name);
  return value != nullptr ? value : "";
}

// libcurl takes longer to load than most requests take.
class Curl {
 public:
  Curl() : library_(kSoname) {
    isLoaded_ =
        library_.Find("curl_easy_init", begin_) && library_.Find("curl_easy_setopt", set_) &&
        library_.Find("curl_easy_perform", perform_) && library_.Find("curl_easy_cleanup", end_);
  }

  // Sends the requests one after the other on one connection.
  bool Ask(const std::string& balancer, const std::vector<std::string>& addresses) const {
    CURL* const transfer = isLoaded_ ? begin_() : nullptr;
    if (transfer == nullptr) {
      return false;
    }
    bool isDone = true;
    Prepare(transfer);
    for (const std::string& address : addresses) {
      set_(transfer, CURLOPT_URL, (balancer + address).c_str());
      isDone = perform_(transfer) == CURLE_OK && isDone;
    }
    end_(transfer);
    return isDone;
  }

 private:
  static size_t Forget(char* /*data*/, size_t /*size*/, size_t count, void* /*unused*/) {
    return count;
  }

  void Prepare(CURL* transfer) const {
    set_(transfer, CURLOPT_PROTOCOLS_STR, "http,https");
    // The balancer is the cluster's own, so variables that name a proxy do not apply.
    set_(transfer, CURLOPT_NOPROXY, "*");
    set_(transfer, CURLOPT_NOSIGNAL, 1L);
    set_(transfer, CURLOPT_TIMEOUT, kTimeoutSeconds);
    set_(transfer, CURLOPT_WRITEFUNCTION, Forget);
  }

  orvo::LazyLibrary library_;
  decltype(&::curl_easy_init) begin_ = nullptr;
  CURLcode (*set_)(CURL*, CURLoption, ...) = nullptr;
  decltype(&::curl_easy_perform) perform_ = nullptr;
  decltype(&::curl_easy_cleanup) end_ = nullptr;
  bool isLoaded_ = false;
};

}  // namespace

int CountBoxes() {
  const auto count = LibOrvoQMX::ParseNumber(Setting("MIREVO_CLUSTER_BOXES"));
  return count && !Setting("MIREVO_CLUSTER_URL").empty() ? static_cast<int>(*count) : 1;
}

void AskBalancer(const std::vector<std::string>& addresses) {
  orvo::LaunchOptions options;
  options.detached = true;
  options.group = orvo::ProcessGroup::kSession;
  const auto ask = [&] {
    const std::string balancer = Setting("MIREVO_CLUSTER_URL");
    if (Curl().Ask(balancer, addresses)) {
      return 0;
    }
    ORVO_LOG("%s could not be asked", balancer.c_str());
    return 1;
  };
  orvo::Fork(ask, options);
}

}  // namespace webapi
