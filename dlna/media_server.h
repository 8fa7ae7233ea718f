// The media server on all networks of this machine on which televisions may be.
#pragma once

#include <libgupnp/gupnp.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dlna/glib_values.h"
#include "dlna/library_client.h"

namespace dlna {

struct Place {
  std::string address;  // numeric
  std::string port;
};

struct Setup {
  std::string service;                  // the service's address for this program
  std::vector<Place> listen;            // where it listens for televisions
  std::vector<std::string> interfaces;  // of the networks to use; empty for all local ones
  std::string device;                   // the UUID
  std::string word;                     // see settings/televisions.h
  std::string description;              // the file with the device's description
  std::string services;                 // the folder with those of its services
};

// Writes the file `description`. Returns false, with errno set, on failure.
bool WriteDescription(const Setup& setup);

class MediaServer {
 public:
  // Shows itself as soon as the main loop runs, on networks that come later, too.
  explicit MediaServer(const Setup& setup);
  ~MediaServer();
  MediaServer(const MediaServer&) = delete;
  MediaServer& operator=(const MediaServer&) = delete;

 private:
  class Presence;

  static void Appear(GUPnPContextManager* manager, GUPnPContext* context, gpointer self);
  static void Disappear(GUPnPContextManager* manager, GUPnPContext* context, gpointer self);
  // The origin at which televisions of this network reach the service; "" if they do not.
  std::string OriginIn(GUPnPContext* context) const;

  const Setup& setup_;
  LibraryClient library_;
  Object<GUPnPContextManager> manager_;
  std::map<GUPnPContext*, std::unique_ptr<Presence>> presences_;
};

}  // namespace dlna
