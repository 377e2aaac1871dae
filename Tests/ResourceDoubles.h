// What the tests of resources make and look at.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHostResourceFile.h"
#include "Tests/TestHost.h"

using TStringsPtr = TNqCountedPtr<TResourceStrings>;
using TResourcePtr = TNqCountedPtr<TNqResource>;

// What a stream with a block of its own holds; the stream is of no further use.
inline std::string Written(TNqstrstream& stream)
{
    const size_t size = static_cast<size_t>(stream.pcount());
    const std::unique_ptr<int8, decltype(&Nqfree)> bytes(stream.str(), &Nqfree);
    return {bytes.get(), size};
}

inline std::string BytesOf(const TNqHostResourceFile& file)
{
    TNqByteSwapStream out;
    TNqDynamicString reason;
    EXPECT_EQ(file.WriteBytes(out, reason), kNqNoErr) << reason.StrGet();
    return Written(out);
}

inline TStringsPtr Strings(const TTexts& texts)
{
    TStringsPtr strings;
    TResourceStrings::Create(&strings);
    for (const std::string& text : texts)
        EXPECT_TRUE(strings->AddElem(TNqDynamicString(text.c_str())));
    return strings;
}

inline TResourcePtr Resource(FourCharT type, int id, const std::string& name, const std::string& data = {},
                             TResourceStrings* strings = nullptr)
{
    TResourcePtr resource;
    *&resource = new TNqResource(type, static_cast<int16>(id), TNqDynamicString(name.c_str()));
    resource->SetData(data.data(), static_cast<uint32>(data.size()));
    resource->SetLocalizedStrings(strings);
    return resource;
}
