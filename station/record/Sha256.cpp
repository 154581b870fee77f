#include "station/record/Sha256.h"

#include <glib.h>

#include <memory>

namespace station::record {

std::string sha256(std::string_view bytes)
{
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()),
        g_free);
    return text.get();
}

}  // namespace station::record
