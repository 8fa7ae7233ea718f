#include "dlna/media_server.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "dlna/connections.h"
#include "dlna/content_directory.h"
#include "dlna/door.h"
#include "dlna/registrar.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/network.h"
#include "util/xml_text.h"

namespace dlna {
namespace {

constexpr unsigned kSubscriptionSeconds = 300;
constexpr char kAnyAddress[] = "0.0.0.0";
constexpr char kLoopback[] = "127.";

struct ServiceRow {
  const char* type;
  const char* id;
  const char* name;  // of its file and of its addresses
};
constexpr std::array kServices = {
    ServiceRow{kContentDirectory, "urn:upnp-org:serviceId:ContentDirectory", "ContentDirectory"},
    ServiceRow{kConnectionManager, "urn:upnp-org:serviceId:ConnectionManager", "ConnectionManager"},
    ServiceRow{kRegistrar, "urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar",
               "MediaReceiverRegistrar"}};

std::string Element(const std::string& name, const std::string& text) {
  return "<" + name + ">" + orvo::XmlText(text) + "</" + name + ">\n";
}

std::string ServiceElement(const ServiceRow& row) {
  const std::string name = row.name;
  return "<service>\n" + Element("serviceType", row.type) + Element("serviceId", row.id) +
         Element("SCPDURL", "/" + name + ".xml") + Element("controlURL", "/" + name + "/control") +
         Element("eventSubURL", "/" + name + "/event") + "</service>\n";
}

// "Mirevo (den)"
std::string FriendlyName() {
  std::array<char, HOST_NAME_MAX + 1> host{};
  const bool isKnown = gethostname(host.data(), host.size() - 1) == 0 && host[0] != '\0';
  return isKnown ? "Mirevo (" + std::string(host.data()) + ")" : "Mirevo";
}

std::string Description(const std::string& device) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<root xmlns=\"urn:schemas-upnp-org:device-1-0\" "
      "xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">\n"
      "<specVersion><major>1</major><minor>0</minor></specVersion>\n<device>\n";
  text += Element("deviceType", "urn:schemas-upnp-org:device:MediaServer:1");
  text += Element("friendlyName", FriendlyName());
  text += Element("manufacturer", "Mirevo") + Element("modelName", "Mirevo");
  text += Element("UDN", "uuid:" + device) + Element("dlna:X_DLNADOC", "DMS-1.50");
  text += "<serviceList>\n";
  for (const ServiceRow& row : kServices) {
    text += ServiceElement(row);
  }
  return text + "</serviceList>\n</device>\n</root>\n";
}

std::string AddressOf(GUPnPContext* context) {
  const char* const address = gssdp_client_get_host_ip(GSSDP_CLIENT(context));
  return address != nullptr ? address : "";
}

std::string InterfaceOf(GUPnPContext* context) {
  const char* const name = gssdp_client_get_interface(GSSDP_CLIENT(context));
  return name != nullptr ? name : "";
}

Object<GUPnPServiceInfo> ServiceOf(GUPnPRootDevice* device, const char* type) {
  return Object<GUPnPServiceInfo>(gupnp_device_info_get_service(GUPNP_DEVICE_INFO(device), type));
}

// The library listens on each network by itself.
void Silence(GUPnPContext* context) {
  soup_server_disconnect(gupnp_context_get_server(context));
  g_object_set(context, "active", FALSE, nullptr);
}

}  // namespace

bool WriteDescription(const Setup& setup) {
  return orvo::ReplaceFile(setup.description, Description(setup.device));
}

// The device on one network.
class MediaServer::Presence {
 public:
  Presence(GUPnPContext* context, const std::string& origin, LibraryClient& library,
           Object<GUPnPRootDevice> device)
      : door_(gupnp_context_get_server(context)),
        device_(std::move(device)),
        directory_(ServiceOf(device_.get(), kContentDirectory), origin, library),
        connections_(ServiceOf(device_.get(), kConnectionManager)),
        registrar_(ServiceOf(device_.get(), kRegistrar)) {
    gupnp_context_set_subscription_timeout(context, kSubscriptionSeconds);
    AnswerConnections(connections_.get());
    AnswerRegistrar(registrar_.get());
    gupnp_root_device_set_available(device_.get(), TRUE);
  }

 private:
  Door door_;
  Object<GUPnPRootDevice> device_;
  ContentDirectory directory_;
  Object<GUPnPServiceInfo> connections_;
  Object<GUPnPServiceInfo> registrar_;
};

MediaServer::MediaServer(const Setup& setup)
    : setup_(setup),
      library_(setup.service, setup.word),
      manager_(gupnp_context_manager_create_full(GSSDP_UDA_VERSION_1_0, G_SOCKET_FAMILY_IPV4, 0)) {
  g_signal_connect(manager_.get(), "context-available", G_CALLBACK(Appear), this);
  g_signal_connect(manager_.get(), "context-unavailable", G_CALLBACK(Disappear), this);
}

MediaServer::~MediaServer() {
  g_signal_handlers_disconnect_by_data(manager_.get(), this);
}

void MediaServer::Appear(GUPnPContextManager* /*manager*/, GUPnPContext* context, gpointer self) {
  auto& server = *static_cast<MediaServer*>(self);
  const std::string origin = server.OriginIn(context);
  if (origin.empty()) {
    Silence(context);
    return;
  }
  GError* failure = nullptr;
  Object<GUPnPRootDevice> device(gupnp_root_device_new(context, server.setup_.description.c_str(),
                                                       server.setup_.services.c_str(), &failure));
  const Error error(failure);
  if (!device) {
    ORVO_LOG("Televisions on [%s] do not see the service: %s", InterfaceOf(context).c_str(),
             error ? error->message : "unknown");
    return;
  }
  server.presences_[context] =
      std::make_unique<Presence>(context, origin, server.library_, std::move(device));
}

void MediaServer::Disappear(GUPnPContextManager* /*manager*/, GUPnPContext* context,
                            gpointer self) {
  static_cast<MediaServer*>(self)->presences_.erase(context);
}

std::string MediaServer::OriginIn(GUPnPContext* context) const {
  const std::string address = AddressOf(context);
  const auto& names = setup_.interfaces;
  const bool isMeant =
      names.empty() ? !address.starts_with(kLoopback)
                    : std::find(names.begin(), names.end(), InterfaceOf(context)) != names.end();
  const auto place = std::find_if(
      setup_.listen.begin(), setup_.listen.end(),
      [&](const Place& one) { return one.address == address || one.address == kAnyAddress; });
  return isMeant && orvo::IsPrivateAddress(address) && place != setup_.listen.end()
             ? "http://" + address + ":" + place->port
             : "";
}

}  // namespace dlna
