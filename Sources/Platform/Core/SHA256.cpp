#include "Platform/Core/SHA256.h"

#include <glib.h>

#include <memory>

namespace panoveer {

std::string sha256(std::string_view bytes) {
    const std::unique_ptr<gchar, decltype(&g_free)> digest(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()),
        g_free);
    return digest.get();
}

} // namespace panoveer
