#include "engineering/base/PersistentPath.h"

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

}  // namespace

std::string PersistentPath(std::string_view path)
{
    return KYR_GetRootPath() + std::string(path);
}

std::string PersistentShellPath(std::string_view path)
{
    return ShellQuoted(KYR_GetRootPath()) + std::string(path);
}
