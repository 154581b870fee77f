// Replaces one line of a text file in place, working from a backup copy.

#include <algorithm>
#include <cstddef>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/PersistentFile.h"

namespace {

constexpr const char* kBackupFile = "/media/backup.txt";

/// The largest file that is counted, copied or edited: the whole file stands in memory.
constexpr std::size_t kMaxSize = 1 << 20;

int LinesIn(const std::string& strText)
{
    const bool bOpenEnd = !strText.empty() && strText.back() != '\n';
    return static_cast<int>(std::ranges::count(strText, '\n')) + (bOpenEnd ? 1 : 0);
}

/// @param line_no an existing line
void ReplaceLine(std::string& strText, int line_no, const std::string& new_text)
{
    std::size_t nBegin = 0;
    for (int nLine = 1; nLine < line_no; ++nLine)
        nBegin = strText.find('\n', nBegin) + 1;
    const std::size_t nEnd = std::min(strText.find('\n', nBegin), strText.size() - 1) + 1;
    strText.replace(nBegin, nEnd - nBegin, new_text + '\n');
}

}  // namespace

int KYRAutoTest::CountLines(std::string path)
{
    std::string strText;
    switch (ReadPersistentFile(path, kMaxSize, strText)) {
        case FileRead::kFailed:
            KYR_LOG_INFO("[rkb] CountLines, open file fail");
            break;
        case FileRead::kTooLong:
            KYR_LOG_ERROR("CountLines, %s is longer than %zu bytes, it is left as it is", path.c_str(), kMaxSize);
            break;
        case FileRead::kComplete:
            break;
    }
    return LinesIn(strText);
}

bool KYRAutoTest::CopyFile(std::string src, std::string dst)
{
    std::string strText;
    const bool bRead = ReadPersistentFile(src, kMaxSize, strText) == FileRead::kComplete;
    return WritePersistentFile(dst, strText) == FileWritten::kComplete && bRead;
}

void KYRAutoTest::ResetLineContents(std::string path, int line_no, std::string new_text)
{
    const int nLines = CountLines(path);
    KYR_LOG_INFO("[rkb] ResetLineContents, total_lines = %d", nLines);
    if (line_no < 1 || line_no > nLines) {
        KYR_LOG_INFO("[rkb] ResetLineContents, Exceeded the range of configuration file lines!");
        return;
    }

    const std::string strBackup = PersistentPath(kBackupFile);
    std::string strText;
    if (!CopyFile(path, strBackup) || ReadPersistentFile(strBackup, kMaxSize, strText) != FileRead::kComplete ||
        LinesIn(strText) < line_no) {
        KYR_LOG_ERROR("ResetLineContents, no backup %s, %s left as it is", strBackup.c_str(), path.c_str());
        return;
    }
    ReplaceLine(strText, line_no, new_text);
    if (WritePersistentFile(path, strText) != FileWritten::kComplete)
        KYR_LOG_ERROR("ResetLineContents, %s not written, its content is in %s", path.c_str(), strBackup.c_str());
}
