// What was promised of a film before it was encoded.
#pragma once

#include <optional>
#include <string>

namespace orvo::transcoder {

// The whole seconds that the manifest in this folder, "manifest_predict", gives the film. Nothing
// without a manifest, or when it is damaged.
std::optional<int> PromisedSeconds(const std::string& folder);

}  // namespace orvo::transcoder
