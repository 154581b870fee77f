#include "engineering/autotest/SystemCall.h"

#include <sys/wait.h>

#include <cstdlib>

#include "engineering/Log.h"

unsigned int SystemCall(const char* command)
{
    const int nStatus = system(command);
    if (nStatus == -1) {
        KYR_LOG_ERROR("[SystemCall] system(%s) call error", command);
        return 0;
    }
    if (!WIFEXITED(nStatus)) {
        KYR_LOG_ERROR("[SystemCall] system(%s) error(WIFEXITED)", command);
        return 0;
    }
    if (WEXITSTATUS(nStatus) != 0) {
        KYR_LOG_ERROR("[SystemCall] system(%s) error(WEXITSTATUS)", command);
        return 0;
    }
    KYR_LOG_INFO("[SystemCall] system(%s) success", command);
    return 1;
}
