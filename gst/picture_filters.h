// What the pictures' branch of a pipeline decides while it runs.
#pragma once

#include <gst/gst.h>

namespace orvo::gst {

struct PictureShape {
  int width;
  int height;
};

// The size in square pixels of a picture whose pixels have the shape pixelWidth:pixelHeight, within
// the box, never enlarged, both sides even. A box of 0 is as large as any picture.
PictureShape FitPicture(PictureShape picture, int pixelWidth, int pixelHeight, PictureShape box);

// Gives `filter`, a capsfilter, the size of the first picture that comes to `pad`, fitted into
// `box`. Pictures that come later in another shape get bars.
void FitPictures(GstPad* pad, GstElement* filter, PictureShape box);

// Asks the encoder behind `pad` for a key frame at the first picture and at the first one at or
// after each multiple of `interval` in the film, which starts at `start` here.
void ForceKeyFrames(GstPad* pad, GstClockTime start, GstClockTime interval);

}  // namespace orvo::gst
