#include "station/record/StoredFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <streambuf>

#include "host/Descriptor.h"
#include "protocol/Errors.h"

namespace station::record {

namespace {

[[noreturn]] void failToWrite(const std::filesystem::path& path, std::string_view reason)
{
    throw protocol::StorageError(fmt::format("{}: cannot be written: {}", path.string(), reason));
}

/// Writes into a file and keeps the first error, which a std::ofstream would lose.
class DescriptorBuffer : public std::streambuf
{
public:
    explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) { setp(data_.data(), data_.data() + kSize); }

    /// @returns the errno of the first write that failed; 0 for none.
    int error() const { return error_; }

private:
    static constexpr std::size_t kSize = 1 << 16;

    int sync() override
    {
        for (const char* rest = pbase(); rest != pptr() && error_ == 0;) {
            const ssize_t written = ::write(descriptor_, rest, static_cast<std::size_t>(pptr() - rest));
            rest += std::max<ssize_t>(written, 0);
            error_ = written < 0 && errno != EINTR ? errno : 0;
        }
        setp(data_.data(), data_.data() + kSize);
        return error_ == 0 ? 0 : -1;
    }

    int_type overflow(int_type byte) override
    {
        if (sync() != 0) {
            return traits_type::eof();
        }
        return traits_type::eq_int_type(byte, traits_type::eof()) ? traits_type::not_eof(byte)
                                                                  : sputc(traits_type::to_char_type(byte));
    }

    const int descriptor_;
    int error_ = 0;
    std::array<char, kSize> data_;
};

}  // namespace

void writeAtomically(const std::filesystem::path& path, const std::function<void(std::ostream&)>& write)
{
    std::error_code ignored;
    if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored) &&
        !std::filesystem::is_directory(path, ignored)) {
        failToWrite(path, "expected a regular file");
    }
    std::filesystem::path temporary;
    host::Descriptor file;
    do {
        temporary = fmt::format("{}.{:06X}", path.string(), g_random_int_range(0, 1 << 24));
        file.reset(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    } while (!file.valid() && errno == EEXIST);
    if (!file.valid()) {
        failToWrite(path, std::strerror(errno));
    }
    DescriptorBuffer buffer(file.get());
    std::ostream out(&buffer);
    try {
        write(out);
        out.flush();
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    int error = buffer.error();
    if (error == 0 && (::fsync(file.get()) != 0 || std::rename(temporary.c_str(), path.c_str()) != 0)) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(temporary.c_str());
        failToWrite(path, std::strerror(error));
    }
    syncDirectory(path.parent_path().empty() ? "." : path.parent_path());
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
