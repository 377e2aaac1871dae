// The byte translation table that the application may set; strings ask for it with every translation.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <atomic>

namespace
{

std::atomic<TNqAsciiTranslationTable*> gTable{nullptr};

} // namespace

TNqAsciiTranslationTable* GetAsciiTranslationTable()
{
    return gTable.load(std::memory_order_acquire);
}

void NqHostSetAsciiTranslationTable(TNqAsciiTranslationTable* inTable)
{
    gTable.store(inTable, std::memory_order_release);
}
