#include "dlna/didl.h"

#include <libgupnp-av/gupnp-av.h>

#include "dlna/glib_values.h"

namespace dlna {
namespace {

constexpr char kSamsung[] = "http://www.sec.co.kr/";  // the namespace of subtitles beside a film

struct Kind {
  const char* name;
  const char* upnpClass;
};
constexpr Kind kKinds[] = {{"folder", "object.container.storageFolder"},
                           {"film", "object.item.videoItem.movie"},
                           {"music", "object.item.audioItem.musicTrack"}};

const char* ClassOf(const Json::Value& object) {
  for (const Kind& kind : kKinds) {
    if (object["kind"] == kind.name) {
      return kind.upnpClass;
    }
  }
  return "object.item";
}

std::string TextIn(const Json::Value& object, const char* name) {
  return object[name].isString() ? object[name].asString() : "";
}

// Calls `set` with a number that is there.
template <typename Number>
void SetNumber(const Json::Value& form, const char* name, GUPnPDIDLLiteResource* resource,
               void (*set)(GUPnPDIDLLiteResource*, Number)) {
  if (form[name].isInt64()) {
    set(resource, static_cast<Number>(form[name].asInt64()));
  }
}

const xmlChar* Xml(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}

void AddForm(GUPnPDIDLLiteObject* object, const Json::Value& form, const std::string& origin) {
  const Object<GUPnPDIDLLiteResource> resource(gupnp_didl_lite_object_add_resource(object));
  gupnp_didl_lite_resource_set_uri(resource.get(), (origin + TextIn(form, "address")).c_str());
  // The library's own form of it knows fewer flags.
  const std::string protocol =
      "http-get:*:" + TextIn(form, "type") + ":" + TextIn(form, "features");
  xmlSetProp(gupnp_didl_lite_resource_get_xml_node(resource.get()), Xml("protocolInfo"),
             Xml(protocol.c_str()));
  SetNumber(form, "size", resource.get(), gupnp_didl_lite_resource_set_size64);
  SetNumber(form, "duration", resource.get(), gupnp_didl_lite_resource_set_duration);
  SetNumber(form, "width", resource.get(), gupnp_didl_lite_resource_set_width);
  SetNumber(form, "height", resource.get(), gupnp_didl_lite_resource_set_height);
}

void AddSubtitle(GUPnPDIDLLiteObject* object, const std::string& address) {
  xmlNode* const node = gupnp_didl_lite_object_get_xml_node(object);
  xmlNs* const space = xmlNewNs(node, Xml(kSamsung), Xml("sec"));
  xmlNode* const caption = xmlNewTextChild(node, space, Xml("CaptionInfoEx"), Xml(address.c_str()));
  xmlNewNsProp(caption, space, Xml("type"), Xml("srt"));
}

// The library calls every picture a small one ("JPEG_TN"), whatever size it has.
void AddPoster(GUPnPDIDLLiteObject* object, const std::string& address) {
  gupnp_didl_lite_object_set_album_art(object, address.c_str());
  xmlNode* node = gupnp_didl_lite_object_get_xml_node(object)->children;
  while (node != nullptr && xmlStrEqual(node->name, Xml("albumArtURI")) == 0) {
    node = node->next;
  }
  if (xmlAttr* const profile = node != nullptr ? xmlHasProp(node, Xml("profileID")) : nullptr) {
    xmlRemoveProp(profile);
  }
}

void DescribeFilm(GUPnPDIDLLiteObject* object, const Json::Value& film, const std::string& origin) {
  for (const Json::Value& form : film["forms"]) {
    AddForm(object, form, origin);
  }
  gupnp_didl_lite_object_set_date(object, TextIn(film, "date").c_str());
  if (const std::string poster = TextIn(film, "poster"); !poster.empty()) {
    AddPoster(object, origin + poster);
  }
  if (const std::string artist = TextIn(film, "artist"); !artist.empty()) {
    gupnp_didl_lite_object_set_creator(object, artist.c_str());
  }
  if (const std::string album = TextIn(film, "album"); !album.empty()) {
    gupnp_didl_lite_object_set_album(object, album.c_str());
  }
  if (const std::string subtitle = TextIn(film, "subtitle"); !subtitle.empty()) {
    AddSubtitle(object, origin + subtitle);
  }
}

Object<GUPnPDIDLLiteObject> NewObject(GUPnPDIDLLiteWriter* writer, bool isFolder) {
  return Object<GUPnPDIDLLiteObject>(
      isFolder ? GUPNP_DIDL_LITE_OBJECT(gupnp_didl_lite_writer_add_container(writer))
               : GUPNP_DIDL_LITE_OBJECT(gupnp_didl_lite_writer_add_item(writer)));
}

void Describe(GUPnPDIDLLiteWriter* writer, const Json::Value& described,
              const std::string& origin) {
  const bool isFolder = described["kind"] == "folder";
  const auto object = NewObject(writer, isFolder);
  gupnp_didl_lite_object_set_id(object.get(), TextIn(described, "id").c_str());
  gupnp_didl_lite_object_set_parent_id(object.get(), TextIn(described, "parent").c_str());
  gupnp_didl_lite_object_set_restricted(object.get(), TRUE);
  gupnp_didl_lite_object_set_title(object.get(), TextIn(described, "title").c_str());
  gupnp_didl_lite_object_set_upnp_class(object.get(), ClassOf(described));
  if (!isFolder) {
    DescribeFilm(object.get(), described, origin);
  }
}

}  // namespace

std::string DidlOf(const Json::Value& objects, const std::string& origin,
                   const std::string& filter) {
  const Object<GUPnPDIDLLiteWriter> writer(gupnp_didl_lite_writer_new(nullptr));
  for (const Json::Value& object : objects) {
    Describe(writer.get(), object, origin);
  }
  gupnp_didl_lite_writer_filter(writer.get(), filter.c_str());
  const Text text(gupnp_didl_lite_writer_get_string(writer.get()));
  return text.get();
}

}  // namespace dlna
