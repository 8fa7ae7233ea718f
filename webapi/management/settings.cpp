#include "webapi/management/settings.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "accounts/accounts.h"
#include "policy/trans_loading.h"
#include "settings/hardware.h"
#include "settings/limits.h"
#include "settings/media_folders.h"
#include "util/film_cache.h"
#include "util/json_utils.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/http/work.h"

namespace webapi {
namespace {

using accounts::Outcome;
using settings::FolderOutcome;

constexpr size_t kMostRoots = 100;
constexpr std::array kLimits = {settings::kStreamsPerViewer, settings::kCacheMegabytes};

Json::Value List(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts) {
    list.append(text);
  }
  return list;
}

Json::Value DescribeFolders() {
  Json::Value list(Json::arrayValue);
  for (const settings::MediaFolder& folder : settings::MediaFolders()) {
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["path"] = folder.path;
    entry["added"] = folder.isAdded;
    entry["readable"] = access(folder.path.c_str(), R_OK) == 0;
  }
  return list;
}

Json::Value DescribeAccounts() {
  Json::Value list(Json::arrayValue);
  for (const accounts::Account& account :
       accounts::List().value_or(std::vector<accounts::Account>())) {
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["name"] = account.name;
    entry["owner"] = account.owner;
    entry["roots"] = List(account.roots);
  }
  return list;
}

Json::Value DescribeLimits() {
  const LibMirevo::TransLoading registry;
  Json::Value limits(Json::objectValue);
  limits["software"] = registry.GetLimit(false);
  limits["hardware"] = registry.GetLimit(true);
  for (const settings::Limit& limit : kLimits) {
    Json::Value& entry = limits[limit.name] = Json::Value(Json::objectValue);
    entry["value"] = settings::ValueOf(limit);
    entry["least"] = limit.least;
    entry["most"] = limit.most;
  }
  return limits;
}

Answer Describe() {
  Json::Value data(Json::objectValue);
  data["folders"] = DescribeFolders();
  data["accounts"] = DescribeAccounts();
  data["hardware"]["enabled"] = settings::IsHardwareWanted();
  data["hardware"]["engines"] = DescribeEngines();
  data["limits"] = DescribeLimits();
  data["cache"]["bytes"] = static_cast<Json::Int64>(orvo::CacheBytes());
  return Answer::Success(data);
}

Answer AnswerFor(FolderOutcome outcome) {
  if (outcome == FolderOutcome::kDone) {
    return Describe();
  }
  const bool isOurs = outcome == FolderOutcome::kFailed || outcome == FolderOutcome::kDamaged;
  return Answer::Failure(isOurs ? kInternal : kBadRequest, settings::Describe(outcome));
}

Answer AnswerFor(settings::Outcome outcome) {
  return outcome == settings::Outcome::kDone
             ? Describe()
             : Answer::Failure(kInternal, settings::Describe(outcome));
}

const char* ReasonOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kUnknown:
      return kNotFound;
    case Outcome::kDamaged:
    case Outcome::kFailed:
      return kInternal;
    default:
      return kBadRequest;
  }
}

Answer AnswerFor(Outcome outcome) {
  return outcome == Outcome::kDone
             ? Describe()
             : Answer::Failure(ReasonOf(outcome), accounts::Describe(outcome));
}

// The list of paths in "roots"; empty without it. Nothing if it is something else.
std::optional<std::vector<std::string>> RootsOf(const Request& request) {
  const std::string text = request.Text("roots");
  Json::Value list(Json::arrayValue);
  if ((!text.empty() && !LibMirevo::ParseJson(text, list)) || !list.isArray() ||
      list.size() > kMostRoots) {
    return std::nullopt;
  }
  std::vector<std::string> roots;
  for (const Json::Value& root : list) {
    // An empty path fits no account.
    roots.push_back(root.isString() ? root.asString() : "");
  }
  return roots;
}

Answer NoList() {
  return Answer::Failure(kBadRequest, "The folders of an account must be a JSON list of paths.");
}

// "true" or "false"; `otherwise` without the parameter. Nothing for another text.
std::optional<bool> Flag(const Request& request, const char* name, std::optional<bool> otherwise) {
  const std::string text = request.Text(name);
  if (text == "true" || text == "false") {
    return text == "true";
  }
  return text.empty() ? otherwise : std::nullopt;
}

Answer NoFlag() {
  return Answer::Failure(kBadRequest, "A switch must be true or false.");
}

// Changes the account that the request names.
template <typename Operation>
Answer ChangeAccount(const Request& request, const Operation& operation) {
  const std::string name = request.Text("account");
  return name.empty() ? Answer::Failure(kBadRequest, "Name the account.")
                      : AnswerFor(operation(name));
}

// The same with an operation that hashes a password, which needs much memory.
template <typename Operation>
Answer SetPasswordOf(const Request& request, const Operation& operation) {
  const auto place = TakePlace(kLoginWork);
  return place ? ChangeAccount(request, operation)
               : Answer::Failure(kBusy, "Many people are logging in. Try again in a few seconds.");
}

}  // namespace

Answer DescribeSettings(const Request& /*request*/) {
  return Describe();
}

Answer AddMediaFolder(const Request& request) {
  return AnswerFor(settings::AddFolder(request.Text("path")));
}

Answer RemoveMediaFolder(const Request& request) {
  return AnswerFor(settings::RemoveFolder(request.Text("path")));
}

Answer AddAccount(const Request& request) {
  const auto roots = RootsOf(request);
  const auto isOwner = Flag(request, "owner", false);
  if (!roots || !isOwner) {
    return roots ? NoFlag() : NoList();
  }
  return SetPasswordOf(request, [&](const std::string& name) {
    return accounts::Create(name, request.Text("passwd"), *isOwner, *roots);
  });
}

Answer RemoveAccount(const Request& request) {
  return ChangeAccount(request, accounts::RemoveUnlessLastOwner);
}

Answer SetAccountPassword(const Request& request) {
  return SetPasswordOf(request, [&](const std::string& name) {
    return accounts::SetPassword(name, request.Text("passwd"));
  });
}

Answer SetAccountRoots(const Request& request) {
  const auto roots = RootsOf(request);
  return roots ? ChangeAccount(
                     request,
                     [&](const std::string& name) { return accounts::GrantRoots(name, *roots); })
               : NoList();
}

Answer SetHardware(const Request& request) {
  const auto isWanted = Flag(request, "enabled", std::nullopt);
  if (!isWanted) {
    return NoFlag();
  }
  return AnswerFor(settings::WantHardware(*isWanted));
}

Answer SetLimit(const Request& request) {
  const auto limit = std::find_if(
      kLimits.begin(), kLimits.end(),
      [&](const settings::Limit& known) { return request.Text("name") == known.name; });
  const auto value = limit == kLimits.end() ? std::nullopt : request.Number("value", limit->most);
  if (!value || *value < limit->least) {
    return Answer::Failure(kBadRequest,
                           "There is no such limit, or the value is out of its range.");
  }
  return AnswerFor(settings::Set(*limit, static_cast<int>(*value)));
}

Answer ClearCache(const Request& /*request*/) {
  orvo::EmptyCache();
  return Describe();
}

}  // namespace webapi
