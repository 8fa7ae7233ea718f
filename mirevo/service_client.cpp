#include "mirevo/service_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <memory>
#include <vector>

#include "accounts/accounts.h"
#include "accounts/sessions.h"
#include "mirevo/exit_codes.h"
#include "platform/plat.h"
#include "serve/service.h"
#include "util/json_utils.h"
#include "webapi/http/request.h"

namespace mirevo {
namespace {

constexpr long kTimeoutSeconds = 60;
constexpr char kNotRunning[] =
    "No service is running here. Start one with \"mirevo serve FOLDER\".";

struct EndTransfer {
  void operator()(CURL* transfer) const { curl_easy_cleanup(transfer); }
};
using Transfer = std::unique_ptr<CURL, EndTransfer>;

// The address of the service's page; "" if no service runs.
std::string Address() {
  std::ifstream file(orvo::SystemPath(std::string(serve::kStateFolder) + serve::kAddressFile));
  std::string address;
  std::getline(file, address);
  return address;
}

size_t Collect(char* data, size_t /*size*/, size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, count);
  return count;
}

std::string Form(const std::string& api, const std::string& method,
                 const std::map<std::string, std::string>& parameters) {
  std::string form = "api=ORVO.Mirevo2." + api + "&version=1&method=" + method;
  for (const auto& [name, value] : parameters) {
    form += "&" + name + "=" + webapi::EncodeQueryValue(value);
  }
  return form;
}

// Sends the form and appends the answer to `body`. "" after a success, otherwise the reason of the
// failure.
std::string Send(const std::string& address, const std::string& form, std::string& body) {
  const Transfer transfer(curl_easy_init());
  if (transfer == nullptr) {
    return "not enough memory for a request";
  }
  const std::string url = address + "webapi/entry.cgi";
  curl_easy_setopt(transfer.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(transfer.get(), CURLOPT_POSTFIELDS, form.c_str());
  curl_easy_setopt(transfer.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(form.size()));
  curl_easy_setopt(transfer.get(), CURLOPT_PROTOCOLS_STR, "http,https");
  // The service is on this machine, so variables that name a proxy do not apply.
  curl_easy_setopt(transfer.get(), CURLOPT_NOPROXY, "*");
  // The certificate names a host, not this address, so it cannot be verified here.
  curl_easy_setopt(transfer.get(), CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(transfer.get(), CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(transfer.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(transfer.get(), CURLOPT_TIMEOUT, kTimeoutSeconds);
  curl_easy_setopt(transfer.get(), CURLOPT_WRITEFUNCTION, Collect);
  curl_easy_setopt(transfer.get(), CURLOPT_WRITEDATA, &body);
  const CURLcode result = curl_easy_perform(transfer.get());
  return result == CURLE_OK ? "" : curl_easy_strerror(result);
}

int ExitCodeOf(int status) {
  switch (status) {
    case 400:
      return kUsage;
    case 401:
    case 403:
      return kNoPermission;
    case 404:
      return kNoInput;
    case 503:
      return kUnavailable;
    default:
      return kFailed;
  }
}

// An owner's session for one call. It needs no password: a user who can write the folder of the
// sessions controls the service anyway.
class OwnSession {
 public:
  OwnSession() {
    const auto all = accounts::List().value_or(std::vector<accounts::Account>());
    const auto owner = std::find_if(all.begin(), all.end(),
                                    [](const accounts::Account& account) { return account.owner; });
    if (owner != all.end()) {
      id_ = accounts::BeginSession(*owner, time(nullptr));
    }
  }
  OwnSession(const OwnSession&) = delete;
  OwnSession& operator=(const OwnSession&) = delete;
  ~OwnSession() { accounts::EndSession(id_); }

  const std::string& Id() const { return id_; }  // "" if there are no accounts

 private:
  std::string id_;
};

}  // namespace

Reply CallService(const std::string& api, const std::string& method,
                  const std::map<std::string, std::string>& parameters) {
  const std::string address = Address();
  if (address.empty()) {
    return {kUnavailable, kNotRunning, {}};
  }
  std::string body;
  const OwnSession session;
  const std::string form = Form(api, method, parameters) + "&_sid=" + session.Id();
  const std::string failure = Send(address, form, body);
  if (!failure.empty()) {
    return {kUnavailable, "The service at " + address + " does not answer: " + failure + ".", {}};
  }
  Json::Value answer;
  if (!LibMirevo::ParseJson(body, answer) || !answer.isObject()) {
    return {kFailed, "The service at " + address + " sent an answer that is not valid.", {}};
  }
  if (answer["success"] == true) {
    return {kOk, "", answer["data"]};
  }
  const Json::Value& error = answer["error"];
  return {ExitCodeOf(error["code"].asInt()), error["message"].asString(), {}};
}

}  // namespace mirevo
