// A dialog kept as a resource: fields in binary, its texts in a table beside them that a translator replaces. The code
// that reads it knows nothing of languages.

#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

struct TDialog
{
    int16 fWidth = 0;
    int16 fHeight = 0;
    TNqString63 fTitle;
    TNqString31 fButton;
};

void Write(TNqResourceStream& outStream, const TDialog& inDialog)
{
    outStream << inDialog.fWidth;
    outStream << inDialog.fHeight;
    outStream.WriteLocalizedCString(inDialog.fTitle);
    outStream.WriteLocalizedTNqString(31, inDialog.fButton); // the field has the same size with a table and without
}

TDialog Read(TNqResource& inResource)
{
    TNqResourceStream stream(inResource, eRead);
    TDialog dialog;
    stream >> dialog.fWidth;
    stream >> dialog.fHeight;
    stream.ReadLocalizedCString(dialog.fTitle);
    stream.ReadLocalizedTNqString(31, dialog.fButton);
    return dialog;
}

void Print(TNqResource& inResource)
{
    const TDialog dialog = Read(inResource);
    std::printf("%d by %d, \"%s\", [%s]\n", dialog.fWidth, dialog.fHeight, dialog.fTitle.StrGet(),
                dialog.fButton.StrGet());
}

} // namespace

int main()
{
    const TNqHost host;
    TNqCountedPtr<TResourceStrings> english;
    TResourceStrings::Create(&english);
    TDialog dialog;
    dialog.fWidth = 320;
    dialog.fHeight = 200;
    dialog.fTitle = TNqString63("Replace the image?");
    dialog.fButton = TNqString31("Replace");
    TNqResourceStream out(english);
    Write(out, dialog);
    const int32 size = out.pcount();

    TNqCountedPtr<TNqResource> resource;
    *&resource = new TNqResource(NqFourChar("DLOG"), 128, TNqString63("Replace"));
    resource->TakeData(out.str(), static_cast<uint32>(size)); // first the width, then the height, high bytes first
    resource->SetLocalizedStrings(english);
    std::printf("%u bytes, starting %02X %02X %02X %02X\n", resource->GetSize(),
                static_cast<uint8>(resource->GetData()[0]), static_cast<uint8>(resource->GetData()[1]),
                static_cast<uint8>(resource->GetData()[2]), static_cast<uint8>(resource->GetData()[3]));
    Print(*resource);

    // For the translator: one text a line.
    TNqstrstream list(kUTF8Transcoder);
    TNqResourceStream(*resource, eRead).WriteAllStrings(list);
    list << ends;
    int8* const lines = list.str();
    TNqDynamicString text(lines);
    Nqfree(lines);
    text.ConvertLineFeed(kUnixLineFeed);
    std::printf("%s", text.StrGet());

    TNqCountedPtr<TResourceStrings> german;
    TResourceStrings::Create(&german);
    german->AddElem(TNqString63("Bild ersetzen?"));
    german->AddElem(TNqString63("Ersetzen"));
    resource->SetLocalizedStrings(german);
    Print(*resource);
    return 0;
}
