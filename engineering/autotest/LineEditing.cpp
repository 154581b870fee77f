// Replaces one line of a text file in place, working from a backup copy.

#include <fstream>

#include "engineering/Log.h"
#include "engineering/PersistentFile.h"
#include "engineering/PersistentPath.h"
#include "engineering/autotest/KYRAutoTest.h"

namespace {

constexpr const char* kBackupFile = "/media/backup.txt";

/// Reads lines until the end of the stream, or until it fails: a path may be a directory.
/// @param take (line, whether a line end followed it)
template <class Take>
void ForEachLine(std::ifstream& file, Take take)
{
    std::string strLine;
    while (file.good()) {
        std::getline(file, strLine);
        if (!file.bad())
            take(strLine, !file.eof());
    }
}

void PutLine(std::ofstream& file, const std::string& strLine, bool bLineEnd)
{
    file << strLine;
    if (bLineEnd)
        file << '\n';
}

}  // namespace

int KYRAutoTest::CountLines(std::string path)
{
    std::ifstream file(path);
    if (!file) {
        KYR_LOG_INFO("[rkb] CountLines, open file fail");
        return 0;
    }
    int nLines = 0;
    std::string strLine;
    while (std::getline(file, strLine))
        ++nLines;
    return nLines;
}

bool KYRAutoTest::CopyFile(std::string src, std::string dst)
{
    std::ifstream source(src);
    MakePersistentFile(dst);
    std::ofstream destination(dst, std::ios::out | std::ios::trunc);
    if (!source.good())
        return false;
    ForEachLine(source, [&](const std::string& strLine, bool bLineEnd) { PutLine(destination, strLine, bLineEnd); });
    destination.close();
    return !source.bad() && destination.good();
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
    const bool bCopied = CopyFile(path, strBackup);
    std::ifstream backup(strBackup);
    if (!bCopied || !backup) {
        KYR_LOG_ERROR("ResetLineContents, no backup %s, %s left as it is", strBackup.c_str(), path.c_str());
        return;
    }
    std::ofstream file(path, std::ios::out | std::ios::trunc);
    int nLine = 1;
    ForEachLine(backup, [&](const std::string& strLine, bool bLineEnd) {
        if (nLine == line_no)
            PutLine(file, new_text, true);
        else
            PutLine(file, strLine, bLineEnd);
        ++nLine;
    });
    file.close();
    if (!file.good() || backup.bad())
        KYR_LOG_ERROR("ResetLineContents, %s not written, its content is in %s", path.c_str(), strBackup.c_str());
}
