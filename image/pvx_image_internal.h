// Helpers shared by the image record's source files; not part of the
// image interface.
#pragma once

#include <stdint.h>

#include "image/pvx_image.h"

// Byte size of the heap block the record owns (0 when it owns none).
int64_t pvx_Image_ownedSize(const pvx_Image *image);

// Gives an owned block back to the record's heap and clears the plane
// pointers; nothing for an external record. The pointers stay when the free fails.
pvx_Result pvx_Image_releaseOwned(pvx_Image *image);

// True when `p` lies inside the heap block that `image` owns.
bool pvx_Image_ownsAddress(const pvx_Image *image, const void *p);
