// Saves the settings of a window to a file and loads them again.
//
// It walks the whole way of a document: a stream opens the file through the host, the byte-order mark and a block are
// written, and reading back takes what it knows by name. Whatever goes wrong on the way ends in one place.

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

constexpr int32 kSettings = NqFourChar("SETT");
constexpr int32 kTitle = NqFourChar("TITL");
constexpr int32 kBounds = NqFourChar("BNDS");
constexpr int32 kZoom = NqFourChar("ZOOM");
constexpr int32 kShowGrid = NqFourChar("GRID");

struct TSettings
{
    TNqString255 fTitle;
    TNqRect fBounds = TNqRect(0, 0, 0, 0);
    real32 fZoom = 1;
    boolean fShowGrid = false;
};

// False when the file could not be written whole.
bool Save(const TSettings& inSettings, const char* inPath)
{
    TNqfstream stream(inPath, kUTF8Transcoder, eWrite, 4096, nullptr);
    if (!stream.good())
        return false;
    stream.WriteIdentifier();
    NqToken::PutBeginToken(stream, kSettings, false);
    NqToken::PutNonLocalizedStringAttribute(stream, kTitle, inSettings.fTitle, false);
    NqToken::PutRectAttribute(stream, kBounds, inSettings.fBounds);
    NqToken::PutReal32Attribute(stream, kZoom, inSettings.fZoom);
    NqToken::PutBooleanAttribute(stream, kShowGrid, inSettings.fShowGrid);
    NqToken::PutEndToken(stream);
    stream.flush();
    return stream.good();
}

// Throws TNqException when the file is no settings file.
TSettings Load(const char* inPath)
{
    TNqfstream stream(inPath, kUTF8Transcoder, eRead, 4096, nullptr);
    stream.CheckIdentifier();
    TSettings settings;
    if (NqToken::GetFourCharConstToken(stream) != kSettings)
        NqToken::FailReadFile();
    NqToken::GetBeginToken(stream);
    int8 name[NqToken::kTokenBufferSize];
    for (;;)
    {
        if (NqToken::GetNextToken(stream, name, false) != 0)
            NqToken::FailEOFFile();
        if (NqToken::IsEndToken(name))
            return settings;
        switch (NqToken::CompactAttribute(name))
        {
        case kTitle:
            settings.fTitle = NqToken::GetNonLocalizedStringToken(stream);
            break;
        case kBounds:
            settings.fBounds = NqToken::GetRectToken(stream);
            break;
        case kZoom:
            settings.fZoom = NqToken::GetReal32Token(stream);
            break;
        case kShowGrid:
            settings.fShowGrid = NqToken::GetBooleanToken(stream);
            break;
        default: // written by a later version
            NqToken::SkipTokenData(stream);
            break;
        }
    }
}

} // namespace

int main()
{
    const TNqHost host;
    TSettings settings;
    settings.fTitle = TNqString255("Caf\xC3\xA9 \"Nord\"");
    settings.fBounds = TNqRect(10, 20, 650, 500);
    settings.fZoom = 1.25F;
    settings.fShowGrid = true;
    if (!Save(settings, "settings.txt"))
        return 1;
    try
    {
        const TSettings loaded = Load("settings.txt");
        TNqString255 title(loaded.fTitle);
        std::printf("%s, %d by %d, zoom %g, grid %s\n", title.StrGet(), loaded.fBounds.GetWidth(),
                    loaded.fBounds.GetHeight(), static_cast<double>(loaded.fZoom), loaded.fShowGrid ? "on" : "off");
    }
    catch (const TNqException& error)
    {
        std::printf("settings.txt cannot be read: %08X\n", static_cast<unsigned>(error.GetError()));
        return 1;
    }
    return 0;
}
