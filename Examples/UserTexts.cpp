// Texts for users: messages with parameters, capitals, the order of a list, numbers, line ends, and the copy in 16-bit
// units that system interfaces want.

#include "NqCore/PublicAPI/NqAsciiTranslationTable.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqCore/PublicAPI/NqStringUtils.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

const char* OrderText(int32 inOrder)
{
    return inOrder < 0 ? "before" : inOrder > 0 ? "after" : "beside";
}

// Both directions leave every byte as it is, but for one. The resource has rows and columns exchanged, and no texts for
// bytes of which the table alone cannot say what they become.
void ReadTable(TNqAsciiTranslationTable& outTable, char inFrom, char inTo)
{
    uint8 resource[2 * 256 + 2] = {};
    for (int32 byte = 1; byte < 256; ++byte)
    {
        const int32 place = (byte % 16) * 16 + byte / 16;
        resource[place] = static_cast<uint8>(byte == inFrom ? inTo : byte);
        resource[256 + place] = static_cast<uint8>(byte == inTo ? inFrom : byte);
    }
    outTable.InitFromResourceData(resource, sizeof resource);
}

} // namespace

int main()
{
    TNqHost host;
    TNqString255 message("Saved ^0 of ^1 images");
    TNqString31 done;
    TNqString31 all("7");
    done.FromInt32(3);
    TNqPtrArray<TNqString> parameters;
    parameters.AddElem(&done);
    parameters.AddElem(&all);
    NqParameterText(message, parameters);
    std::printf("%s\n", message.StrGet());

    TNqDynamicString street("Gro\xC3\x9F"
                            "e Stra\xC3\x9F"
                            "e");
    street.ToUpper(); // longer than before
    std::printf("%s, %u characters in %u bytes\n", street.StrGet(), street.Length(), street.ByteLength());

    const TNqString31 zebra("Zebra");
    const TNqString31 aerial("\xC3\x84rial");
    std::printf("for a reader %s is %s %s, for a computer %s\n", aerial.StrGet(),
                OrderText(NqCompareStrings(aerial, zebra)), zebra.StrGet(), OrderText(aerial.CompareQuick(zebra)));

    TNqString31 number;
    number.FromReal32(1234.5F, 2);
    std::printf("%s is %.1f again; the decimal point is %c\n", number.StrGet(), static_cast<double>(number.ToReal32()),
                NqGetDecimalPt());

    TNqString255 lines("one\rtwo\r\nthree");
    lines.ConvertLineFeed(kUnixLineFeed);
    std::printf("%s\n", lines.StrGet());

    const TNqWideString wide(aerial);
    std::printf("%u units, the first is U+%04X\n", wide.Length(), wide.StrGet()[0]);

    // An old printer has no tilde: the host's table says what stands in for it.
    TNqAsciiTranslationTable table;
    ReadTable(table, '~', '-');
    host.SetAsciiTranslationTable(&table);
    TNqString31 path("~/images");
    path.TranslateAscii(0);
    std::printf("%s\n", path.StrGet());
    host.SetAsciiTranslationTable(nullptr);
    return 0;
}
