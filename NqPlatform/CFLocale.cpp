#include "NqPlatform/CFLocale.h"

#include <unicode/uloc.h>

#include <memory>
#include <new>

CFLocaleRef CFLocaleCopyCurrent()
{
    try
    {
        auto locale = std::make_unique<NqCFLocale>();
        locale->fName = uloc_getDefault();
        return locale.release();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}
