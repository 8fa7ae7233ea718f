// The include path of the playlist writer for programs outside the library.
#pragma once

#include "playlist/hls_helper.h"
