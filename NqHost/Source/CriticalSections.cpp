// Critical sections: recursive for the thread that holds them, without time limit, in no order of arrival.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <mutex>

class TNqCriticalSection
{
public:
    std::recursive_mutex fMutex;
};

TNqCriticalSection* NewCS()
{
    return NqHostNew<TNqCriticalSection>();
}

// A section that could not be made is null; entering and leaving it do nothing.
void EnterCS(TNqCriticalSection* inSection)
{
    if (inSection != nullptr)
        inSection->fMutex.lock();
}

void LeaveCS(TNqCriticalSection* inSection)
{
    if (inSection != nullptr)
        inSection->fMutex.unlock();
}

void DeleteCS(TNqCriticalSection* inSection)
{
    NqHostDelete(inSection);
}
