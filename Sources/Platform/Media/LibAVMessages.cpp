#include "Platform/Media/LibAVMessages.h"

#include "Platform/Core/Log.h"
#include "Platform/Core/Text.h"

#include <cstdarg>
#include <mutex>

extern "C" {
#include <libavutil/log.h>
}

namespace panoveer {

namespace {

constexpr Logger logger("FFmpeg");

} // namespace

void sendLibAVMessagesToLog() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_callback([](void* object, int level, const char* format, std::va_list arguments) {
            if (level > AV_LOG_WARNING)
                return;
            char line[512];
            int printPrefix = 1;
            av_log_format_line2(object, level, format, arguments, line, sizeof line, &printPrefix);
            logger.debug("{}", trimmed(line));
        });
    });
}

} // namespace panoveer
