// The bridge is for callers in C as well: its header has to be C.
#include "FFmpegBridge/FFmpegBridge.h"

int probeFromC(const char* path, PNVFFmpegVideoInfo* info);

int probeFromC(const char* path, PNVFFmpegVideoInfo* info) { return PNVFFmpegProbe(path, info, 0, 0); }
