#include "webapi/access/basic_login.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <string>

#include "accounts/remembered_passwords.h"
#include "util/base64_url.h"
#include "util/lower_case.h"
#include "webapi/access/identity.h"
#include "webapi/access/login.h"

namespace webapi {
namespace {

constexpr char kScheme[] = "basic ";
constexpr size_t kSchemeLength = sizeof(kScheme) - 1;
constexpr size_t kMostCharacters = 4096;

struct Login {
  std::string name;
  std::string password;
};

// The header's alphabet differs from that of addresses in two characters and in its padding.
std::optional<std::string> FromBase64(std::string text) {
  text.erase(std::find_if(text.rbegin(), text.rend(), [](char c) { return c != '='; }).base(),
             text.end());
  std::replace(text.begin(), text.end(), '+', '-');
  std::replace(text.begin(), text.end(), '/', '_');
  return orvo::FromBase64Url(text);
}

bool IsPlain(const std::string& text) {
  return std::none_of(text.begin(), text.end(),
                      [](unsigned char c) { return std::iscntrl(c) != 0; });
}

// Nothing if the header is missing or malformed.
std::optional<Login> LoginIn(const std::string& header) {
  if (header.size() > kMostCharacters || orvo::LowerCase(header).rfind(kScheme, 0) != 0) {
    return std::nullopt;
  }
  const auto text = FromBase64(header.substr(kSchemeLength));
  const auto colon = text ? text->find(':') : std::string::npos;
  return colon != std::string::npos && IsPlain(*text)
             ? std::optional(Login{text->substr(0, colon), text->substr(colon + 1)})
             : std::nullopt;
}

std::optional<accounts::Account> Check(const Request& request, const Login& login,
                                       Answer& refusal) {
  const int64_t now = time(nullptr);
  auto account = accounts::FindRemembered(login.name, login.password, now);
  if (account) {
    return account;
  }
  account = CheckPassword(request, login.name, login.password, now, refusal);
  if (account) {
    accounts::RememberPassword(*account, login.password, now);
  }
  return account;
}

}  // namespace

std::optional<Caller> FindCallerByHeader(const Request& request, Answer& refusal) {
  if (!IsLoginRequired()) {
    Caller caller;
    caller.client = ClientAt(request);
    caller.isOwner = true;
    return caller;
  }
  refusal = Answer::Failure(kUnauthorized);
  const auto login = LoginIn(request.Header("AUTHORIZATION"));
  const auto account = login ? Check(request, *login, refusal) : std::nullopt;
  if (!account && refusal.IsFor(kUnauthorized)) {
    refusal.AddHeader("WWW-Authenticate", "Basic realm=\"Mirevo\", charset=\"UTF-8\"");
  }
  return account ? std::optional(ToCaller(*account)) : std::nullopt;
}

}  // namespace webapi
