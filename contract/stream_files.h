// The files in a stream's directory that the library, the request program and the transcoder share.
#pragma once

namespace orvo {

// The number of the last requested piece, in decimal. A transcoder runs a limited number of pieces
// ahead of it.
inline constexpr char kRequestedFile[] = "requested";

// The manifest of a Smooth Streaming stream, and the folder of its fragments.
inline constexpr char kManifestFile[] = "manifest_predict";
inline constexpr char kFragmentsFolder[] = "smooth";

// The names of an HLS stream's segments: a format for the number, and a pattern that matches all of
// them.
inline constexpr char kSegmentPattern[] = "slice-%05d.ts";
inline constexpr char kAnySegment[] = "slice*";

}  // namespace orvo
