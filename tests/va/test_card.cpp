// A VA-API driver without hardware: it encodes H.264 that is correct and hardly compressed, and
// fails on command. libva finds it through LIBVA_DRIVERS_PATH. With the same file in LD_PRELOAD any
// file counts as the node of a graphics card.
//
// ORVO_TEST_CARD names the failure:
//   open         the driver does not start
//   configure    no encoder can be configured
//   lines=N      an encoder for pictures with more than N lines cannot be made
//   picture=N    the N-th picture and all later ones fail, counted from 1
//   hang=N       the N-th picture never ends
//   lie          all pictures succeed and contain nothing
#include <fcntl.h>
#include <unistd.h>
#include <va/va_backend.h>
#include <va/va_enc_h264.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "slice_writer.h"

namespace orvo::test_card {
namespace {

constexpr char kVendor[] = "orvo test card";
constexpr int kMostAnswers = 8;
constexpr unsigned kLargestSide = 4096;

// The command, and its number.
long Commanded(const char* command) {
  const char* const text = getenv("ORVO_TEST_CARD");
  const size_t length = strlen(command);
  if (text == nullptr || strncmp(text, command, length) != 0) {
    return 0;
  }
  return text[length] == '=' ? strtol(text + length + 1, nullptr, 10) : 1;
}

struct Surface {
  Picture picture;
  unsigned width = 0;
  unsigned height = 0;
};

struct Buffer {
  VABufferType type{};
  std::vector<uint8_t> bytes;
  std::shared_ptr<Surface> mapped;  // whose bytes it shows, for an image of a surface
  VACodedBufferSegment segment{};
};

// A picture that is being encoded.
struct Job {
  VASurfaceID source = VA_INVALID_ID;
  VAEncPictureParameterBufferH264 picture{};
  std::vector<uint8_t> stream;
  std::vector<uint8_t> header;
  size_t headerBits = 0;
  VAEncPackedHeaderParameterBuffer announced{};
};

struct Card {
  VAGenericID nextId = 1;
  std::map<VAGenericID, std::shared_ptr<Surface>> surfaces;
  std::map<VAGenericID, Buffer> buffers;
  std::map<VAGenericID, Job> contexts;
  std::map<VAGenericID, VAImage> images;
  std::map<VAGenericID, VAConfigAttrib> configs;
  long pictures = 0;
};

Card& CardOf(VADriverContextP driver) {
  return *static_cast<Card*>(driver->pDriverData);
}

Surface* FindSurface(Card& card, VASurfaceID id) {
  const auto found = card.surfaces.find(id);
  return found == card.surfaces.end() ? nullptr : found->second.get();
}

Buffer* FindBuffer(Card& card, VABufferID id) {
  const auto found = card.buffers.find(id);
  return found == card.buffers.end() ? nullptr : &found->second;
}

// --- Abilities ---

VAStatus Profiles(VADriverContextP, VAProfile* list, int* count) {
  list[0] = VAProfileH264ConstrainedBaseline;
  *count = 1;
  return VA_STATUS_SUCCESS;
}

VAStatus Entrypoints(VADriverContextP, VAProfile, VAEntrypoint* list, int* count) {
  list[0] = VAEntrypointEncSlice;
  *count = 1;
  return VA_STATUS_SUCCESS;
}

unsigned Ability(VAConfigAttribType type) {
  switch (type) {
    case VAConfigAttribRTFormat:
      return VA_RT_FORMAT_YUV420;
    case VAConfigAttribRateControl:
      return VA_RC_CQP | VA_RC_CBR | VA_RC_VBR;
    case VAConfigAttribEncPackedHeaders:
      return VA_ENC_PACKED_HEADER_SEQUENCE | VA_ENC_PACKED_HEADER_SLICE;
    case VAConfigAttribEncMaxRefFrames:
    case VAConfigAttribEncMaxSlices:
      return 1;
    case VAConfigAttribMaxPictureWidth:
    case VAConfigAttribMaxPictureHeight:
      return kLargestSide;
    default:
      return VA_ATTRIB_NOT_SUPPORTED;
  }
}

VAStatus Attributes(VADriverContextP, VAProfile, VAEntrypoint, VAConfigAttrib* list, int count) {
  for (VAConfigAttrib* row = list; row != list + count; ++row) {
    row->value = Ability(row->type);
  }
  return VA_STATUS_SUCCESS;
}

VAStatus CreateConfig(VADriverContextP driver, VAProfile, VAEntrypoint, VAConfigAttrib*, int,
                      VAConfigID* config) {
  if (Commanded("configure") != 0) {
    return VA_STATUS_ERROR_UNSUPPORTED_PROFILE;
  }
  Card& card = CardOf(driver);
  *config = card.nextId++;
  card.configs[*config] = {};
  return VA_STATUS_SUCCESS;
}

VAStatus DestroyConfig(VADriverContextP driver, VAConfigID config) {
  CardOf(driver).configs.erase(config);
  return VA_STATUS_SUCCESS;
}

VAStatus ConfigAttributes(VADriverContextP, VAConfigID, VAProfile* profile, VAEntrypoint* entry,
                          VAConfigAttrib*, int* count) {
  *profile = VAProfileH264ConstrainedBaseline;
  *entry = VAEntrypointEncSlice;
  *count = 0;
  return VA_STATUS_SUCCESS;
}

VASurfaceAttrib Number(VASurfaceAttribType type, int value, unsigned flags) {
  VASurfaceAttrib attribute{};
  attribute.type = type;
  attribute.flags = flags;
  attribute.value.type = VAGenericValueTypeInteger;
  attribute.value.value.i = value;
  return attribute;
}

VAStatus SurfaceAttributes(VADriverContextP, VAConfigID, VASurfaceAttrib* list, unsigned* count) {
  const std::vector<VASurfaceAttrib> answer = {
      Number(VASurfaceAttribPixelFormat, VA_FOURCC_NV12,
             VA_SURFACE_ATTRIB_GETTABLE | VA_SURFACE_ATTRIB_SETTABLE),
      Number(VASurfaceAttribMaxWidth, kLargestSide, VA_SURFACE_ATTRIB_GETTABLE),
      Number(VASurfaceAttribMaxHeight, kLargestSide, VA_SURFACE_ATTRIB_GETTABLE),
  };
  if (list != nullptr) {
    std::copy(answer.begin(), answer.end(), list);
  }
  *count = static_cast<unsigned>(answer.size());
  return VA_STATUS_SUCCESS;
}

// --- Surfaces ---

VAStatus CreateSurfaces2(VADriverContextP driver, unsigned, unsigned width, unsigned height,
                         VASurfaceID* list, unsigned count, VASurfaceAttrib*, unsigned) {
  Card& card = CardOf(driver);
  for (VASurfaceID* id = list; id != list + count; ++id) {
    auto surface = std::make_shared<Surface>();
    surface->width = width;
    surface->height = height;
    surface->picture.Resize(width, height);
    *id = card.nextId++;
    card.surfaces[*id] = std::move(surface);
  }
  return VA_STATUS_SUCCESS;
}

VAStatus CreateSurfaces(VADriverContextP driver, int width, int height, int format, int count,
                        VASurfaceID* list) {
  return CreateSurfaces2(driver, static_cast<unsigned>(format), static_cast<unsigned>(width),
                         static_cast<unsigned>(height), list, static_cast<unsigned>(count), nullptr,
                         0);
}

VAStatus DestroySurfaces(VADriverContextP driver, VASurfaceID* list, int count) {
  for (VASurfaceID* id = list; id != list + count; ++id) {
    CardOf(driver).surfaces.erase(*id);
  }
  return VA_STATUS_SUCCESS;
}

VAStatus SyncSurface(VADriverContextP, VASurfaceID) {
  return VA_STATUS_SUCCESS;
}

VAStatus SurfaceStatus(VADriverContextP, VASurfaceID, VASurfaceStatus* status) {
  *status = VASurfaceReady;
  return VA_STATUS_SUCCESS;
}

// --- Buffers and images ---

VAStatus CreateBuffer(VADriverContextP driver, VAContextID, VABufferType type, unsigned size,
                      unsigned count, void* data, VABufferID* id) {
  Card& card = CardOf(driver);
  Buffer buffer;
  buffer.type = type;
  buffer.bytes.resize(type == VAEncCodedBufferType ? 0 : size_t{size} * count);
  if (data != nullptr) {
    memcpy(buffer.bytes.data(), data, buffer.bytes.size());
  }
  *id = card.nextId++;
  card.buffers[*id] = std::move(buffer);
  return VA_STATUS_SUCCESS;
}

VAStatus SetElements(VADriverContextP, VABufferID, unsigned) {
  return VA_STATUS_SUCCESS;
}

VAStatus MapBuffer(VADriverContextP driver, VABufferID id, void** data) {
  Buffer* const buffer = FindBuffer(CardOf(driver), id);
  if (buffer == nullptr) {
    return VA_STATUS_ERROR_INVALID_BUFFER;
  }
  if (buffer->type == VAEncCodedBufferType) {
    buffer->segment = {};
    buffer->segment.size = static_cast<unsigned>(buffer->bytes.size());
    buffer->segment.buf = buffer->bytes.data();
    *data = &buffer->segment;
  } else {
    *data = buffer->mapped ? buffer->mapped->picture.bytes.data() : buffer->bytes.data();
  }
  return VA_STATUS_SUCCESS;
}

VAStatus UnmapBuffer(VADriverContextP, VABufferID) {
  return VA_STATUS_SUCCESS;
}

VAStatus DestroyBuffer(VADriverContextP driver, VABufferID id) {
  CardOf(driver).buffers.erase(id);
  return VA_STATUS_SUCCESS;
}

VAImageFormat Format() {
  VAImageFormat format{};
  format.fourcc = VA_FOURCC_NV12;
  format.byte_order = VA_LSB_FIRST;
  format.bits_per_pixel = 12;
  return format;
}

VAStatus ImageFormats(VADriverContextP, VAImageFormat* list, int* count) {
  list[0] = Format();
  *count = 1;
  return VA_STATUS_SUCCESS;
}

// An image of this surface: the two share their bytes.
VAStatus MakeImage(Card& card, const std::shared_ptr<Surface>& surface, VAImage* image) {
  const Picture& picture = surface->picture;
  *image = {};
  image->image_id = card.nextId++;
  image->buf = card.nextId++;
  image->format = Format();
  image->width = static_cast<uint16_t>(surface->width);
  image->height = static_cast<uint16_t>(surface->height);
  image->data_size = static_cast<unsigned>(picture.bytes.size());
  image->num_planes = 2;
  image->pitches[0] = image->pitches[1] = picture.width;
  image->offsets[1] = picture.width * picture.height;
  Buffer buffer;
  buffer.type = VAImageBufferType;
  buffer.mapped = surface;
  card.buffers[image->buf] = std::move(buffer);
  card.images[image->image_id] = *image;
  return VA_STATUS_SUCCESS;
}

VAStatus CreateImage(VADriverContextP driver, VAImageFormat*, int width, int height,
                     VAImage* image) {
  auto surface = std::make_shared<Surface>();
  surface->width = static_cast<unsigned>(width);
  surface->height = static_cast<unsigned>(height);
  surface->picture.Resize(surface->width, surface->height);
  return MakeImage(CardOf(driver), surface, image);
}

VAStatus DeriveImage(VADriverContextP driver, VASurfaceID id, VAImage* image) {
  Card& card = CardOf(driver);
  const auto found = card.surfaces.find(id);
  return found == card.surfaces.end() ? VA_STATUS_ERROR_INVALID_SURFACE
                                      : MakeImage(card, found->second, image);
}

VAStatus DestroyImage(VADriverContextP driver, VAImageID id) {
  Card& card = CardOf(driver);
  const auto found = card.images.find(id);
  if (found == card.images.end()) {
    return VA_STATUS_ERROR_INVALID_IMAGE;
  }
  card.buffers.erase(found->second.buf);
  card.images.erase(found);
  return VA_STATUS_SUCCESS;
}

Surface* SurfaceOfImage(Card& card, VAImageID id) {
  const auto found = card.images.find(id);
  Buffer* const buffer = found == card.images.end() ? nullptr : FindBuffer(card, found->second.buf);
  return buffer == nullptr ? nullptr : buffer->mapped.get();
}

VAStatus Copy(const Surface* from, Surface* to) {
  if (from == nullptr || to == nullptr || from->picture.bytes.size() != to->picture.bytes.size()) {
    return VA_STATUS_ERROR_INVALID_PARAMETER;
  }
  to->picture.bytes = from->picture.bytes;
  return VA_STATUS_SUCCESS;
}

VAStatus GetImage(VADriverContextP driver, VASurfaceID surface, int, int, unsigned, unsigned,
                  VAImageID image) {
  Card& card = CardOf(driver);
  return Copy(FindSurface(card, surface), SurfaceOfImage(card, image));
}

VAStatus PutImage(VADriverContextP driver, VASurfaceID surface, VAImageID image, int, int, unsigned,
                  unsigned, int, int, unsigned, unsigned) {
  Card& card = CardOf(driver);
  return Copy(SurfaceOfImage(card, image), FindSurface(card, surface));
}

// --- Encoding ---

VAStatus CreateContext(VADriverContextP driver, VAConfigID, int, int height, int, VASurfaceID*, int,
                       VAContextID* id) {
  const long most = Commanded("lines");
  if (most != 0 && height > most) {
    return VA_STATUS_ERROR_RESOLUTION_NOT_SUPPORTED;
  }
  Card& card = CardOf(driver);
  *id = card.nextId++;
  card.contexts[*id] = {};
  return VA_STATUS_SUCCESS;
}

VAStatus DestroyContext(VADriverContextP driver, VAContextID id) {
  CardOf(driver).contexts.erase(id);
  return VA_STATUS_SUCCESS;
}

VAStatus BeginPicture(VADriverContextP driver, VAContextID context, VASurfaceID source) {
  Job job;
  job.source = source;
  CardOf(driver).contexts[context] = std::move(job);
  return VA_STATUS_SUCCESS;
}

template <typename Parameters>
void Read(const Buffer& buffer, Parameters& parameters) {
  memcpy(&parameters, buffer.bytes.data(), std::min(sizeof parameters, buffer.bytes.size()));
}

void TakeHeader(const Buffer& buffer, Job& job) {
  if (job.announced.type == VAEncPackedHeaderSlice) {
    job.header = buffer.bytes;
    job.headerBits = job.announced.bit_length;
  } else {
    job.stream.insert(job.stream.end(), buffer.bytes.begin(),
                      buffer.bytes.begin() + job.announced.bit_length / 8);
  }
}

void WriteSlice(Card& card, const Buffer& buffer, Job& job) {
  VAEncSliceParameterBufferH264 slice{};
  Read(buffer, slice);
  const bool isIntra = slice.slice_type % 5 == static_cast<int>(SliceType::kIntra);
  const Surface* const reference =
      isIntra ? nullptr : FindSurface(card, slice.RefPicList0[0].picture_id);
  const Surface* const source = FindSurface(card, job.source);
  SliceWriter(job.header, job.headerBits, job.stream)
      .Write(source->picture, reference != nullptr ? &reference->picture : nullptr);
}

void Render(Card& card, const Buffer& buffer, Job& job) {
  switch (buffer.type) {
    case VAEncPictureParameterBufferType:
      Read(buffer, job.picture);
      break;
    case VAEncPackedHeaderParameterBufferType:
      Read(buffer, job.announced);
      break;
    case VAEncPackedHeaderDataBufferType:
      TakeHeader(buffer, job);
      break;
    case VAEncSliceParameterBufferType:
      WriteSlice(card, buffer, job);
      break;
    default:
      break;  // rates and qualities mean nothing to an encoder that does not compress
  }
}

VAStatus RenderPicture(VADriverContextP driver, VAContextID context, VABufferID* list, int count) {
  Card& card = CardOf(driver);
  for (VABufferID* id = list; id != list + count; ++id) {
    const Buffer* const buffer = FindBuffer(card, *id);
    if (buffer == nullptr || FindSurface(card, card.contexts[context].source) == nullptr) {
      return VA_STATUS_ERROR_INVALID_BUFFER;
    }
    Render(card, *buffer, card.contexts[context]);
  }
  return VA_STATUS_SUCCESS;
}

bool IsReached(const Card& card, const char* command) {
  const long wanted = Commanded(command);
  return wanted != 0 && card.pictures >= wanted;
}

void Hang() {
  for (;;) {
    pause();
  }
}

VAStatus EndPicture(VADriverContextP driver, VAContextID context) {
  Card& card = CardOf(driver);
  Job& job = card.contexts[context];
  ++card.pictures;
  if (IsReached(card, "hang")) {
    Hang();
  }
  Buffer* const output = FindBuffer(card, job.picture.coded_buf);
  Surface* const rebuilt = FindSurface(card, job.picture.CurrPic.picture_id);
  if (IsReached(card, "picture") || output == nullptr || rebuilt == nullptr) {
    return VA_STATUS_ERROR_ENCODING_ERROR;
  }
  rebuilt->picture = FindSurface(card, job.source)->picture;
  output->bytes = Commanded("lie") != 0 ? std::vector<uint8_t>(64) : std::move(job.stream);
  return VA_STATUS_SUCCESS;
}

// --- The driver ---

VAStatus Terminate(VADriverContextP driver) {
  delete static_cast<Card*>(driver->pDriverData);
  driver->pDriverData = nullptr;
  return VA_STATUS_SUCCESS;
}

template <typename... Arguments>
VAStatus Nothing(Arguments...) {
  return VA_STATUS_ERROR_UNIMPLEMENTED;
}

void FillTable(VADriverVTable& table) {
  table.vaTerminate = Terminate;
  table.vaQueryConfigProfiles = Profiles;
  table.vaQueryConfigEntrypoints = Entrypoints;
  table.vaGetConfigAttributes = Attributes;
  table.vaCreateConfig = CreateConfig;
  table.vaDestroyConfig = DestroyConfig;
  table.vaQueryConfigAttributes = ConfigAttributes;
  table.vaCreateSurfaces = CreateSurfaces;
  table.vaDestroySurfaces = DestroySurfaces;
  table.vaCreateContext = CreateContext;
  table.vaDestroyContext = DestroyContext;
  table.vaCreateBuffer = CreateBuffer;
  table.vaBufferSetNumElements = SetElements;
  table.vaMapBuffer = MapBuffer;
  table.vaUnmapBuffer = UnmapBuffer;
  table.vaDestroyBuffer = DestroyBuffer;
  table.vaBeginPicture = BeginPicture;
  table.vaRenderPicture = RenderPicture;
  table.vaEndPicture = EndPicture;
  table.vaSyncSurface = SyncSurface;
  table.vaQuerySurfaceStatus = SurfaceStatus;
  table.vaPutSurface = Nothing;
  table.vaQueryImageFormats = ImageFormats;
  table.vaCreateImage = CreateImage;
  table.vaDeriveImage = DeriveImage;
  table.vaDestroyImage = DestroyImage;
  table.vaSetImagePalette = Nothing;
  table.vaGetImage = GetImage;
  table.vaPutImage = PutImage;
  table.vaQuerySubpictureFormats = Nothing;
  table.vaCreateSubpicture = Nothing;
  table.vaDestroySubpicture = Nothing;
  table.vaSetSubpictureImage = Nothing;
  table.vaSetSubpictureChromakey = Nothing;
  table.vaSetSubpictureGlobalAlpha = Nothing;
  table.vaAssociateSubpicture = Nothing;
  table.vaDeassociateSubpicture = Nothing;
  table.vaQueryDisplayAttributes = Nothing;
  table.vaGetDisplayAttributes = Nothing;
  table.vaSetDisplayAttributes = Nothing;
  table.vaQuerySurfaceAttributes = SurfaceAttributes;
  table.vaCreateSurfaces2 = CreateSurfaces2;
}

}  // namespace
}  // namespace orvo::test_card

extern "C" {

__attribute__((visibility("default"))) VAStatus __vaDriverInit_1_0(VADriverContextP driver) {
  using namespace orvo::test_card;
  if (Commanded("open") != 0) {
    return VA_STATUS_ERROR_OPERATION_FAILED;
  }
  driver->pDriverData = new Card;
  driver->version_major = VA_MAJOR_VERSION;
  driver->version_minor = VA_MINOR_VERSION;
  driver->max_profiles = driver->max_entrypoints = driver->max_attributes = kMostAnswers;
  driver->max_image_formats = driver->max_subpic_formats = driver->max_display_attributes =
      kMostAnswers;
  driver->str_vendor = kVendor;
  FillTable(*driver->vtable);
  return VA_STATUS_SUCCESS;
}

// libva asks these two functions of libdrm about the node; preloaded, the ones here answer.
__attribute__((visibility("default"))) int drmGetNodeTypeFromFd(int) {
  constexpr int kRenderNode = 2;
  return kRenderNode;
}

struct DrmVersion {
  int numbers[3];
  int nameLength;
  char* name;
  int dateLength;
  char* date;
  int descriptionLength;
  char* description;
};

__attribute__((visibility("default"))) DrmVersion* drmGetVersion(int) {
  static char name[] = "orvotest";
  static DrmVersion version{{1, 0, 0}, sizeof name - 1, name, 0, name, 0, name};
  return &version;
}

__attribute__((visibility("default"))) void drmFreeVersion(DrmVersion*) {}
}
