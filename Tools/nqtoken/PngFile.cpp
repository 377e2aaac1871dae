#include "Tools/nqtoken/PngFile.h"

#include <zlib.h>

namespace nqtoken
{
namespace
{

void PutHigh(std::string& ioBytes, uint64 inValue)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        ioBytes += static_cast<char>(inValue >> shift);
}

// A length, a name and data, with the check sum of the latter two.
void PutChunk(std::string& ioFile, const char* inName, const std::string& inData)
{
    PutHigh(ioFile, inData.size());
    const size_t start = ioFile.size();
    ioFile += inName + inData;
    PutHigh(ioFile, crc32_z(0, reinterpret_cast<const Bytef*>(&ioFile[start]), ioFile.size() - start));
}

} // namespace

std::string MakePngFile(int32 inWidth, int32 inHeight, const std::string& inTexels)
{
    const auto width = static_cast<size_t>(inWidth);
    const auto height = static_cast<size_t>(inHeight);
    if (inWidth <= 0 || inHeight <= 0 || inTexels.size() / 4 / width < height)
        return {};
    std::string lines;
    lines.reserve((width * 4 + 1) * height);
    for (size_t y = 0; y < height; ++y)
    {
        lines += '\0'; // no filter
        for (size_t x = 0; x < width; ++x)
        {
            const char* const texel = &inTexels[(y * width + x) * 4];
            lines += {texel[2], texel[1], texel[0], texel[3]};
        }
    }
    uLongf size = compressBound(lines.size());
    std::string packed(size, '\0');
    if (compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(lines.data()),
                 lines.size()) != Z_OK)
        return {};
    packed.resize(size);

    std::string file = "\x89PNG\r\n\x1A\n";
    std::string header;
    PutHigh(header, width);
    PutHigh(header, height);
    header += {8, 6, 0, 0, 0}; // bits of a part, red green blue alpha, and the only methods there are
    PutChunk(file, "IHDR", header);
    PutChunk(file, "IDAT", packed);
    PutChunk(file, "IEND", {});
    return packed.size() <= INT32_MAX ? file : std::string();
}

} // namespace nqtoken
