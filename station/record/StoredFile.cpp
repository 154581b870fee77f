#include "station/record/StoredFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "host/Descriptor.h"
#include "protocol/Errors.h"

namespace station::record {

namespace {

[[noreturn]] void failToWrite(const std::filesystem::path& path, std::string_view reason)
{
    throw protocol::StorageError(fmt::format("cannot write {}: {}", path.string(), reason));
}

}  // namespace

void writeAtomically(const std::filesystem::path& path, std::string_view content)
{
    constexpr auto kFlags =
        static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE);
    GError* failure = nullptr;
    if (g_file_set_contents_full(path.c_str(), content.data(), static_cast<gssize>(content.size()), kFlags, 0640,
                                 &failure) == FALSE) {
        const std::unique_ptr<GError, decltype(&g_error_free)> error(failure, g_error_free);
        // "Failed to create file “/a/b.K2XWV1”: Permission denied": the temporary file does not concern the user.
        const std::string_view text = error->message;
        const auto reason = text.rfind(": ");
        failToWrite(path, reason == std::string_view::npos ? text : text.substr(reason + 2));
    }
}

void syncDirectory(const std::filesystem::path& directory)
{
    const host::Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: the file system has nothing to sync.
    const bool synced = opened.valid() && (::fsync(opened.get()) == 0 || errno == EINVAL);
    if (!synced) {
        failToWrite(directory, std::strerror(errno));
    }
}

std::string sha256(std::string_view bytes)
{
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()),
        g_free);
    return text.get();
}

}  // namespace station::record
