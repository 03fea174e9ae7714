// The functions the library calls back during rendering.
#pragma once

namespace zvrs {

// `data` is the ProgressRecord; prints the overall percentage when progress printing is on.
void progressCallback(float progress, void* data);
// `data` is a float to store the time in, or null.
void storeTimeCallback(float value, void* data);
void ignoreTimeCallback(float value, void* data);

}  // namespace zvrs
