// The files in a stream's directory through which the library, the request program and the
// transcoder speak to each other.
#pragma once

namespace orvo {

// The number of the piece that was asked for last, in decimal. A transcoder runs a bounded number
// of pieces ahead of it.
inline constexpr char kRequestedFile[] = "requested";

// The manifest of a Smooth Streaming stream, and the folder of its fragments.
inline constexpr char kManifestFile[] = "manifest_predict";
inline constexpr char kFragmentsFolder[] = "smooth";

// The segments of an HLS stream, as a format for their number; all of them, as a file name pattern.
inline constexpr char kSegmentPattern[] = "slice-%05d.ts";
inline constexpr char kAnySegment[] = "slice*";

}  // namespace orvo
