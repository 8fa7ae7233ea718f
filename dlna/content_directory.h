// The service ContentDirectory:1: what televisions browse.
#pragma once

#include <libgupnp/gupnp.h>

#include <string>

#include "dlna/glib_values.h"
#include "dlna/library_client.h"

namespace dlna {

inline constexpr char kContentDirectory[] = "urn:schemas-upnp-org:service:ContentDirectory:1";

// Answers the actions of one device.
class ContentDirectory {
 public:
  // `origin`: the scheme, host and port at which the televisions of this network reach the service.
  // `library` outlives this.
  ContentDirectory(Object<GUPnPServiceInfo> service, std::string origin, LibraryClient& library);
  ~ContentDirectory();
  ContentDirectory(const ContentDirectory&) = delete;
  ContentDirectory& operator=(const ContentDirectory&) = delete;

 private:
  struct Wish;

  static void Browse(GUPnPService* service, GUPnPServiceAction* action, gpointer self);
  static void TellUpdate(GUPnPService* service, GUPnPServiceAction* action, gpointer self);
  static void QueryUpdate(GUPnPService* service, const char* variable, GValue* value,
                          gpointer self);
  void Ask(GUPnPServiceAction* action, const Question& question, LibraryClient::Take take);
  void Answer(GUPnPServiceAction* action, const Wish& wish, const Reply& reply);
  void Notice(unsigned update);

  Object<GUPnPServiceInfo> service_;
  std::string origin_;
  LibraryClient& library_;
  unsigned update_ = 0;  // the last known one of the whole library
};

}  // namespace dlna
