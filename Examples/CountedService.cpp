// A service behind an interface: made by a factory, found by a query, counted by whoever holds it.
//
// The interface is all that a caller sees. Its identifier is what a plug-in built elsewhere asks for.

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

// Lengths in metres, shown in the unit of the user's choice.
class IUnitConverter : public INqUnknown
{
public:
    virtual real64 FromMetres(real64 inMetres) = 0;
    virtual const char* GetUnitName() = 0;

protected:
    ~IUnitConverter() = default;
};

constexpr NqIID IID_IUnitConverter(0x6B1C2F40, 0x9E21, 0x4D35, 0xA8, 0x0B, 0x51, 0x7A, 0x90, 0x3E, 0xC4, 0x12);

class TFootConverter : public TNqCountedObject, public IUnitConverter
{
public:
    static void Create(INqUnknown** outObject)
    {
        TNqCountedCreateHelper<INqUnknown>{outObject} = static_cast<TNqCountedObject*>(new TFootConverter);
    }

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override
    {
        if (!NqInlineIsEqualGUID(iid, IID_IUnitConverter))
            return TNqCountedObject::QueryInterface(iid, outInterface);
        TNqCountedGetHelper<IUnitConverter>{reinterpret_cast<IUnitConverter**>(outInterface)} = this;
        return 0;
    }
    uint32 AddRef() override { return TNqCountedObject::AddRef(); }
    uint32 Release() override { return TNqCountedObject::Release(); }
    ~TFootConverter() override { std::printf("converter gone\n"); }

    real64 FromMetres(real64 inMetres) override { return inMetres / 0.3048; }
    const char* GetUnitName() override { return "ft"; }
};

} // namespace

int main()
{
    const TNqHost host;
    TNqCountedPtr<IUnitConverter> converter;
    {
        TNqCountedPtr<INqUnknown> object;
        TFootConverter::Create(&object);
        void* face = nullptr;
        if (object->QueryInterface(IID_INqMenuBar, &face) == kNqNoInterface)
            std::printf("no menu bar\n");
        if (object->QueryInterface(IID_IUnitConverter, reinterpret_cast<void**>(&converter)) != 0)
            return 1;
    } // the object lives on: the interface holds a reference
    std::printf("%.2f %s\n", converter->FromMetres(3.048), converter->GetUnitName());
    converter = nullptr;
    std::printf("done\n");
    return 0;
}
