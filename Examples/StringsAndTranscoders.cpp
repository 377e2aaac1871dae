// Text in memory is UTF-8; a transcoder stands where bytes of another encoding come in or go out.

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

void IgnoreReport(void*, const char*, unsigned int, const char*) {}

// Prints the bytes of `inText` in the encoding of a transcoder.
void PrintEncoded(const char* inLabel, TNqString& inText, TranscoderType inType)
{
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, inType);
    TNqWideString characters(inText);
    std::printf("%s:", inLabel);
    for (uint32 i = 0; i < characters.Length(); ++i)
    {
        const TNqArray<uint8>& bytes = transcoder->Decode(characters.StrGet()[i]);
        for (uint32 k = 0; k < bytes.GetElemCount(); ++k)
            std::printf(" %02X", bytes[k]);
    }
    std::printf("\n");
}

} // namespace

int main()
{
    TNqHostOptions options;
    options.fReportHandler = IgnoreReport; // a text that does not fit is reported and cut
    const TNqHost host(options);

    // A name from an old file, in the Macintosh encoding.
    const uint8 fromFile[] = {'C', 'a', 'f', 0x8E, ' ', 0xDB, 0};
    TNqCountedPtr<ITranscoder> macintosh;
    NqCreateTranscoder(macintosh, kMacTranscoder);
    TNqDynamicString name;
    name.FromEncodedPtr(fromFile, macintosh);
    std::printf("%s has %u characters in %u bytes\n", name.StrGet(), name.Length(), name.ByteLength());

    PrintEncoded("Windows", name, kAnsiTranscoder);
    PrintEncoded("UTF-8", name, kUTF8Transcoder);

    name.ToUpper();
    name.InsertStr(TNqString31("Grand "), 0);
    std::printf("%s\n", name.StrGet());

    // A fixed string never allocates; what does not fit is cut.
    TNqString15 label(name);
    label += TNqString15(" and more");
    std::printf("%u of %u bytes used\n", label.ByteLength(), label.MaxLength());

    TNqDynamicString message("^0 of ^1 saved");
    message.ReplaceStr(TNqString15("^0"), TNqString15("3"), 0);
    message.ReplaceStr(TNqString15("^1"), TNqString15("7"), 0);
    std::printf("%s\n", message.StrGet());
    return 0;
}
