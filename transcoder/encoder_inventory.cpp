#include "transcoder/encoder_inventory.h"

#include <utility>

#include "transcoder/engines.h"

namespace orvo::transcoder {

EncoderInventory::EncoderInventory(std::string executable, std::string cacheFile,
                                   std::function<bool(std::string_view encoder)> isProved)
    : encoders_(std::move(executable), "-encoders", std::move(cacheFile)),
      isProved_(std::move(isProved)) {}

bool EncoderInventory::CanEncode(std::string_view encoder) {
  return (!IsEngine(encoder) || isProved_(encoder)) && encoders_.Has(encoder);
}

}  // namespace orvo::transcoder
