// Where programs find the playlist writer.
#pragma once

#include "playlist/hls_helper.h"
