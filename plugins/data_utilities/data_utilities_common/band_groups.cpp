// The band-selection text of the band-combination tools.
#include "band_groups.h"

#include <cerrno>
#include <cstdlib>

namespace datautil
{

namespace
{

std::string trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> items;
    size_t start = 0;
    while (true)
    {
        const size_t end = text.find(separator, start);
        items.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos)
            return items;
        start = end + 1;
    }
}

} // namespace

BandGroups parseBandGroups(const std::string& text)
{
    BandGroups parsed;
    if (trimmed(text).empty())
        return parsed;
    for (const std::string& group : split(text, '|'))
    {
        std::vector<int> bands;
        if (!trimmed(group).empty())
            for (const std::string& raw : split(group, ','))
            {
                const std::string item = trimmed(raw);
                char* end = nullptr;
                errno = 0;
                const long number = std::strtol(item.c_str(), &end, 10);
                if (item.empty() || *end != '\0' || errno == ERANGE || number < 1 || number > 1000000)
                {
                    parsed.error = "\"" + item + "\" is not a band number";
                    parsed.groups.clear();
                    return parsed;
                }
                bands.push_back(int(number));
            }
        parsed.groups.push_back(std::move(bands));
    }
    return parsed;
}

std::vector<int> bandsOfInput(const BandGroups& parsed, size_t input, int bandCount, int* badBand)
{
    std::vector<int> bands;
    if (input >= parsed.groups.size() || parsed.groups[input].empty())
    {
        for (int b = 1; b <= bandCount; ++b)
            bands.push_back(b);
        return bands;
    }
    for (int band : parsed.groups[input])
    {
        if (band > bandCount)
        {
            *badBand = band;
            return {};
        }
        bands.push_back(band);
    }
    return bands;
}

} // namespace datautil
