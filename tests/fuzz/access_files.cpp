// The files that decide who may do what. The first letter of the input names the file: a ticket, a
// session, the accounts, the tries of a password.
#include <ctime>

#include "accounts/accounts.h"
#include "accounts/attempts.h"
#include "accounts/secrets.h"
#include "accounts/sessions.h"
#include "fuzz/fuzz.h"
#include "webapi/access/ticket.h"

namespace {

constexpr int64_t kNow = 1'800'000'000;
constexpr char kAccountsFile[] = "/var/packages/Mirevo/etc/accounts";
constexpr char kAccounts[] = R"({"ann":{"password":"x","era":"e","owner":true,"roots":[]}})";

void CheckTicket(const std::string& text) {
  const std::string id = "0123456789abcdef0123456789abcdef_abcdefgh";
  fuzz::WriteFile("/tmp/Mirevo/tickets/" + id, text);
  const auto ticket = webapi::Ticket::Read(id);
  if (ticket) {
    fuzz::Demand(!ticket->Kind().empty() && ticket->Record().isObject());
    fuzz::Demand(ticket->Path().size() + ticket->Owner().size() +
                     ticket->Parameter("account").size() + ticket->ProfileValue().size() <=
                 4 * text.size());
    (void)ticket->Duration();
    (void)ticket->StartSeconds();
    (void)ticket->OwnerPid();
    (void)webapi::StreamLink(*ticket);
  }
}

// A session file never opens another account than the one in the file, and only in its era.
void CheckSession(const std::string& text) {
  fuzz::WriteFile(kAccountsFile, kAccounts);
  static const std::string id(43, 'A');
  fuzz::Demand(accounts::IsSecret(id));
  fuzz::WriteFile("/run/mirevo/sessions/" + accounts::DigestOf(id), text);
  const auto account = accounts::UseSession(id, kNow);
  fuzz::Demand(!account || (account->name == "ann" && text.find("\"ann\"") != std::string::npos));
}

// A damaged file opens nothing: it lists nobody, and a login is needed.
void CheckAccounts(const std::string& text) {
  fuzz::WriteFile(kAccountsFile, text);
  const auto list = accounts::List();
  fuzz::Demand(list ? accounts::AreNeeded() == !list->empty() : accounts::AreNeeded());
  for (const accounts::Account& account : list.value_or(std::vector<accounts::Account>{})) {
    fuzz::Demand(accounts::Find(account.name).has_value());
  }
}

void CheckAttempts(const std::string& text) {
  constexpr accounts::Limit kLimit{10, 60};
  fuzz::WriteFile("/run/mirevo/attempts/" + accounts::DigestOf("key"), text);
  const accounts::Attempts attempts("key", kLimit, kNow);
  const int64_t wait = attempts.Take();
  fuzz::Demand(wait >= 0 && wait <= kLimit.secondsPerTry);
  fuzz::Demand(accounts::ClientOf(text).size() <= text.size() + 64);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string text = fuzz::TextOf(data + 1, size - 1);
  switch (data[0]) {
    case 't':
      CheckTicket(text);
      break;
    case 's':
      CheckSession(text);
      break;
    case 'a':
      CheckAccounts(text);
      break;
    default:
      CheckAttempts(text);
  }
  return 0;
}
