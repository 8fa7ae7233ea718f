#include "webapi/conversions/rules.h"

#include <cstdint>
#include <string>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "webapi/choice/machine_speed.h"
#include "webapi/conversions/entry_id.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using convert::Queue;
using convert::Rule;

constexpr size_t kMostRules = 100;

Answer NoQueue() {
  return Answer::Failure(kInternal, "The list of rules cannot be opened.");
}

Json::Value Describe(const Rule& rule) {
  Json::Value entry(Json::objectValue);
  entry["id"] = static_cast<Json::Int64>(rule.id);
  entry["path"] = rule.folder;
  entry["encoded_path"] = EncodeQueryValue(rule.folder);
  entry["profile"] = rule.profile;
  return entry;
}

}  // namespace

Answer AddConversionRule(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto folder = ResolveMediaPath(request.Text("path"), refusal);
  if (!folder) {
    return refusal;
  }
  const auto profile = convert::FindProfile(request.Text("profile"));
  if (!profile) {
    return Answer::Failure(kBadRequest, "There is no profile of this name.");
  }
  if (!convert::MayHaveRule(*folder) || !IsUtf8(*folder)) {
    return Answer::Failure(kBadRequest, "A rule needs a folder with films.");
  }
  Queue queue;
  if (queue.Rules().size() >= kMostRules) {
    return Answer::Failure(kBadRequest, "There are too many rules.");
  }
  const auto id = queue.AddRule(*folder, profile->name);
  if (!id) {
    return NoQueue();
  }
  Json::Value data(Json::objectValue);
  data["id"] = static_cast<Json::Int64>(*id);
  return Answer::Success(data);
}

Answer ListConversionRules(const Request& /*request*/) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  Json::Value data(Json::objectValue);
  data["measured"] = MachineSpeed::Load().IsKnown();
  data["rules"] = Json::Value(Json::arrayValue);
  for (const Rule& rule : queue.Rules()) {
    data["rules"].append(Describe(rule));
  }
  return Answer::Success(data);
}

Answer RemoveConversionRule(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto id = EntryId(request, refusal);
  if (!id) {
    return refusal;
  }
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  queue.RemoveRule(*id);
  return Answer::Success(Json::Value(Json::objectValue));
}

}  // namespace webapi
