// What the tests of strings share.

#pragma once

#include "NqCore/PublicAPI/NqString.h"
#include "NqCore/PublicAPI/NqStringUtils.h"
#include "Tests/TestHost.h"

class StringFixture : public NqTest
{
protected:
    void SetUp() override
    {
        NqIsWesternLanguage(); // its first call of the process is reported
        NqTest::SetUp();
    }
};

inline std::string Bytes(const TNqString& s)
{
    return std::string(s.GetString(), s.ByteLength());
}
