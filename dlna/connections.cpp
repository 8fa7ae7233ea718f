#include "dlna/connections.h"

#include <iterator>
#include <string>

namespace dlna {
namespace {

constexpr unsigned kInvalidConnection = 706;

// The types of webapi/library/media_types.cpp, of which a television picks those that it plays.
constexpr const char* kTypes[] = {"video/mp2t",      "video/mp4",       "video/x-matroska",
                                  "video/webm",      "video/quicktime", "video/mpeg",
                                  "video/x-msvideo", "video/x-ms-wmv",  "video/x-flv",
                                  "video/ogg",       "audio/mpeg",      "audio/flac",
                                  "audio/mp4",       "audio/ogg",       "audio/wav",
                                  "audio/x-ms-wma",  "audio/aac",       "application/octet-stream"};

std::string Source() {
  std::string source;
  for (const char* const type : kTypes) {
    source += (source.empty() ? "http-get:*:" : ",http-get:*:") + std::string(type) + ":*";
  }
  return source;
}

void TellProtocols(GUPnPService* /*service*/, GUPnPServiceAction* action, gpointer /*data*/) {
  gupnp_service_action_set(action, "Source", G_TYPE_STRING, Source().c_str(), "Sink", G_TYPE_STRING,
                           "", nullptr);
  gupnp_service_action_return_success(action);
}

void TellIds(GUPnPService* /*service*/, GUPnPServiceAction* action, gpointer /*data*/) {
  gupnp_service_action_set(action, "ConnectionIDs", G_TYPE_STRING, "0", nullptr);
  gupnp_service_action_return_success(action);
}

void TellConnection(GUPnPService* /*service*/, GUPnPServiceAction* action, gpointer /*data*/) {
  int id = -1;
  gupnp_service_action_get(action, "ConnectionID", G_TYPE_INT, &id, nullptr);
  if (id != 0) {
    gupnp_service_action_return_error(action, kInvalidConnection, "Invalid connection reference");
    return;
  }
  gupnp_service_action_set(action, "RcsID", G_TYPE_INT, -1, "AVTransportID", G_TYPE_INT, -1,
                           "ProtocolInfo", G_TYPE_STRING, "", "PeerConnectionManager",
                           G_TYPE_STRING, "", "PeerConnectionID", G_TYPE_INT, -1, "Direction",
                           G_TYPE_STRING, "Output", "Status", G_TYPE_STRING, "OK", nullptr);
  gupnp_service_action_return_success(action);
}

void Query(GUPnPService* /*service*/, const char* variable, GValue* value, gpointer /*data*/) {
  const std::string name = variable;
  g_value_init(value, G_TYPE_STRING);
  if (name == "SourceProtocolInfo") {
    g_value_set_string(value, Source().c_str());
  } else {
    g_value_set_string(value, name == "CurrentConnectionIDs" ? "0" : "");
  }
}

}  // namespace

void AnswerConnections(GUPnPServiceInfo* service) {
  const auto connect = [&](const char* signal, auto* function) {
    g_signal_connect(service, signal, G_CALLBACK(function), nullptr);
  };
  connect("action-invoked::GetProtocolInfo", TellProtocols);
  connect("action-invoked::GetCurrentConnectionIDs", TellIds);
  connect("action-invoked::GetCurrentConnectionInfo", TellConnection);
  connect("query-variable", Query);
}

}  // namespace dlna
