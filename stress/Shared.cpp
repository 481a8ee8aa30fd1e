#include "Shared.h"

namespace stress {

namespace {

constexpr char kTokenLinePrefix[] = "KOVRA STRESS TOKEN ";
constexpr int kFillerLines = 48;
constexpr int kFillerWidth = 62;  // and CR LF: 64 bytes a line

// FNV-1a: the filler differs from token to token.
uint32_t Hash(const std::string& text)
{
    uint32_t hash = 2166136261u;
    for (unsigned char c : text)
        hash = (hash ^ c) * 16777619u;
    return hash;
}

} // namespace

std::string FileContent(const std::string& token)
{
    std::string content = kTokenLinePrefix + token + "\r\n";
    uint32_t state = Hash(token) | 1;
    for (int line = 0; line < kFillerLines; ++line) {
        for (int column = 0; column < kFillerWidth; ++column) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            content.push_back(static_cast<char>('A' + state % 26));
        }
        content += "\r\n";
    }
    return content;
}

std::string TokenOfContent(const std::string& content)
{
    const std::string prefix = kTokenLinePrefix;
    size_t end = content.find("\r\n");
    if (content.compare(0, prefix.size(), prefix) != 0 || end == std::string::npos || end <= prefix.size())
        return "";
    std::string token = content.substr(prefix.size(), end - prefix.size());
    return FileContent(token) == content ? token : "";
}

} // namespace stress
