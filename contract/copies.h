// The process that makes copies of films for the transcoders of a service.
#pragma once

namespace orvo {

// The transcoder program with this option alone becomes that process.
inline constexpr char kCopiesOption[] = "--copies";

// Where it listens, below the system root.
inline constexpr char kCopiesSocket[] = "/tmp/Mirevo/copies";

}  // namespace orvo
