#include "engineering/PersistentFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void MakePersistentFile(const std::string& path)
{
    // Whoever writes the file next finds out when it cannot be had.
    const int nFile = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR | S_IRGRP);
    if (nFile >= 0)
        close(nFile);
}
