#include "engineering/base/PersistentFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "KYRSystem.h"

namespace {

constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-";

std::string ShellQuoted(std::string_view text)
{
    if (text.find_first_not_of(kPlain) == std::string_view::npos)
        return std::string(text);
    std::string strQuoted = "'";
    for (const char c : text) {
        if (c == '\'')
            strQuoted += "'\\''";
        else
            strQuoted += c;
    }
    return strQuoted + "'";
}

class RegularFile
{
public:
    RegularFile(const std::string& path, int nFlags)
        : m_nFile(open(path.c_str(), nFlags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, S_IRUSR | S_IWUSR | S_IRGRP))
    {
        struct stat status = {};
        if (fstat(m_nFile, &status) != 0 || !S_ISREG(status.st_mode))
            Close();
    }
    ~RegularFile() { Close(); }

    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    bool IsOpen() const { return m_bOpen; }
    int Get() const { return m_nFile; }

    /// @returns whether the file system took everything.
    bool Close() { return !std::exchange(m_bOpen, false) || close(m_nFile) == 0; }

private:
    const int m_nFile;
    bool m_bOpen = true;
};

bool WriteAll(int nFile, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t nWritten = TEMP_FAILURE_RETRY(write(nFile, text.data(), text.size()));
        if (nWritten == -1)
            return false;
        text.remove_prefix(static_cast<std::size_t>(nWritten));
    }
    return true;
}

}  // namespace

std::string PersistentPath(std::string_view path)
{
    return KYR_GetRootPath() + std::string(path);
}

std::string PersistentShellPath(std::string_view path)
{
    return ShellQuoted(KYR_GetRootPath()) + std::string(path);
}

FileRead ReadPersistentFile(const std::string& path, std::size_t nLimit, std::string& text)
{
    text.clear();
    const RegularFile file(path, O_RDONLY);
    if (!file.IsOpen())
        return FileRead::kFailed;
    std::array<char, 4096> chunk;
    ssize_t nRead = 0;
    while ((nRead = TEMP_FAILURE_RETRY(read(file.Get(), chunk.data(), chunk.size()))) > 0) {
        text.append(chunk.data(), static_cast<std::size_t>(nRead));
        if (text.size() > nLimit) {
            text.clear();
            return FileRead::kTooLong;
        }
    }
    if (nRead == 0)
        return FileRead::kComplete;
    text.clear();
    return FileRead::kFailed;
}

FileWritten WritePersistentFile(const std::string& path, std::string_view text)
{
    RegularFile file(path, O_WRONLY | O_CREAT);
    if (!file.IsOpen())
        return FileWritten::kNotOpened;
    const bool bWritten = ftruncate(file.Get(), 0) == 0 && WriteAll(file.Get(), text);
    return file.Close() && bWritten ? FileWritten::kComplete : FileWritten::kIncomplete;
}

bool IsReadableFile(const std::string& path)
{
    return RegularFile(path, O_RDONLY).IsOpen();
}
