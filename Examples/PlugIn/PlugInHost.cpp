// An application that loads a plug-in, uses it, and unloads it once nothing of it is alive any more.
//
// The plug-in uses the application's copy of the library, so that both count their objects in one registry: what a
// plug-in leaves behind is seen there, before its code goes and a call into it would crash.

#include "Examples/PlugIn/PlugIn.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>
#include <dlfcn.h>

namespace
{

class TPlugIn
{
public:
    explicit TPlugIn(const char* inPath) : fModule(dlopen(inPath, RTLD_NOW | RTLD_LOCAL)) {}
    ~TPlugIn()
    {
        if (fModule != nullptr)
            dlclose(fModule);
    }
    TPlugIn(const TPlugIn&) = delete;
    TPlugIn& operator=(const TPlugIn&) = delete;

    template <class Function>
    Function Find(const char* inName) const
    {
        return fModule != nullptr ? reinterpret_cast<Function>(dlsym(fModule, inName)) : nullptr;
    }

private:
    void* fModule;
};

// The plain counted objects that are younger than the one of the given number.
int32 CountYounger(uint32 inNumber)
{
    int32 count = 0;
    for (const TNqCountedObject* object = *gFirstCountedObject; object != nullptr;
         object = object->GetNextCountedObject())
        count += object->GetUniqueObjectNumber() > inNumber;
    return count;
}

void PrintType(const char* inExtension)
{
    const TNqFileType* const type =
        TNqFileTypeUtils::GetAllTypes().FindNqFileType(TNqString15(inExtension), TNqFileID());
    std::printf(".%s is %s\n", inExtension, type != nullptr ? type->GetName().GetString() : "unknown");
}

bool Use(const TPlugIn& inPlugIn, TNqCommandBindingContextList& ioContexts)
{
    const auto start = inPlugIn.Find<TPlugInStart>(kPlugInStart);
    const auto create = inPlugIn.Find<TPlugInCreate>(kPlugInCreate);
    const auto end = inPlugIn.Find<TPlugInEnd>(kPlugInEnd);
    const TPlugInHost tables = {&TNqFileTypeUtils::GetAllTypes(), &ioContexts, gCurrentCountedObjects};
    if (start == nullptr || create == nullptr || end == nullptr || start(&tables) != kNqNoErr)
        return false;
    PrintType("xyz");
    const TNqCommandBinding* const thin = ioContexts.FindBinding(NqFourChar("Thin"));
    std::printf("%s is Command+%c\n", thin->GetCommandName().GetString(), thin->GetChar());

    const auto number = static_cast<uint32>(GetAtomicCounterValue(*gTotalCountedObjects));
    TNqCountedPtr<INqUnknown> object;
    create(&object);
    TNqCountedPtr<IPointCloudReader> reader;
    object->QueryInterface(IID_IPointCloudReader, reinterpret_cast<void**>(&reader));
    std::printf("the reader counts %d points\n", reader->CountPoints(TNqString31("0 0 0\n1 0 0\n1 1 0\n")));

    object = nullptr;
    std::printf("objects alive: %d, so the plug-in has to stay\n", CountYounger(number));
    reader = nullptr;
    std::printf("objects alive: %d\n", CountYounger(number));
    end();
    return true;
}

} // namespace

int main()
{
    const TNqHost host;
    TNqCommandBindingContextList contexts;
    {
        const TPlugIn plugIn(PLUG_IN_PATH);
        if (!Use(plugIn, contexts))
        {
            const char* const reason = dlerror();
            std::printf("the plug-in could not be started: %s\n", reason != nullptr ? reason : "it refuses");
            return 1;
        }
    }
    std::printf("the plug-in is %s\n", dlopen(PLUG_IN_PATH, RTLD_NOW | RTLD_NOLOAD) == nullptr ? "gone" : "still here");
    std::printf("contexts: %u\n", contexts.GetElemCount());
    PrintType("xyz"); // what was registered is the list's own
    TNqFileTypeUtils::ShutDown();
    return 0;
}
