#include "dlna/content_directory.h"

#include <optional>
#include <utility>

#include "dlna/didl.h"

namespace dlna {
namespace {

constexpr char kTop[] = "0";
constexpr unsigned kNotFound = 404;

// That of the longest path (webapi/television/object_id.h) is shorter.
constexpr size_t kLongestId = 6000;

// Error codes of the service's definition.
constexpr unsigned kInvalidArguments = 402;
constexpr unsigned kActionFailed = 501;
constexpr unsigned kNoSuchObject = 701;
constexpr unsigned kCannotProcess = 720;

void Refuse(GUPnPServiceAction* action, unsigned code, const char* reason) {
  gupnp_service_action_return_error(action, code, reason);
}

void RefuseFor(GUPnPServiceAction* action, unsigned status) {
  if (status == kNotFound) {
    Refuse(action, kNoSuchObject, "No such object");
  } else {
    Refuse(action, status == 0 ? kActionFailed : kCannotProcess, "Cannot process the request");
  }
}

// The library gives no list of what its films are searched or sorted by: neither is possible.
void TellNothing(GUPnPService* /*service*/, GUPnPServiceAction* action, gpointer argument) {
  gupnp_service_action_set(action, static_cast<const char*>(argument), G_TYPE_STRING, "", nullptr);
  gupnp_service_action_return_success(action);
}

gpointer ArgumentNamed(const char* name) {
  return const_cast<char*>(name);
}

}  // namespace

// What a television wants to see.
struct ContentDirectory::Wish {
  Question question;
  std::string filter;

  // Nothing if the arguments are not those of the action.
  static std::optional<Wish> Of(GUPnPServiceAction* action) {
    char* id = nullptr;
    char* flag = nullptr;
    char* filter = nullptr;
    Wish wish;
    gupnp_service_action_get(action, "ObjectID", G_TYPE_STRING, &id, "BrowseFlag", G_TYPE_STRING,
                             &flag, "Filter", G_TYPE_STRING, &filter, "StartingIndex", G_TYPE_UINT,
                             &wish.question.start, "RequestedCount", G_TYPE_UINT,
                             &wish.question.count, nullptr);
    const Text ownId(id);
    const Text ownFlag(flag);
    const Text ownFilter(filter);
    const std::string word = flag != nullptr ? flag : "";
    wish.question.id = id != nullptr ? id : "";
    wish.question.children = word == "BrowseDirectChildren";
    wish.filter = filter != nullptr && *filter != '\0' ? filter : "*";
    const bool isGood = id != nullptr && (wish.question.children || word == "BrowseMetadata");
    return isGood ? std::optional(std::move(wish)) : std::nullopt;
  }
};

ContentDirectory::ContentDirectory(Object<GUPnPServiceInfo> service, std::string origin,
                                   LibraryClient& library)
    : service_(std::move(service)), origin_(std::move(origin)), library_(library) {
  const auto connect = [&](const char* signal, auto* function, gpointer data) {
    g_signal_connect(service_.get(), signal, G_CALLBACK(function), data);
  };
  connect("action-invoked::Browse", Browse, this);
  connect("action-invoked::GetSystemUpdateID", TellUpdate, this);
  connect("action-invoked::GetSearchCapabilities", TellNothing, ArgumentNamed("SearchCaps"));
  connect("action-invoked::GetSortCapabilities", TellNothing, ArgumentNamed("SortCaps"));
  connect("query-variable::SystemUpdateID", QueryUpdate, this);
}

ContentDirectory::~ContentDirectory() {
  g_signal_handlers_disconnect_by_data(service_.get(), this);
}

void ContentDirectory::Browse(GUPnPService* /*service*/, GUPnPServiceAction* action,
                              gpointer self) {
  auto* const directory = static_cast<ContentDirectory*>(self);
  const auto wish = Wish::Of(action);
  if (wish && wish->question.id.size() > kLongestId) {
    RefuseFor(action, kNotFound);
  } else if (wish) {
    directory->Ask(action, wish->question, [directory, action, wish](const Reply& reply) {
      directory->Answer(action, *wish, reply);
    });
  } else {
    Refuse(action, kInvalidArguments, "Invalid arguments");
  }
}

void ContentDirectory::Ask(GUPnPServiceAction* action, const Question& question,
                           LibraryClient::Take take) {
  if (!library_.Ask(question, std::move(take))) {
    Refuse(action, kCannotProcess, "Too many requests at a time");
  }
}

void ContentDirectory::Answer(GUPnPServiceAction* action, const Wish& wish, const Reply& reply) {
  const Json::Value& objects = reply.data["objects"];
  if (!objects.isArray()) {
    RefuseFor(action, reply.status);
    return;
  }
  const unsigned update = reply.data["update"].asUInt();
  if (wish.question.id == kTop) {
    Notice(update);
  }
  gupnp_service_action_set(action, "Result", G_TYPE_STRING,
                           DidlOf(objects, origin_, wish.filter).c_str(), "NumberReturned",
                           G_TYPE_UINT, objects.size(), "TotalMatches", G_TYPE_UINT,
                           reply.data["total"].asUInt(), "UpdateID", G_TYPE_UINT, update, nullptr);
  gupnp_service_action_return_success(action);
}

void ContentDirectory::TellUpdate(GUPnPService* /*service*/, GUPnPServiceAction* action,
                                  gpointer self) {
  auto* const directory = static_cast<ContentDirectory*>(self);
  directory->Ask(action, {kTop}, [directory, action](const Reply& reply) {
    if (!reply.data.isObject()) {
      RefuseFor(action, reply.status);
      return;
    }
    directory->Notice(reply.data["update"].asUInt());
    gupnp_service_action_set(action, "Id", G_TYPE_UINT, directory->update_, nullptr);
    gupnp_service_action_return_success(action);
  });
}

void ContentDirectory::QueryUpdate(GUPnPService* /*service*/, const char* /*variable*/,
                                   GValue* value, gpointer self) {
  g_value_init(value, G_TYPE_UINT);
  g_value_set_uint(value, static_cast<ContentDirectory*>(self)->update_);
}

void ContentDirectory::Notice(unsigned update) {
  if (std::exchange(update_, update) != update) {
    gupnp_service_notify(GUPNP_SERVICE(service_.get()), "SystemUpdateID", G_TYPE_UINT, update_,
                         nullptr);
  }
}

}  // namespace dlna
