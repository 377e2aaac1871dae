// A plug-in that knows point clouds: it brings a file type, a context of shortcuts, and a reader.

#include "Examples/PlugIn/PlugIn.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

namespace
{

// What the host keeps of it is in this module: code and virtual tables. It has to go before the module does.
class TPointContext : public TNqCommandBindingContext
{
public:
    TPointContext()
    {
        fBindingContextID = static_cast<IDType>(NqFourChar("Pnts"));
        fBindingContextName = TNqDynamicString("Point cloud");
    }

    bool Fill()
    {
        TNqCommandBindingGroup* const group = AddBindingGroup();
        TNqCommandBinding* const thin = group != nullptr ? group->AddBinding() : nullptr;
        if (thin == nullptr)
            return false;
        thin->fCommandID = NqFourChar("Thin");
        thin->Validate(false, false, true, false, 't', TNqString31("Thin Out"));
        return true;
    }
};

class TReader : public TNqCountedObject, public IPointCloudReader
{
public:
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override
    {
        if (!NqInlineIsEqualGUID(iid, IID_IPointCloudReader))
            return TNqCountedObject::QueryInterface(iid, outInterface);
        TNqCountedGetHelper<IPointCloudReader>{reinterpret_cast<IPointCloudReader**>(outInterface)} = this;
        return kNqNoErr;
    }
    uint32 AddRef() override { return TNqCountedObject::AddRef(); }
    uint32 Release() override { return TNqCountedObject::Release(); }

    int32 CountPoints(const TNqString& inText) override
    {
        int32 count = 0;
        for (const int8* c = inText.GetString(); *c != 0; ++c)
            count += *c == '\n';
        return count;
    }
};

TPlugInHost gHost;
TPointContext* gContext = nullptr;

} // namespace

extern "C" NqErr NqPlugInStart(const TPlugInHost* inHost)
{
    // A module with a copy of the library of its own would count its objects where the host does not see them, and
    // would have to be given the host's registry with InitNqCountedObject. This one is made to use the host's copy.
    if (inHost->fCountedObjects != gCurrentCountedObjects)
        return kNqErrInvalidData;
    gHost = *inHost;
    gContext = new TPointContext;
    if (gContext == nullptr || !gContext->Fill() || !gHost.fContexts->AddElem(gContext))
    {
        delete gContext;
        gContext = nullptr;
        return kNqErrOutOfMemory;
    }
    TNqFileType type(static_cast<NqFileTypeID>(NqFourChar("XYZ ")), static_cast<NqTypeFamilyID>(NqFourChar("Pnts")));
    type.SetName(TNqString31("Point cloud"));
    type.AddExtension(TNqString15("xyz"));
    gHost.fFileTypes->AddElem(type);
    return kNqNoErr;
}

extern "C" void NqPlugInCreate(INqUnknown** outObject)
{
    TNqCountedCreateHelper<INqUnknown>{outObject} = static_cast<TNqCountedObject*>(new TReader);
}

// The file type stays listed: the list has a copy that needs nothing of this module.
extern "C" void NqPlugInEnd()
{
    TNqCommandBindingContextList& contexts = *gHost.fContexts;
    uint32 kept = 0;
    for (uint32 i = 0; i < contexts.GetElemCount(); ++i)
    {
        if (contexts[i] != gContext)
            contexts[kept++] = contexts[i];
    }
    contexts.SetElemCount(kept);
    delete gContext;
    gContext = nullptr;
}
