// What programs that were built against an earlier release rely on.
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "metadata/qmxmetadata.h"
#include "policy/trans_loading.h"
#include "stream/adapt_stream.h"
#include "stream/http_live_stream.h"
#include "stream/http_stream.h"
#include "stream/smooth_stream.h"
#include "stream/webm_stream.h"

namespace {

using namespace LibOrvoQMX;

static_assert(std::is_abstract_v<QMXStream>);
static_assert(!std::has_virtual_destructor_v<QMXStream>);
static_assert(std::is_constructible_v<HttpStream, const std::string&>);

static_assert(std::is_base_of_v<QMXStream, DirectStream>);
static_assert(std::is_base_of_v<QMXStream, AdaptStream>);
static_assert(std::is_abstract_v<DirectStream> && std::is_abstract_v<AdaptStream>);
static_assert(std::has_virtual_destructor_v<DirectStream>);
static_assert(std::has_virtual_destructor_v<AdaptStream>);
static_assert(sizeof(DirectStream) == sizeof(QMXStream), "the family bases add no data");
static_assert(sizeof(AdaptStream) == sizeof(QMXStream));
static_assert(std::is_base_of_v<DirectStream, HttpStream> && !std::is_abstract_v<HttpStream>);
static_assert(std::is_base_of_v<DirectStream, WebMStream> && !std::is_abstract_v<WebMStream>);
static_assert(std::is_base_of_v<AdaptStream, HttpLiveStream>);
static_assert(std::is_base_of_v<AdaptStream, SmoothStream> && !std::is_abstract_v<SmoothStream>);
static_assert(std::is_constructible_v<WebMStream, const std::string&>);
static_assert(std::is_constructible_v<SmoothStream, const std::string&>);

// Operations that take no part in the tables.
static_assert(std::is_same_v<decltype(&WebMStream::MointerSignalHandler), void (*)(int)>);
static_assert(std::is_same_v<decltype(&SmoothStream::MointerSignalHandler), void (*)(int)>);
static_assert(std::is_same_v<decltype(&SmoothStream::WaitAllChild), void (*)()>);

static_assert(!std::is_polymorphic_v<VideoMetaData>);
static_assert(std::is_copy_constructible_v<VideoMetaData> &&
              std::is_copy_assignable_v<VideoMetaData>);
static_assert(std::is_base_of_v<VideoMetaData, QMXMetaData>);
static_assert(std::is_constructible_v<QMXMetaData, const std::string&, const std::string&>);

static_assert(std::has_virtual_destructor_v<LibMirevo::Lock>);
static_assert(std::is_base_of_v<LibMirevo::Lock, LibMirevo::TransLoading>);
static_assert(std::is_default_constructible_v<LibMirevo::TransLoading>);

#ifdef __x86_64__
// The slot of a virtual function: a pointer to it is one more than its offset in the table.
template <typename Function>
size_t SlotOf(Function function) {
  size_t offset = 0;
  std::memcpy(&offset, &function, sizeof(offset));
  return (offset - 1) / sizeof(void*);
}

TEST(ClassLayout, VirtualFunctionsKeepTheirSlots) {
  EXPECT_EQ(SlotOf(&QMXStream::GetSeekTimeInMillisecond), 0U);
  EXPECT_EQ(SlotOf(&QMXStream::GetMetaVideoRotate), 1U);
  // The destructor takes slots 2 and 3.
  EXPECT_EQ(SlotOf(&DirectStream::Init), 4U);
  EXPECT_EQ(SlotOf(&DirectStream::Transcoding), 5U);
  EXPECT_EQ(SlotOf(&DirectStream::Read), 6U);
  EXPECT_EQ(SlotOf(&DirectStream::Close), 7U);
  EXPECT_EQ(SlotOf(&AdaptStream::Init), 4U);
  EXPECT_EQ(SlotOf(&AdaptStream::Transcoding), 5U);
  EXPECT_EQ(SlotOf(&AdaptStream::ReadFragment), 6U);
  EXPECT_EQ(SlotOf(&AdaptStream::Close), 7U);
}
#endif

}  // namespace
