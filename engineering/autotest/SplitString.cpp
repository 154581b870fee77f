#include "engineering/autotest/SplitString.h"

void splitString(std::vector<std::string>& pieces, const std::string& text, const std::string& separator)
{
    std::size_t start = 0;
    if (!separator.empty()) {
        for (auto pos = text.find(separator); pos != std::string::npos; pos = text.find(separator, start)) {
            while (start < pos && (text[start] == ' ' || text[start] == '\t'))
                ++start;
            pieces.push_back(text.substr(start, pos - start));
            start = pos + separator.size();
        }
    }
    if (start < text.size())
        pieces.push_back(text.substr(start));
}
