// Paints the sky at dusk: a gradient of a few keys, interpolated for each row and written as an image that most
// viewers open (a binary PPM).
//
// A key is a colour and its place; between two keys both are interpolated. The stars are pixels, mixed with white as
// bytes.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqColorRGBAIndex.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

constexpr int32 kWidth = 320;
constexpr int32 kHeight = 200;

TNqColorRGBAIndex Key(real32 inIndex, real32 inHue, real32 inLightness, real32 inSaturation)
{
    TNqColorRGB color;
    color.SetHLS(inHue, inLightness, inSaturation);
    TNqColorRGBAIndex key;
    color.ToRGBA(key.fColor, 1);
    key.fIndex = inIndex;
    return key;
}

// The key at a place; the keys ascend from 0 to 1.
TNqColorRGBAIndex GetKeyAt(const TNqArray<TNqColorRGBAIndex>& inKeys, real32 inPlace)
{
    uint32 next = 1;
    while (next + 1 < inKeys.GetElemCount() && inKeys[next].fIndex < inPlace)
        ++next;
    const TNqColorRGBAIndex& from = inKeys[next - 1];
    const TNqColorRGBAIndex& to = inKeys[next];
    TNqColorRGBAIndex key;
    key.Interpolate(from, to, (inPlace - from.fIndex) / (to.fIndex - from.fIndex));
    return key;
}

// Stars stand about where a simple sequence of numbers puts them, fewer and fainter towards the horizon.
void PaintStars(TNqArray<TNqColorRGBA8>& ioPixels)
{
    const TNqColorRGBA8 white(255, 255, 255, 255);
    uint32 number = 1;
    for (int32 star = 0; star < 150; ++star)
    {
        number = number * 1664525U + 1013904223U;
        const uint32 row = (number >> 20) % (kHeight / 2);
        const uint32 column = (number >> 8) % kWidth;
        TNqColorRGBA8& pixel = ioPixels[row * kWidth + column];
        pixel.Interpolate(pixel, white, 1 - static_cast<real32>(row) / (kHeight / 2));
    }
}

// False when the file could not be written whole.
bool WriteImage(const TNqArray<TNqColorRGBA8>& inPixels, const char* inPath)
{
    TNqfstream file(inPath, kUTF8Transcoder, eWrite, 65536, nullptr);
    if (!file.good())
        return false;
    file << "P6 " << kWidth << " " << kHeight << " 255\n";
    for (uint32 i = 0; i < inPixels.GetElemCount(); ++i)
    {
        const uint8 rgb[3] = {inPixels[i].red, inPixels[i].green, inPixels[i].blue};
        file.write(reinterpret_cast<const int8*>(rgb), 3);
    }
    file.flush();
    return file.good();
}

void Print(const char* inWhat, const TNqColorRGBA8& inPixel)
{
    std::printf("%s: #%02X%02X%02X\n", inWhat, unsigned{inPixel.red}, unsigned{inPixel.green}, unsigned{inPixel.blue});
}

} // namespace

int main()
{
    const TNqHost host;
    TNqArray<TNqColorRGBAIndex> sky;
    sky.AddElem(Key(0, 0.64F, 0.08F, 0.7F));     // night above
    sky.AddElem(Key(0.6F, 0.62F, 0.35F, 0.55F)); // the last blue
    sky.AddElem(Key(0.85F, 0.95F, 0.6F, 0.6F));  // rose
    sky.AddElem(Key(1, 0.09F, 0.62F, 1));        // where the sun went down

    TNqArray<TNqColorRGBA8> pixels;
    if (!pixels.SetElemCount(kWidth * kHeight))
        return 1;
    for (uint32 row = 0; row < kHeight; ++row)
    {
        TNqColorRGBA8 pixel;
        GetKeyAt(sky, static_cast<real32>(row) / (kHeight - 1)).fColor.ToRGBA8(pixel);
        for (uint32 column = 0; column < kWidth; ++column)
            pixels[row * kWidth + column] = pixel;
    }
    const TNqColorRGBA8 top = pixels[0];
    PaintStars(pixels);

    Print("top", top);
    Print("middle", pixels[kHeight / 2 * kWidth]);
    Print("horizon", pixels[(kHeight - 1) * kWidth]);
    if (!WriteImage(pixels, "dusk.ppm"))
        return 1;

    TNqfstream file("dusk.ppm", kUTF8Transcoder, eRead, 65536, nullptr);
    uint32 count = 0, sum = 0;
    for (uint8 byte = 0;; ++count, sum = sum * 31 + byte)
    {
        file.read(&byte, 1);
        if (!file.good())
            break;
    }
    std::printf("dusk.ppm: %u bytes, checksum %08X\n", count, sum);
    return 0;
}
